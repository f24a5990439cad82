// The C API: a conversion in memory gives exactly what the deqaz program writes, also on four
// threads at once; what is not a QAZ file, or is damaged, gets the program's exit codes.
#include "deqaz/deqaz.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

struct Converted {
    int result = -1;
    std::string bytes, ext;
};

Converted convert(const std::vector<uint8_t>& qaz) {
    void* module = &module;  // overwritten in every case
    size_t size = 1;
    char ext[4] = "?";
    Converted c{deqaz_convert(qaz.data(), qaz.size(), &module, &size, ext), "", ext};
    if (module) c.bytes.assign(static_cast<const char*>(module), size);
    EXPECT_EQ(module == nullptr, size == 0);
    deqaz_free(module);
    return c;
}

TEST(Api, ConvertsAsTheProgramDoesOnFourThreadsAtOnce) {
    const std::pair<uint32_t, const char*> origins[] = {
        {SH_ORIGIN_IT | SH_IT_INSTRUMENTS, "it"}, {0, "xm"}, {SH_ORIGIN_S3M, "s3m"}, {SH_ORIGIN_MOD, "mod"}, {SH_ORIGIN_MTM, "mtm"}};
    TempDir dir;
    for (auto [flags, ext] : origins) {
        SCOPED_TRACE(ext);
        const std::vector<uint8_t> qaz = writeQaz(makeRichModule(flags));
        dir.put("song.qaz", qaz);
        const ProcessResult program = runProcess({DEQAZ_BINARY, "-s", (dir / "song.qaz").string(), "STDOUT"});
        ASSERT_EQ(program.exitCode, 0);
        std::vector<Converted> results(4);
        std::vector<std::thread> threads;
        for (Converted& r : results) threads.emplace_back([&r, &qaz] { r = convert(qaz); });
        for (std::thread& t : threads) t.join();
        for (const Converted& r : results) {
            EXPECT_EQ(r.result, DEQAZ_OK);
            EXPECT_EQ(r.ext, ext);
            EXPECT_TRUE(r.bytes == program.out);
        }
    }
}

TEST(Api, RefusesWhatIsNotAWholeQazFile) {
    std::vector<uint8_t> qaz = writeQaz(makeRichModule());
    qaz.resize(24);  // the header and the start of the packed body
    for (const auto& [bytes, result] : std::vector<std::pair<std::vector<uint8_t>, int>>{
             {{'Q', 'A', 'Z', 6}, DEQAZ_NOT_QAZ}, {{'Q', 'A', 'Z'}, DEQAZ_NOT_QAZ}, {{'Q', 'A', 'Z', 5}, DEQAZ_DAMAGED}, {qaz, DEQAZ_DAMAGED}})
        EXPECT_EQ(convert(bytes).result, result) << bytes.size();
    void* module = &qaz;
    size_t size = 5;
    EXPECT_EQ(deqaz_convert(nullptr, 4, &module, &size, nullptr), DEQAZ_NOT_QAZ);
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(size, 0u);
}

}  // namespace
}  // namespace deqaz
