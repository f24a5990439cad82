// The converter as a user runs it: arguments, standard streams, files in a working directory,
// messages and exit status.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

const std::string BANNER =
    "DEQAZ 2.4 - QAZ to IT/XM/S3M/MOD/MTM decoder\n"
    "============================================\n"
    "- Note1: In the IT/XM formats some normal effects are duplicated in the volume\n"
    "         column, the QAZ format translates them to the normal effect versions,\n"
    "         so when converting back to IT/XM some effects may not be converted to\n"
    "         the column they were in originally.\n"
    "- Note2: All IT files are written as non-compressed v2.14 compatible IT files.\n";
const std::string USAGE =
    "Usage: DEQAZ [-s] infile [outfile]\n"
    "   -y = always overwrite\n"
    "   -s = silent mode (no text output, always overwrite)\n"
    "   infile/outfile can be STDIN/STDOUT to use standard input/output\n";
const std::string LOADING = "loading...\n";
const std::string NOT_QAZ = "error: This is not a QAZ file!\n";

// A playable module named "tiny": one empty 64-row pattern, one order, optionally one raw 16-bit
// sample, as a QAZ file.
std::string tinyQaz(uint32_t flags, uint8_t channels, uint32_t sampleFrames = 0, const char* name = "tiny") {
    SongHeader s = makeOnePatternSong(flags, channels);
    s.name = name;
    if (sampleFrames) addSample(s, SF_16BIT, sampleFrames);
    const std::vector<uint8_t> qaz = writeQaz(s);
    return std::string(qaz.begin(), qaz.end());
}

// What the converter must produce for a QAZ file: loaded and written in this process.
std::string expectedOutput(const std::string& qaz) {
    Loaded loaded = loadQaz(reinterpret_cast<const uint8_t*>(qaz.data()), qaz.size());
    if (!loaded.song) return ADD_FAILURE() << "reference load failed: " << loaded.error, std::string();
    const std::vector<uint8_t> out = runWriteModule(*loaded.song).bytes;
    return std::string(out.begin(), out.end());
}

class CliTest : public ::testing::Test {
protected:
    // Runs deqaz in the test's directory, standard input from the string (none: /dev/null).
    ProcessResult run(std::vector<std::string> args, std::optional<std::string> stdinData = std::nullopt) {
        args.insert(args.begin(), DEQAZ_BINARY);
        return runProcess(args, {dir.path().string(), std::move(stdinData)});
    }
    TempDir dir;
};

// Runs that end before any QAZ data is read: the switch scan, the usage text, the file that
// cannot be opened (its name cut to the 200-byte message buffer) and silent mode. Nothing is
// ever written to the directory.
TEST_F(CliTest, ArgumentsAndInputsThatEndTheRunEarly) {
    const std::string cannotOpen = BANNER + LOADING + "error: Can't open file :";
    const struct {
        std::vector<std::string> args;
        int exitCode;
        std::string err;
    } cases[] = {
        {{}, 1, BANNER + USAGE},
        {{"-s"}, 1, USAGE},  // silent mode drops the banner, never the usage text
        {{"-s", "-s"}, 1, USAGE},
        {{"-y", "-s", "-x"}, 1, USAGE},
        {{"-y", "-", "-q"}, 1, BANNER + USAGE},
        {{"nofile.qaz"}, 2, cannotOpen + "nofile.qaz\n"},
        {{"-y", "-s", "nofile.qaz"}, 2, ""},
        {{"-x", "-", "a.qaz"}, 2, cannotOpen + "a.qaz\n"},  // -x is a switch and ignored; a lone "-" too
        {{"-yes", "b.qaz"}, 2, cannotOpen + "-yes\n"},      // longer than two characters: the input name
        {{"c.qaz", "-s"}, 2, cannotOpen + "c.qaz\n"},       // no switches after the input name
        {{std::string(300, 'n')}, 2, cannotOpen + std::string(182, 'n') + "\n"},
    };
    for (const auto& c : cases) {
        const ProcessResult r = run(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.err;
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.out, "");
    }
    EXPECT_TRUE(dir.listing().empty());

    const std::vector<std::string> bad = {"", "Q", "QA", "QAZ", std::string("QAZ\x06", 4) + "rest",
                                          std::string("QAZ\xff", 4), std::string("QAX\x05", 4) + "rest",
                                          std::string("qaz\x01", 4)};
    for (const std::string& bytes : bad) {
        dir.put("in.qaz", bytes);
        for (const ProcessResult& r : {run({"in.qaz"}), run({"STDIN", "STDOUT"}, bytes)}) {
            EXPECT_EQ(r.exitCode, 2) << bytes.size();
            EXPECT_EQ(r.err, BANNER + LOADING + NOT_QAZ) << bytes.size();
            EXPECT_EQ(r.out, "");
        }
        EXPECT_EQ(dir.listing(), std::vector<std::string>{"in.qaz"});
    }
    const ProcessResult r = run({"-s", "in.qaz"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "");
}

// From here on the runs need real QAZ files (the QAZ writer and the loader).

TEST_F(CliTest, SilentRunPrintsNothingAndFormsNamesInDirectories) {
    std::string qaz = tinyQaz(0, 2);
    dir.put("music/a.b.qaz", qaz);
    ProcessResult r = run({"-s", "music/a.b.qaz"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(dir.get("music/a.b.xm"), expectedOutput(qaz));

    qaz = tinyQaz(SH_ORIGIN_MOD, 4, 0, "");
    dir.put("dir.v2/song", qaz);
    r = run({"dir.v2/song"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.err.find("\nname: \noriginal format: 4ch mod\n"), std::string::npos) << r.err;
    EXPECT_TRUE(dir.exists("dir.v2/song.mod"));
}

TEST_F(CliTest, PipedInputGivesTheSameModuleAsTheNamedFile) {
    // More than one 20,000-byte read step, so the pipe buffer has to grow.
    std::string qaz = tinyQaz(SH_ORIGIN_IT, 4, 30000);
    ASSERT_GT(qaz.size(), 50000u);
    dir.put("big.qaz", qaz);
    std::string expected = expectedOutput(qaz);

    ProcessResult fromFile = run({"big.qaz", "STDOUT"});
    ProcessResult fromPipe = run({"STDIN", "STDOUT"}, qaz);
    EXPECT_EQ(fromFile.exitCode, 0);
    EXPECT_EQ(fromPipe.exitCode, 0);
    EXPECT_EQ(fromFile.out, expected);
    EXPECT_EQ(fromPipe.out, expected);
    EXPECT_EQ(fromPipe.err, fromFile.err);
    EXPECT_FALSE(dir.exists("STDOUT"));

    // Named from "STDIN"; an existing file is replaced without a prompt, since standard input
    // carries the module and cannot answer.
    dir.put("STDIN.it", "old");
    ProcessResult r = run({"STDIN"}, qaz);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err.find("overwrite"), std::string::npos);
    EXPECT_EQ(dir.get("STDIN.it"), expected);
}

TEST_F(CliTest, OverwritePromptAndSwitches) {
    std::string qaz = tinyQaz(SH_ORIGIN_IT, 4);
    std::string expected = expectedOutput(qaz);
    dir.put("song.qaz", qaz);
    dir.put("song.it", "old");
    const std::string head = BANNER + LOADING + "name: tiny\noriginal format: 4ch it\n";
    const std::string prompt = "song.it exists, overwrite? (Y/N) ";

    // Keys come from standard input even when it is not a terminal; other keys are ignored.
    ProcessResult r = run({"song.qaz"}, "x Q\nN");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, head + prompt + "No\n");
    EXPECT_EQ(dir.get("song.it"), "old");

    r = run({"song.qaz"}, "?y");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, head + prompt + "Yes\ndone: " + std::to_string(qaz.size()) + " -> " +
                         std::to_string(expected.size()) + "\n");
    EXPECT_EQ(dir.get("song.it"), expected);

    for (const char* sw : {"-y", "-s"}) {
        dir.put("song.it", "old");
        r = run({sw, "song.qaz"});
        EXPECT_EQ(r.exitCode, 0) << sw;
        EXPECT_EQ(r.err.find("overwrite"), std::string::npos) << sw;
        EXPECT_EQ(dir.get("song.it"), expected) << sw;
    }

    // A file called STDOUT is asked about, yet the module still goes to standard output.
    dir.put("STDOUT", "file");
    r = run({"song.qaz", "STDOUT"}, "Y");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.err.find("STDOUT exists, overwrite? (Y/N) Yes\n"), std::string::npos);
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(dir.get("STDOUT"), "file");

    // After the input name even "-y" is the output name.
    r = run({"song.qaz", "-y"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(dir.get("-y"), expected);
    // And "-yes" is the input name.
    dir.put("-yes", qaz);
    r = run({"-yes", "out.it"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(dir.get("out.it"), expected);
}

TEST_F(CliTest, OutputThatCannotBeCreated) {
    std::string qaz = tinyQaz(SH_ORIGIN_S3M, 4);
    dir.put("song.qaz", qaz);
    const std::string head = BANNER + LOADING + "name: tiny\noriginal format: 4ch s3m\n";

    ProcessResult r = run({"song.qaz", "nodir/out.s3m"});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(r.err, head + "error: Can't create file!\n\n");
    r = run({"-s", "song.qaz", "nodir/out.s3m"});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(r.err, "");

    // The output name holds 255 characters; a longer one is refused before anything is opened.
    std::string longName(256, 'o');
    r = run({"song.qaz", longName});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(r.err, head + "error: Output file name is too long!\n");
    std::string longInput = std::string(250, 'i') + ".qaz";  // 250 + ".s3m" still fits
    dir.put(longInput, qaz);
    r = run({longInput});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(dir.exists(std::string(250, 'i') + ".s3m"));
    std::string tooLong(252, 'j');  // 252 + ".s3m" does not
    dir.put(tooLong, qaz);
    r = run({tooLong});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(dir.listing().size(), 4u);
}

TEST_F(CliTest, MemoryThatCannotBeHadEndsTheRun) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "an address-space limit leaves the sanitizer no room";
#endif
    // A small file whose module is large: a 60-million-frame copy of a one-frame sample needs
    // 120 MB once loaded, and as much again for the written module.
    SongHeader s = makeOnePatternSong(SH_ORIGIN_IT, 4);
    s.name = "big";
    addSample(s, SF_16BIT, 1);
    SampleRecord& copy = addSample(s, SF_16BIT, 1);
    copy.storedSize = -1;
    copy.length = 60000000;
    dir.put("big.qaz", writeQaz(s));
    // 64 MiB: no room for the copy while loading; 200 MiB: no room for the written module.
    for (auto [limit, loads] : {std::pair{"--as=67108864", false}, {"--as=209715200", true}}) {
        ProcessResult r = runProcess({"prlimit", limit, DEQAZ_BINARY, "big.qaz", "out.it"},
                                     {dir.path().string(), std::nullopt});
        EXPECT_EQ(r.exitCode, 3) << limit;
        const std::string head = BANNER + LOADING + (loads ? "name: big\noriginal format: 4ch it\n" : "");
        EXPECT_EQ(r.err, head + "error: Insufficient memory\n") << limit;
        EXPECT_FALSE(dir.exists("out.it")) << limit;
    }
}

}  // namespace
}  // namespace deqaz
