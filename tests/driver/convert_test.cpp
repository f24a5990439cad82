// End to end: modules of each origin are stored as QAZ files by the project's writer (every
// lossless sample coding, versions 4 and 5), converted by the deqaz binary, and the written files
// are read back with libxmp and compared with the module they came from.
#include <gtest/gtest.h>

#include <algorithm>

#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

struct Format {
    const char* name;
    uint32_t flags;
    const char* extension;
    bool wideSamples;  // 16-bit samples belong to the format
};

void PrintTo(const Format& f, std::ostream* os) { *os << f.name; }

const Format FORMATS[] = {
    {"IT", SH_ORIGIN_IT | SH_LINEAR_SLIDES, "it", true},
    {"ITInstruments", SH_ORIGIN_IT | SH_IT_INSTRUMENTS, "it", true},
    {"XM", SH_LINEAR_SLIDES, "xm", true},
    {"S3M", SH_ORIGIN_S3M, "s3m", true},
    {"MOD", SH_ORIGIN_MOD, "mod", false},
    {"MTM", SH_ORIGIN_MTM, "mtm", false},
};

// Four channels, two 64-row patterns with notes, instruments and volumes, and one sample per
// lossless coding (raw, delta, second-order; 8-bit and, where the format has them, 16-bit), plus
// a sample that copies another.
SongHeader makeSource(const Format& f) {
    SongHeader song = makeSong(f.flags, 4);
    song.name = "convert me";
    std::vector<uint16_t> codings = {0, SF_DELTA, SF_PREDICT};
    if (f.wideSamples) codings.insert(codings.end(), {SF_16BIT, SF_DELTA | SF_16BIT, SF_PREDICT | SF_16BIT});
    for (size_t i = 0; i < codings.size(); ++i) {
        SampleRecord& s = addSample(song, codings[i], static_cast<uint32_t>(200 + 64 * i), static_cast<unsigned>(i + 1));
        s.name = "sample " + std::to_string(i);
        s.frequency = (f.flags & (SH_ORIGIN_IT | SH_ORIGIN_S3M)) ? 8363 : 128;  // rate, or finetune 0
    }
    // The copy: same length as the sample before it, no data of its own.
    SampleRecord& copy = addSample(song, codings.back(), song.samples.back().length, 0);
    copy.storedSize = -1;
    for (int c = 0; c < 2; ++c) {
        const SampleRecord& src = song.samples[song.samples.size() - 2];
        if (src.pcm[c]) copy.pcm[c].dupBuffer(src.pcm[c].data(), src.length);
    }
    const unsigned sampleCount = song.sampleCount;

    if (f.flags == SH_LINEAR_SLIDES || (f.flags & SH_IT_INSTRUMENTS)) {
        // XM reaches samples through instruments: one per sample.
        for (unsigned i = 0; i < sampleCount; ++i) {
            InstrumentRecord& ins = addInstrument(song);
            ins.name = "instrument " + std::to_string(i);
            for (auto& e : ins.noteMap) e.sample = static_cast<uint16_t>(i);
            song.samples[i].globalVolume = static_cast<uint8_t>(i + 1);
        }
    }

    addTrackBytes(song, {0});  // track 0 is the empty track (MTM does not store it)
    for (unsigned p = 0; p < 2; ++p) {
        PatternGrid grid(64, 4);
        for (unsigned r = 0; r < 64; r += 4) {
            unsigned c = (r / 4 + p) % 4;
            grid.at(r, c) = {note(static_cast<uint8_t>(36 + (r + 7 * p) % 36)),
                             instrument(static_cast<uint8_t>((r / 4) % sampleCount)), cmd(15, static_cast<uint8_t>(r))};
        }
        addPattern(song, grid);
    }
    setOrders(song, {0, 1, 1, 0});
    return song;
}

class Convert : public ::testing::TestWithParam<Format> {
protected:
    // Runs deqaz on the QAZ file; each conversion writes a fresh file, so there is no prompt.
    std::vector<uint8_t> convert(const std::vector<uint8_t>& qaz, std::string& messages) {
        const std::string out = std::string("song.") + GetParam().extension;
        fs::remove(dir / out);
        dir.put("song.qaz", qaz);
        ProcessResult r = runProcess({DEQAZ_BINARY, (dir / "song.qaz").string()});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_TRUE(dir.exists(out));
        messages = r.err;
        return readBytes(dir / out);
    }
    TempDir dir;
};

TEST_P(Convert, WrittenModuleHoldsTheSourceModule) {
    const Format& f = GetParam();
    const SongHeader source = makeSource(f);
    const std::vector<uint8_t> expected = runWriteModule(source).bytes;

    for (uint8_t version : {4, 5}) {
        SCOPED_TRACE("version " + std::to_string(version));
        QazWriteOptions options;
        options.version = version;
        std::string messages;
        const std::vector<uint8_t> qaz = writeQaz(source, options);
        std::vector<uint8_t> written = convert(qaz, messages);
        // The conversion writes exactly what the writer makes of the source module.
        EXPECT_TRUE(written == expected) << "output differs from the module written directly";
        // After the banner, exactly these lines, in this order.
        const std::string tail = std::string("loading...\nname: convert me\noriginal format: 4ch ") + f.extension +
                                 "\ndone: " + std::to_string(qaz.size()) + " -> " + std::to_string(expected.size()) + "\n";
        ASSERT_GE(messages.size(), tail.size());
        EXPECT_EQ(messages.substr(messages.size() - tail.size()), tail);
        EXPECT_EQ(messages.rfind("DEQAZ 2.4 - QAZ to IT/XM/S3M/MOD/MTM decoder\n", 0), 0u);

        // libxmp loads only MTM files that give 64 beats per track; the header carries 0.
        if (f.flags == SH_ORIGIN_MTM) written[32] = 64;
        XmpModule x;
        ASSERT_EQ(x.load(written), 0);
        const xmp_module& m = x.mod();
        EXPECT_STREQ(m.name, "convert me");
        EXPECT_GE(m.pat, 2);  // libxmp adds a blank pattern to XM modules
        ASSERT_GE(m.len, 4);
        for (int o = 0; o < 4; ++o) EXPECT_EQ(m.xxo[o], o == 1 || o == 2 ? 1 : 0);
        ASSERT_GE(m.smp, source.sampleCount);  // libxmp reports 31 slots for every MOD
        for (int i = 0; i < source.sampleCount; ++i) expectSample(x, i, source.samples[i]);
        // Notes land on the same rows and channels, with the same instruments.
        for (int p = 0; p < 2; ++p) {
            for (int r = 0; r < 64; ++r) {
                for (int c = 0; c < 4; ++c) {
                    const bool hasNote = r % 4 == 0 && c == static_cast<int>((r / 4 + p) % 4);
                    const xmp_event ev = x.event(p, r, c);
                    ASSERT_EQ(ev.note != 0, hasNote) << "pattern " << p << " row " << r << " channel " << c;
                    if (hasNote) {
                        ASSERT_EQ(ev.ins, (r / 4) % source.sampleCount + 1) << "row " << r;
                    }
                }
            }
        }
    }
}

// Values past the format's fields (note 200, instrument 70, effect 0x13, 300 orders, a loop that
// starts past its end) are written by the fields' arithmetic: standard error carries the banner
// and the run's own lines, nothing more.
TEST_P(Convert, ValuesBeyondTheFormatAddNoMessage) {
    SongHeader song = makeSong(GetParam().flags, 4);
    song.name = "beyond";
    PatternGrid grid(64, 4);
    grid.at(0, 0) = {note(199), instrument(69), cmd(43, 0x91)};
    grid.at(1, 1) = {note(89), instrument(69), cmd(47, 0x10)};
    addPattern(song, grid);
    setOrders(song, std::vector<uint8_t>(300, 0));
    SampleRecord& smp = addLoopedSample(song, 0, 100, 90, 100, 1);
    smp.loopStart = 120;
    std::string messages;
    const std::vector<uint8_t> qaz = writeQaz(song, QazWriteOptions{});
    const size_t written = convert(qaz, messages).size();
    const size_t at = messages.find("loading...\n");
    ASSERT_NE(at, std::string::npos) << messages;
    EXPECT_EQ(std::count(messages.begin(), messages.begin() + at, '\n'), 7);  // the banner
    EXPECT_EQ(messages.substr(at), "loading...\nname: beyond\noriginal format: 4ch " + std::string(GetParam().extension) +
                                       "\ndone: " + std::to_string(qaz.size()) + " -> " + std::to_string(written) + "\n");
}

INSTANTIATE_TEST_SUITE_P(EveryOrigin, Convert, ::testing::ValuesIn(FORMATS),
                         [](const ::testing::TestParamInfo<Format>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace deqaz
