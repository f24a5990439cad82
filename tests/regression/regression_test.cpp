// Inputs the fuzzers found troublesome, kept (minimised where that kept the trouble). The name's
// first word is the fuzz target, whose code path the input replays (its property checks must
// hold); for whole files ("convert-") the last words say the outcome: "*.broken.qaz" must fail to
// load with the damaged-file message, "*.loads.qaz" must load and write. Each once cost seconds,
// minutes or gigabytes; the bounds that stop that are checked by size here.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_paths.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"

namespace deqaz {
namespace {

namespace fs = std::filesystem;
using namespace deqaz::test;

TEST(FuzzRegressions, EveryKeptInputEndsAsItsNameSays) {
    const fs::path dir = fs::path(DEQAZ_SOURCE_DIR) / "tests/regression/inputs";
    unsigned seen = 0;
    for (const auto& entry : fs::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        SCOPED_TRACE(name);
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<uint8_t> file{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        using Path = bool (*)(const uint8_t*, size_t);
        const std::pair<const char*, Path> paths[] = {{"convert-", fuzz::runConvert}, {"unpack-", fuzz::runUnpack},
                                                      {"predict-", fuzz::runPredict}, {"vorbis-", fuzz::runVorbis},
                                                      {"layer3-", fuzz::runLayer3},   {"tracks-", fuzz::runTracks},
                                                      {"readers-", fuzz::runReaders}};
        bool replayed = false;
        for (const auto& [prefix, path] : paths)
            if (name.rfind(prefix, 0) == 0) {
                EXPECT_TRUE(path(file.data(), file.size()));
                replayed = true;
            }
        ASSERT_TRUE(replayed) << "name the fuzz target first";
        ++seen;
        if (name.rfind("convert-", 0) != 0) continue;
        Loaded r = loadQaz(file);
        if (name.ends_with(".broken.qaz")) {
            EXPECT_FALSE(r.song);
            EXPECT_EQ(r.error, "Something is wrong with this file!");
        } else {
            ASSERT_TRUE(name.ends_with(".loads.qaz")) << "name the expected outcome";
            ASSERT_TRUE(r.song) << r.error;
            const WriteResult w = runWriteModule(*r.song, 1);
            EXPECT_FALSE(w.failed);
            // Patterns are bounded by cell count, PCM by the decoded-size bound: the output of a
            // small file stays far below a gigabyte.
            EXPECT_LT(w.bytes.size(), 256u << 20);
        }
    }
    EXPECT_GE(seen, 3u);
}

}  // namespace
}  // namespace deqaz
