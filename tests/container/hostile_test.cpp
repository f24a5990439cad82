// Hostile input: cut, flipped and lying QAZ files end with the right message (or load, where the
// damage is one the format tolerates), in process and through the binary.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "bench/hostile_cases.hpp"
#include "container/loader.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/run_process.hpp"
#include "writers/writers.hpp"

using namespace deqaz;

namespace {

std::vector<uint8_t> goodFile() { return writeQaz(deqaz::testing::makeRichModule()); }

}  // namespace

TEST(HostileInput, EveryCaseEndsWithTheRightOutcome) {
    std::FILE* sink = std::fopen("/dev/null", "w");
    ASSERT_NE(sink, nullptr);
    for (const hostile::Case& c : hostile::makeCases(goodFile())) {
        SCOPED_TRACE(c.name);
        InputStream in{c.file.data(), static_cast<uint32_t>(c.file.size()), 0};
        Diagnostics diag;
        diag.err = sink;
        std::unique_ptr<SongHeader> song = loadModule(in, diag);
        if (c.expectedError == nullptr) {
            ASSERT_TRUE(song) << diag.errorText;
        } else if (*c.expectedError) {
            EXPECT_FALSE(song);
            EXPECT_STREQ(diag.errorText, c.expectedError);
        }
        if (song) {
            // Whatever loads must also write, within the formats' offsets.
            OutputBuffer out;
            EXPECT_TRUE(writeModule(*song, out, diag));
        } else {
            const std::string e = diag.errorText;
            EXPECT_TRUE(e == hostile::BROKEN || e == hostile::NOT_QAZ || e == "Insufficient memory") << e;
        }
    }
    std::fclose(sink);
}

TEST(HostileInput, TheBinaryReportsAndWritesNothing) {
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / ("deqaz-hostile-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    for (const hostile::Case& c : hostile::makeCases(goodFile())) {
        if (!c.expectedError || !*c.expectedError) continue;
        SCOPED_TRACE(c.name);
        const fs::path in = dir / "bad.qaz";
        std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(c.file.data()), static_cast<long>(c.file.size()));
        test::ProcessResult r = test::runProcess({DEQAZ_BINARY, in.string(), (dir / "out.it").string()});
        EXPECT_EQ(r.exitCode, 3);
        EXPECT_NE(r.err.find(std::string("error: ") + c.expectedError + "\n"), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(dir / "out.it"));
    }
    fs::remove_all(dir);
}
