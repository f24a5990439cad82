// Hostile input: cut, flipped and lying QAZ files end with the right message (or load, where the
// damage is one the format tolerates), in process and through the binary.
#include <gtest/gtest.h>

#include "bench/hostile_cases.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

std::vector<uint8_t> goodFile() { return writeQaz(makeRichModule()); }

TEST(HostileInput, EveryCaseEndsWithTheRightOutcome) {
    for (const hostile::Case& c : hostile::makeCases(goodFile())) {
        SCOPED_TRACE(c.name);
        Loaded r = loadQaz(c.file);
        if (c.expectedError == nullptr) {
            ASSERT_TRUE(r.song) << r.error;
        } else if (*c.expectedError) {
            EXPECT_FALSE(r.song);
            EXPECT_EQ(r.error, c.expectedError);
        }
        if (r.song) {
            EXPECT_FALSE(runWriteModule(*r.song).failed);  // whatever loads must also write
        } else {
            EXPECT_TRUE(r.error == hostile::BROKEN || r.error == hostile::NOT_QAZ || r.error == "Insufficient memory")
                << r.error;
        }
    }
}

TEST(HostileInput, TheBinaryReportsAndWritesNothing) {
    TempDir dir;
    dir.put("out.it", "keep me");
    bool piped = false;
    for (const hostile::Case& c : hostile::makeCases(goodFile())) {
        if (!c.expectedError || !*c.expectedError) continue;
        SCOPED_TRACE(c.name);
        dir.put("bad.qaz", c.file);
        ProcessResult r = runProcess({DEQAZ_BINARY, "-y", (dir / "bad.qaz").string(), (dir / "out.it").string()});
        EXPECT_EQ(r.exitCode, 3);
        EXPECT_NE(r.err.find(std::string("error: ") + c.expectedError + "\n"), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find("name:"), std::string::npos) << r.err;
        EXPECT_EQ(dir.get("out.it"), "keep me");
        if (!piped) {  // once through the pipes as well: nothing reaches standard output
            piped = true;
            r = runProcess({DEQAZ_BINARY, "STDIN", "STDOUT"}, {"", std::string(c.file.begin(), c.file.end())});
            EXPECT_EQ(r.exitCode, 3);
            EXPECT_EQ(r.out, "");
        }
    }
}

}  // namespace
}  // namespace deqaz
