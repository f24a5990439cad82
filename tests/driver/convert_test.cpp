// End to end through the deqaz binary, once per origin format: a module using every record kind
// and sample coding, with values past the format's fields (note 200, instrument 70, effect 0x13,
// 300 orders, a loop that starts past its end), stored as QAZ files of both versions. deqaz
// writes exactly what loading and writing make of the file in process, and standard error carries
// the banner and the run's own lines, nothing more. (What loading keeps: container/loader_test;
// what a player hears in the modules written: the corpus tests.)
#include <gtest/gtest.h>

#include <algorithm>

#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

TEST(Convert, EveryOriginConvertsToTheWritersBytesWithTheRunsLinesOnly) {
    const struct {
        uint32_t flags;
        const char* extension;
    } formats[] = {{SH_ORIGIN_IT | SH_IT_INSTRUMENTS, "it"}, {SH_ORIGIN_IT, "it"}, {SH_LINEAR_SLIDES, "xm"},
                   {SH_ORIGIN_S3M, "s3m"},  {SH_ORIGIN_MOD, "mod"}, {SH_ORIGIN_MTM, "mtm"}};
    TempDir dir;
    for (const auto& f : formats) {
        SongHeader song = makeRichModule(f.flags);
        PatternGrid grid(64, song.channels);
        grid.at(0, 0) = {note(199), instrument(69), cmd(43, 0x91)};
        grid.at(1, 1) = {note(89), instrument(69), cmd(47, 0x10)};
        addPattern(song, grid);
        setOrders(song, std::vector<uint8_t>(300, 3));
        addLoopedSample(song, 0, 100, 90, 100, 1).loopStart = 120;
        for (uint8_t version : {4, 5}) {
            SCOPED_TRACE(std::string(f.extension) + " version " + std::to_string(version));
            QazWriteOptions options;
            options.version = version;
            const std::vector<uint8_t> qaz = writeQaz(song, options);
            const Loaded loaded = loadQaz(qaz);
            ASSERT_TRUE(loaded.song) << loaded.error;
            const std::vector<uint8_t> expected = runWriteModule(*loaded.song).bytes;
            const std::string out = std::string("song.") + f.extension;
            fs::remove(dir / out);
            dir.put("song.qaz", qaz);
            const ProcessResult r = runProcess({DEQAZ_BINARY, (dir / "song.qaz").string()});
            EXPECT_EQ(r.exitCode, 0) << r.err;
            EXPECT_TRUE(readBytes(dir / out) == expected) << "output differs from the module loaded and written in process";
            EXPECT_EQ(r.err.rfind("DEQAZ 2.4 - QAZ to IT/XM/S3M/MOD/MTM decoder\n", 0), 0u);
            const size_t at = r.err.find("loading...\n");
            ASSERT_NE(at, std::string::npos) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.begin() + static_cast<std::ptrdiff_t>(at), '\n'), 7);  // the banner
            EXPECT_EQ(r.err.substr(at), "loading...\nname: every record kind\noriginal format: " + std::to_string(song.channels) +
                                            "ch " + f.extension + "\ndone: " + std::to_string(qaz.size()) + " -> " +
                                            std::to_string(expected.size()) + "\n");
        }
    }
}

}  // namespace
}  // namespace deqaz
