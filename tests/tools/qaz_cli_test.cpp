// The encoder as a user runs it: a real module in, a QAZ file out that deqaz converts back to the
// same bytes whichever way it was written (file or pipe, version 4 or 5, any lossless coding).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

const std::string CORPUS_MODULE = std::string(DEQAZ_CORPUS) + "/regression/xm/Arpeggio.xm";

class QazCli : public ::testing::Test {
protected:
    ProcessResult qaz(std::vector<std::string> args, std::optional<std::string> in = std::nullopt) {
        args.insert(args.begin(), DEQAZ_QAZ_BINARY);
        return runProcess(args, {dir.path().string(), std::move(in)});
    }
    // deqaz's output for a QAZ file held in the test directory.
    std::string converted(const std::string& qazName) {
        ProcessResult r = runProcess({DEQAZ_BINARY, "-s", qazName, "STDOUT"}, {dir.path().string(), std::nullopt});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.out;
    }
    TempDir dir;
};

TEST_F(QazCli, EveryWayOfWritingConvertsBackToTheSameModule) {
    dir.put("song.xm", readFile(CORPUS_MODULE));
    ProcessResult r = qaz({"song.xm"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("original format: 2ch xm\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("done: "), std::string::npos);
    ASSERT_TRUE(dir.exists("song.qaz")) << "without an outfile the extension becomes .qaz";
    const std::string reference = converted("song.qaz");
    ASSERT_GT(reference.size(), 336u);
    EXPECT_EQ(reference.compare(0, 17, "Extended Module: "), 0);

    for (const std::vector<std::string>& args : {std::vector<std::string>{"-c", "raw"}, {"-c", "delta"}, {"-v", "4"}}) {
        SCOPED_TRACE(args[0] + " " + args[1]);
        std::vector<std::string> all = args;
        all.insert(all.end(), {"-y", "song.xm", "other.qaz"});
        ASSERT_EQ(qaz(all).exitCode, 0);
        EXPECT_EQ(converted("other.qaz"), reference);
    }
    // Through the pipes ("-" is STDOUT), silently: nothing on standard error, the file on standard output.
    r = qaz({"-s", "STDIN", "-"}, readFile(CORPUS_MODULE));
    ASSERT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    dir.put("piped.qaz", r.out);
    EXPECT_EQ(converted("piped.qaz"), reference);
}

TEST_F(QazCli, LossyCodingsConvert) {
    dir.put("song.xm", readFile(CORPUS_MODULE));
    for (const char* coding : {"vorbis", "vorbis:0.1", "vorbis:1", "mp3", "mp3:64"}) {
        SCOPED_TRACE(coding);
        ASSERT_EQ(qaz({"-y", "-c", coding, "song.xm", "lossy.qaz"}).exitCode, 0);
        const std::string out = converted("lossy.qaz");
        EXPECT_EQ(out.compare(0, 17, "Extended Module: "), 0);
    }
    // What each file holds, or why it cannot be described; the exit code is the worst failure's.
    dir.put("text.mod", std::string(2000, 'x'));
    ProcessResult r = qaz({"info", "--json", "lossy.qaz", "song.xm", "missing.qaz", "text.mod"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_EQ(r.out.substr(0, 58), R"({"file":"lossy.qaz","container":5,"format":"xm","name":"Ar)");
    EXPECT_NE(r.out.find(R"({"file":"song.xm","container":null,"format":"xm")"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(R"({"file":"missing.qaz","error":"No such file or directory"})"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(R"({"file":"text.mod","error":"unknown module format)"), std::string::npos) << r.out;
    r = qaz({"info", "song.xm"});
    EXPECT_EQ(r.out.substr(0, 45), "song.xm: module file, xm module \"Arpeggio    ");
}

TEST_F(QazCli, RefusesWhatItCannotDo) {
    const std::string usage = "Usage: qaz [-y] [-s] [-c coding] [-v version] infile [outfile]\n";
    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{}, "no input file"}, {{"-c", "flac", "x.it"}, "bad sample coding 'flac'"}, {{"-c", "vorbis:2", "x.it"}, "bad sample coding 'vorbis:2'"},
        {{"-c", "mp3:999", "x.it"}, "bad sample coding 'mp3:999'"}, {{"-c", "vorbis:abc", "x.it"}, "bad sample coding 'vorbis:abc'"},
        {{"-c", "mp3:64k", "x.it"}, "bad sample coding 'mp3:64k'"}, {{"-c", "raw:1", "x.it"}, "bad sample coding 'raw:1'"}, {{"-v", "3", "x.it"}, "the container version is 4 or 5"},
        {{"-x", "x.it"}, "unknown option '-x'"}, {{"--quiet", "x.it"}, "unknown option '--quiet'"}, {{"-c"}, "option '-c' needs a value"},
        {{"-y", "a.it", "b.xm", "c.mod"}, "one module at a time: more than infile and outfile named"},
        {{"a.it", "a.it"}, "the output would overwrite the input"}, {{"a.it", "b.MOD"}, "'b.MOD' is a module name, not a QAZ output name"}};
    for (const auto& [args, reason] : refused) {
        ProcessResult r = qaz(args);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.err.rfind("qaz: " + reason + "\n" + usage, 0), 0u) << r.err;
    }
    for (const auto& [option, out] : {std::pair{"--help", usage}, {"--version", std::string("qaz (DEQAZ) 2.4\n")}}) {
        ProcessResult r = qaz({option, "x.it"});
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.out.substr(0, out.size()), out);
    }
    ProcessResult r = qaz({"missing.it"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "error: Can't open file :missing.it\n");

    dir.put("text.mod", std::string(2000, 'x'));
    r = qaz({"text.mod"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_EQ(r.err.rfind("error: unknown module format", 0), 0u) << r.err;
    EXPECT_FALSE(dir.exists("text.mod.qaz"));

    // A write that fails (a full disk) is an error with its reason.
    r = qaz({"-y", CORPUS_MODULE, "/dev/full"});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(r.err.substr(r.err.find("error: ")), "error: Can't write file /dev/full: No space left on device\n");

    // An existing file is kept when the question cannot be answered (no terminal, no input).
    dir.put("song.xm", readFile(CORPUS_MODULE));
    dir.put("song.qaz", "keep");
    r = qaz({"song.xm"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(dir.get("song.qaz"), "keep");
}

// Whole folders both ways: the good files converted (unpacked exactly as deqaz does with
// --exact), each bad one named with its reason, the exit status saying so; an existing file is
// never replaced without -f, and an input never.
TEST_F(QazCli, PacksAndUnpacksWholeFolders) {
    for (const char* name : {"in/a.xm", "in/sub/b.xm"}) dir.put(name, readFile(CORPUS_MODULE));
    dir.put("in/sub/bad.mod", std::string(2000, 'x'));
    ProcessResult r = qaz({"pack", "-r", "-j", "2", "in"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.err.find("qaz: in/sub/bad.mod: unknown module format"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("qaz: 3 files, 1 failed, "), std::string::npos) << r.err;
    const std::string reference = converted("in/a.qaz");
    dir.put("in/sub/cut.qaz", dir.get("in/a.qaz").substr(0, 100));
    r = qaz({"unpack", "-r", "--json", "--exact", "-o", "out", "in"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_EQ(dir.get("out/a.xm"), reference);
    EXPECT_EQ(dir.get("out/sub/b.xm"), reference);
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 3);
    EXPECT_NE(r.out.find(R"({"file":"in/sub/cut.qaz","error":"Something is wrong with this file!","notes":[]})"), std::string::npos);
    EXPECT_NE(r.out.find(R"({"file":"in/a.qaz","output":"out/a.xm","format":"xm","bytes_in":)"), std::string::npos) << r.out;

    dir.put("out/a.xm", "keep");
    r = qaz({"unpack", "in/a.qaz", "-o", "out", "in/a.xm"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.err.find("qaz: in/a.qaz: out/a.xm exists (-f replaces it)\n"), std::string::npos) << r.err;
    r = qaz({"unpack", "-f", "in/a.qaz", "in/a.xm"});
    EXPECT_NE(r.err.find("qaz: in/a.qaz: in/a.xm is an input of this run\n"), std::string::npos) << r.err;
    EXPECT_EQ(dir.get("out/a.xm") + dir.get("in/a.xm"), "keep" + readFile(CORPUS_MODULE));
    r = qaz({"pack", "-o", "in/a.xm", "in/sub/b.xm"});  // an output folder that is a file
    EXPECT_NE(r.err.find("qaz: in/sub/b.xm: cannot write in/a.xm/b.qaz: Not a directory\n"), std::string::npos) << r.err;

    // verify writes nothing: the module comes back with its own header bytes and reads the same.
    r = qaz({"verify", "--json", "in/a.xm"});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(r.out.rfind(R"({"file":"in/a.xm","format":"xm","bytes_in":)" + std::to_string(readFile(CORPUS_MODULE).size()) +
                              R"(,"bytes_out":)" + std::to_string(reference.size()) + R"(,"identical":false,)", 0), 0u) << r.out;
    EXPECT_NE(r.out.find(R"("stable":true)"), std::string::npos) << r.out;
}

}  // namespace
}  // namespace deqaz
