// The converter as a user runs it: arguments, standard streams, files in a working directory,
// messages and exit status.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/endian.hpp"
#include "container/loader.hpp"
#include "container/qaz_writer.hpp"
#include "support/run_process.hpp"
#include "writers/writers.hpp"

namespace deqaz {
namespace {

namespace fs = std::filesystem;
using test::ProcessOptions;
using test::ProcessResult;

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

// A playable module: one empty 64-row pattern (every channel plays track 0, the lone
// terminator byte), one order, optionally one raw 16-bit sample of noise.
SongHeader tinySong(uint32_t flags, uint8_t channels, uint32_t sampleFrames = 0) {
    SongHeader s;
    s.name = "tiny";
    s.flags = flags;
    s.channels = channels;
    s.initialSpeed = 6;
    s.initialTempo = 125;
    s.globalVolume = 128;
    s.separation = 128;
    s.mixVolume = 48;
    s.channelVolume.fill(64);
    s.channelPan.fill(32);
    s.trackCount = 1;
    s.tracks.emplace_back();
    EXPECT_TRUE(s.tracks[0].allocZeroed(1));
    s.patternCount = 1;
    EXPECT_TRUE(s.patternTracks.allocZeroed(channels));
    EXPECT_TRUE(s.patternRows.allocate(1));
    s.patternRows[0] = 64;
    s.orderCount = 1;
    EXPECT_TRUE(s.orders.allocZeroed(1));
    s.hasOrders = true;
    if (sampleFrames) {
        s.sampleCount = 1;
        SampleRecord& smp = s.samples.emplace_back();
        smp.name = "noise";
        smp.frequency = 8363;
        smp.volume = 64;
        smp.globalVolume = 64;
        smp.flags = SF_16BIT;
        smp.length = sampleFrames;
        EXPECT_TRUE(smp.pcm[0].allocate(sampleFrames));
        uint32_t x = 12345;
        for (int16_t& v : smp.pcm[0]) v = static_cast<int16_t>((x = x * 1103515245u + 12345u) >> 16);
    }
    return s;
}

std::string toString(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

// What the converter must produce for a QAZ file: loaded and written in this process.
std::string expectedOutput(const std::string& qaz) {
    Diagnostics diag;
    InputStream in;
    in.inputData = reinterpret_cast<const uint8_t*>(qaz.data());
    in.inputSize = static_cast<uint32_t>(qaz.size());
    auto song = loadModule(in, diag);
    if (!song) {
        ADD_FAILURE() << "reference load failed: " << diag.errorText;
        return {};
    }
    OutputBuffer out;
    EXPECT_TRUE(writeModule(*song, out, diag));
    return std::string(reinterpret_cast<const char*>(out.outputData()), out.outputSize());
}

class CliTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "deqaz-cli-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    ProcessResult run(std::vector<std::string> args, std::optional<std::string> stdinData = std::nullopt) {
        args.insert(args.begin(), DEQAZ_BINARY);
        ProcessOptions options;
        options.cwd = dir_.string();
        options.stdinData = std::move(stdinData);
        return test::runProcess(args, options);
    }
    void put(const std::string& name, const std::string& bytes) {
        fs::create_directories((dir_ / name).parent_path());
        std::ofstream(dir_ / name, std::ios::binary) << bytes;
    }
    std::string get(const std::string& name) {
        std::ifstream f(dir_ / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), {});
    }
    bool exists(const std::string& name) { return fs::exists(dir_ / name); }
    // Names in the working directory, to prove a failed run created nothing.
    std::vector<std::string> listing() {
        std::vector<std::string> names;
        for (const auto& e : fs::recursive_directory_iterator(dir_)) names.push_back(e.path().lexically_relative(dir_));
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path dir_;
};

TEST_F(CliTest, UsageWhenNoInputNameIsLeft) {
    ProcessResult r = run({});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, BANNER + USAGE);
    EXPECT_EQ(r.out, "");

    // Silent mode drops the banner, never the usage text.
    for (auto args : {std::vector<std::string>{"-s"}, {"-s", "-s"}, {"-y", "-s", "-x"}}) {
        r = run(args);
        EXPECT_EQ(r.exitCode, 1) << args.size();
        EXPECT_EQ(r.err, USAGE) << args.size();
    }
    r = run({"-y", "-", "-q"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, BANNER + USAGE);
}

TEST_F(CliTest, MissingInputFile) {
    ProcessResult r = run({"nofile.qaz"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, BANNER + LOADING + "error: Can't open file :nofile.qaz\n");
    EXPECT_TRUE(listing().empty());

    r = run({"-y", "-s", "nofile.qaz"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "");
}

TEST_F(CliTest, SwitchScanStopsAtTheInputName) {
    // -x is a switch and ignored; a lone "-" too.
    ProcessResult r = run({"-x", "-", "a.qaz"});
    EXPECT_EQ(r.err, BANNER + LOADING + "error: Can't open file :a.qaz\n");
    // Longer than two characters: the input name, not a switch.
    r = run({"-yes", "b.qaz"});
    EXPECT_EQ(r.err, BANNER + LOADING + "error: Can't open file :-yes\n");
    // Switches after the input name are not switches: -s here does not silence.
    r = run({"c.qaz", "-s"});
    EXPECT_EQ(r.err, BANNER + LOADING + "error: Can't open file :c.qaz\n");
    EXPECT_EQ(r.exitCode, 2);
}

TEST_F(CliTest, LongInputNameIsCutToTheMessageBuffer) {
    std::string name(300, 'n');
    ProcessResult r = run({name});
    EXPECT_EQ(r.exitCode, 2);
    // 200-byte message buffer: the prefix, 182 characters of the name and the terminator.
    EXPECT_EQ(r.err, BANNER + LOADING + "error: Can't open file :" + std::string(182, 'n') + "\n");
}

TEST_F(CliTest, InputThatIsNotQaz) {
    const std::vector<std::string> bad = {"", "Q", "QA", "QAZ", std::string("QAZ\x06", 4) + "rest",
                                          std::string("QAZ\xff", 4), std::string("QAX\x05", 4) + "rest",
                                          std::string("qaz\x01", 4)};
    for (const std::string& bytes : bad) {
        put("in.qaz", bytes);
        ProcessResult r = run({"in.qaz"});
        EXPECT_EQ(r.exitCode, 2) << bytes.size();
        EXPECT_EQ(r.err, BANNER + LOADING + NOT_QAZ) << bytes.size();
        EXPECT_EQ(listing(), std::vector<std::string>{"in.qaz"});

        r = run({"STDIN", "STDOUT"}, bytes);
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_EQ(r.err, BANNER + LOADING + NOT_QAZ);
        EXPECT_EQ(r.out, "");
    }
    ProcessResult r = run({"-s", "in.qaz"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "");
}

// From here on the runs need real QAZ files (the QAZ writer and the loader).

TEST_F(CliTest, FullRunPrintsEveryStepAndWritesTheModule) {
    struct Case {
        uint32_t flags;
        uint8_t channels;
        const char* output;
        const char* format;
    };
    for (const Case& c : {Case{SH_ORIGIN_IT, 4, "song.it", "4ch it"}, Case{SH_ORIGIN_MOD, 4, "song.mod", "4ch mod"},
                          Case{0, 6, "song.xm", "6ch xm"}}) {
        std::string qaz = toString(writeQaz(tinySong(c.flags, c.channels)));
        put("song.qaz", qaz);
        ProcessResult r = run({"song.qaz"});
        std::string expected = expectedOutput(qaz);
        EXPECT_EQ(r.exitCode, 0) << c.output;
        EXPECT_EQ(r.err, BANNER + LOADING + "name: tiny\noriginal format: " + c.format + "\ndone: " +
                             std::to_string(qaz.size()) + " -> " + std::to_string(expected.size()) + "\n");
        EXPECT_EQ(get(c.output), expected) << c.output;
        EXPECT_EQ(r.out, "");
        fs::remove(dir_ / c.output);
    }
}

TEST_F(CliTest, SilentRunPrintsNothingAndFormsNamesInDirectories) {
    std::string qaz = toString(writeQaz(tinySong(0, 2)));
    put("music/a.b.qaz", qaz);
    ProcessResult r = run({"-s", "music/a.b.qaz"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(get("music/a.b.xm"), expectedOutput(qaz));

    SongHeader unnamed = tinySong(SH_ORIGIN_MOD, 4);
    unnamed.name.clear();
    qaz = toString(writeQaz(unnamed));
    put("dir.v2/song", qaz);
    r = run({"dir.v2/song"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.err.find("\nname: \noriginal format: 4ch mod\n"), std::string::npos) << r.err;
    EXPECT_TRUE(exists("dir.v2/song.mod"));
}

TEST_F(CliTest, PipedInputGivesTheSameModuleAsTheNamedFile) {
    // More than one 20,000-byte read step, so the pipe buffer has to grow.
    std::string qaz = toString(writeQaz(tinySong(SH_ORIGIN_IT, 4, 30000)));
    ASSERT_GT(qaz.size(), 50000u);
    put("big.qaz", qaz);
    std::string expected = expectedOutput(qaz);

    ProcessResult fromFile = run({"big.qaz", "STDOUT"});
    ProcessResult fromPipe = run({"STDIN", "STDOUT"}, qaz);
    EXPECT_EQ(fromFile.exitCode, 0);
    EXPECT_EQ(fromPipe.exitCode, 0);
    EXPECT_EQ(fromFile.out, expected);
    EXPECT_EQ(fromPipe.out, expected);
    EXPECT_EQ(fromPipe.err, fromFile.err);
    EXPECT_FALSE(exists("STDOUT"));

    // Named from "STDIN"; an existing file is replaced without a prompt, since standard input
    // carries the module and cannot answer.
    put("STDIN.it", "old");
    ProcessResult r = run({"STDIN"}, qaz);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err.find("overwrite"), std::string::npos);
    EXPECT_EQ(get("STDIN.it"), expected);
}

TEST_F(CliTest, BrokenQazFailsLoadingAndLeavesOutputsAlone) {
    std::string qaz = toString(writeQaz(tinySong(SH_ORIGIN_IT, 4)));
    ASSERT_GE(qaz.size(), 12u);
    const size_t packedSize = rd32le(reinterpret_cast<const uint8_t*>(qaz.data()) + 8);
    std::string wrongPackedSize = qaz;
    wrongPackedSize[8] = static_cast<char>(wrongPackedSize[8] + 1);
    // Cut inside the header, right after it, inside the packed body; a packed size that lies.
    const std::vector<std::string> broken = {qaz.substr(0, 4), qaz.substr(0, 12), qaz.substr(0, 12 + packedSize / 2),
                                             wrongPackedSize};
    put("song.it", "keep me");
    for (const std::string& bytes : broken) {
        put("song.qaz", bytes);
        ProcessResult r = run({"-y", "song.qaz"});
        EXPECT_EQ(r.exitCode, 3) << bytes.size();
        EXPECT_EQ(r.err.rfind(BANNER + LOADING + "error: ", 0), 0u) << r.err;
        EXPECT_EQ(r.err.find("name:"), std::string::npos) << r.err;
        EXPECT_EQ(get("song.it"), "keep me") << bytes.size();

        r = run({"STDIN", "STDOUT"}, bytes);
        EXPECT_EQ(r.exitCode, 3) << bytes.size();
        EXPECT_EQ(r.out, "") << bytes.size();
    }
    fs::remove(dir_ / "song.it");
    ProcessResult r = run({"song.qaz"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_FALSE(exists("song.it"));
}

TEST_F(CliTest, OverwritePromptAndSwitches) {
    std::string qaz = toString(writeQaz(tinySong(SH_ORIGIN_IT, 4)));
    std::string expected = expectedOutput(qaz);
    put("song.qaz", qaz);
    put("song.it", "old");
    const std::string head = BANNER + LOADING + "name: tiny\noriginal format: 4ch it\n";
    const std::string prompt = "song.it exists, overwrite? (Y/N) ";

    // Keys come from standard input even when it is not a terminal; other keys are ignored.
    ProcessResult r = run({"song.qaz"}, "x Q\nN");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, head + prompt + "No\n");
    EXPECT_EQ(get("song.it"), "old");

    r = run({"song.qaz"});  // end of input answers no
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, head + prompt + "No\n");
    EXPECT_EQ(get("song.it"), "old");

    r = run({"song.qaz"}, "?y");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, head + prompt + "Yes\ndone: " + std::to_string(qaz.size()) + " -> " +
                         std::to_string(expected.size()) + "\n");
    EXPECT_EQ(get("song.it"), expected);

    for (const char* sw : {"-y", "-s"}) {
        put("song.it", "old");
        r = run({sw, "song.qaz"});
        EXPECT_EQ(r.exitCode, 0) << sw;
        EXPECT_EQ(r.err.find("overwrite"), std::string::npos) << sw;
        EXPECT_EQ(get("song.it"), expected) << sw;
    }

    // A file called STDOUT is asked about, yet the module still goes to standard output.
    put("STDOUT", "file");
    r = run({"song.qaz", "STDOUT"}, "Y");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.err.find("STDOUT exists, overwrite? (Y/N) Yes\n"), std::string::npos);
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(get("STDOUT"), "file");

    // After the input name even "-y" is the output name.
    r = run({"song.qaz", "-y"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(get("-y"), expected);
    // And "-yes" is the input name.
    put("-yes", qaz);
    r = run({"-yes", "out.it"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(get("out.it"), expected);
}

TEST_F(CliTest, OutputThatCannotBeCreated) {
    std::string qaz = toString(writeQaz(tinySong(SH_ORIGIN_S3M, 4)));
    put("song.qaz", qaz);
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
    put(longInput, qaz);
    r = run({longInput});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(exists(std::string(250, 'i') + ".s3m"));
    std::string tooLong(252, 'j');  // 252 + ".s3m" does not
    put(tooLong, qaz);
    r = run({tooLong});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_EQ(listing().size(), 4u);
}

}  // namespace
}  // namespace deqaz
