// XM reader: cells of every volume-column and effect family read and written back through the
// writer (the written cell must equal the source cell, or show the documented column move),
// instrument and sample records, trailing chunks, damaged files. The corpus goes through
// corpus_fixpoint_test and, judged by libxmp, tests/tools/roundtrip_test.
#include <gtest/gtest.h>

#include <cstring>

#include "common/endian.hpp"
#include "reader_roundtrip.hpp"

namespace deqaz {
namespace {

using test::Bytes;

struct Cell {
    uint8_t note = 0, ins = 0, vol = 0, fx = 0, fxp = 0;
    bool operator==(const Cell&) const = default;
};

struct XmSample {
    std::vector<int16_t> frames;  // 8-bit samples: values -128..127
    uint8_t type = 0;             // loop bits, 0x10 16-bit, 0x20 stereo (frames hold both channels)
    uint32_t loopStart = 0, loopLength = 0;  // bytes
    int8_t finetune = 0, relativeNote = 0;
    uint8_t volume = 64, pan = 128;
};

void put16(Bytes& b, uint16_t v) { b.push_back(uint8_t(v)), b.push_back(uint8_t(v >> 8)); }
void put32(Bytes& b, uint32_t v) { put16(b, uint16_t(v)), put16(b, uint16_t(v >> 16)); }
void putText(Bytes& b, const char* s, size_t width) {
    for (size_t i = 0; i < width; ++i) b.push_back(i < std::strlen(s) ? uint8_t(s[i]) : 0);
}

// An XM file of two channels: one pattern whose channel 0 holds `cells` (one per row), one
// instrument with the given samples and key map, then `trailer` bytes.
Bytes buildXm(const std::vector<Cell>& cells, const std::vector<XmSample>& samples = {XmSample{{1, 2, 3}}},
              const std::vector<uint8_t>& keyMap = {}, const Bytes& trailer = {}) {
    Bytes b;
    putText(b, "Extended Module: ", 17);
    putText(b, "song", 20);
    b.push_back(0x1A);
    putText(b, "FastTracker v 2.00  ", 20);
    put16(b, 0x0104);
    put32(b, 276);
    put16(b, 1), put16(b, 0), put16(b, 2), put16(b, 1), put16(b, 1), put16(b, 1), put16(b, 6), put16(b, 125);
    b.resize(b.size() + 256, 0);
    Bytes packed;
    for (const Cell& c : cells) {
        const uint8_t f[5] = {c.note, c.ins, c.vol, c.fx, c.fxp};
        uint8_t flags = 0x80;
        for (int k = 0; k < 5; ++k) flags |= f[k] ? uint8_t(1 << k) : 0;
        packed.push_back(flags);
        for (uint8_t v : f)
            if (v) packed.push_back(v);
        packed.push_back(0x80);
    }
    put32(b, 9), b.push_back(0), put16(b, uint16_t(cells.size())), put16(b, uint16_t(packed.size()));
    b.insert(b.end(), packed.begin(), packed.end());
    // Instrument: 263-byte header as FastTracker writes it.
    const size_t ins = b.size();
    put32(b, 263);
    putText(b, "instr", 22);
    b.push_back(0), put16(b, uint16_t(samples.size())), put32(b, 40);
    b.resize(ins + 263, 0);
    for (size_t k = 0; k < keyMap.size(); ++k) b[ins + 33 + k] = keyMap[k];
    b[ins + 225] = 2;  // two volume envelope points
    wr16le(&b[ins + 129 + 4], 10), wr16le(&b[ins + 129 + 6], 64);
    b[ins + 233] = 1;
    wr16le(&b[ins + 239], 0x400);
    for (const XmSample& s : samples) {
        const unsigned bytesPer = (s.type & 0x10) ? 2 : 1;
        put32(b, uint32_t(s.frames.size() * bytesPer)), put32(b, s.loopStart), put32(b, s.loopLength);
        b.push_back(s.volume), b.push_back(uint8_t(s.finetune)), b.push_back(s.type), b.push_back(s.pan);
        b.push_back(uint8_t(s.relativeNote)), b.push_back(0);
        putText(b, "smp", 22);
    }
    for (const XmSample& s : samples) {
        const size_t half = (s.type & 0x20) ? s.frames.size() / 2 : s.frames.size();
        int prev = 0;
        for (size_t i = 0; i < s.frames.size(); ++i) {
            if (i == half) prev = 0;  // each channel of a stereo sample is delta-coded from 0
            const int d = s.frames[i] - prev;
            prev = s.frames[i];
            (s.type & 0x10) ? put16(b, uint16_t(d)) : b.push_back(uint8_t(d));
        }
    }
    b.insert(b.end(), trailer.begin(), trailer.end());
    return b;
}

ReadResult readOk(const Bytes& b) {
    ReadResult r = readXm(b.data(), b.size());
    EXPECT_TRUE(r.song) << r.error;
    return r;
}

// Channel 0 of the first pattern of a written XM file.
std::vector<Cell> writtenCells(const Bytes& xm) {
    std::vector<Cell> out;
    size_t pos = 336;
    const unsigned rows = rd16le(&xm.at(pos + 5));
    const size_t end = pos + 9 + rd16le(&xm.at(pos + 7));
    pos += 9;
    for (unsigned r = 0; r < rows * 2 && pos < end; ++r) {
        uint8_t f[5] = {};
        const uint8_t flags = xm.at(pos++);
        for (int k = 0; k < 5; ++k)
            if (flags & (1 << k)) f[k] = xm.at(pos++);
        if (r % 2 == 0) out.push_back({f[0], f[1], f[2], f[3], f[4]});
    }
    return out;
}

std::vector<Cell> roundTrip(const std::vector<Cell>& cells, std::vector<std::string>* warnings = nullptr) {
    ReadResult r = readOk(buildXm(cells));
    if (warnings) *warnings = r.warnings;
    return writtenCells(test::runWriteModule(*r.song, 1).bytes);
}

TEST(XmReaderCells, EveryVolumeColumnByteComesBackUnchanged) {
    std::vector<Cell> cells;
    for (unsigned v = 0x10; v <= 0xFF; ++v) cells.push_back({0, 0, uint8_t(v), 0, 0});
    EXPECT_EQ(roundTrip(cells), cells);
    // With an effect beside it, both columns keep their own command.
    const std::vector<Cell> pairs = {{0, 0, 0xC8, 8, 0x80}, {0, 0, 0xF2, 3, 0x20}, {0, 0, 0x30, 0x0C, 0x20},
                                     {0, 0, 0x65, 0x0C, 0x10}, {0, 0, 0xA3, 3, 0x40}, {0, 0, 0xD0, 4, 0x21}};
    EXPECT_EQ(roundTrip(pairs), pairs);
}

TEST(XmReaderCells, EffectColumnFamiliesComeBackUnchanged) {
    std::vector<Cell> cells;
    // 0-F (3, 8 and C with a volume beside them, so that they stay in the effect column).
    for (uint8_t e = 0; e <= 0x0F; ++e) cells.push_back({0, 0, uint8_t(e == 3 || e == 8 || e == 0x0C ? 0x40 : 0), e, 0x37});
    for (uint8_t e : {16, 17, 19, 20, 21, 23, 25, 27, 29, 32, 35}) cells.push_back({0, 0, 0, e, 0x25});  // G H J K L N P R T W Z
    for (uint8_t p : {0x15, 0x2A, 0x10, 0x20, 0x5C, 0x61, 0x9F}) cells.push_back({0, 0, 0, 33, p});     // X sub-commands
    cells.push_back({0, 0, 0, 0x01, 0});       // an effect with a zero parameter
    cells.push_back({1, 1, 0, 0, 0});          // lowest note
    cells.push_back({96, 0x80, 0, 0, 0});      // highest note, instrument 128
    cells.push_back({97, 0, 0, 0, 0});         // key off
    EXPECT_EQ(roundTrip(cells), cells);
}

TEST(XmReaderCells, DocumentedMovesAndDrops) {
    std::vector<std::string> warnings;
    const std::vector<Cell> in = {
        {0, 0, 0, 3, 0x20},     // tone portamento x0 into an empty volume column: 0xF2
        {0, 0, 0, 3, 0x21},     // not a multiple of 16: stays
        {0, 0, 0, 8, 0x80},     // panning: 0xC8
        {0, 0, 0, 0x0C, 0x20},  // set volume: 0x30
        {0, 0, 0, 0x0C, 0x60},  // FastTracker plays C60 as C40: 0x50
        {0, 0, 0x05, 18, 0x11}, // volume byte 0x05 and effect I: nothing an XM player acts on
        {0, 0, 0, 33, 0x03},    // X0x: no sub-command
        {98, 0, 0, 0, 0},       // past key-off
    };
    const std::vector<Cell> expected = {{0, 0, 0xF2, 0, 0}, {0, 0, 0, 3, 0x21}, {0, 0, 0xC8, 0, 0}, {0, 0, 0x30, 0, 0},
                                        {0, 0, 0x50, 0, 0}, {}, {}, {}};
    EXPECT_EQ(roundTrip(in, &warnings), expected);
    auto has = [&](const char* text) {
        return std::any_of(warnings.begin(), warnings.end(), [&](const std::string& w) { return w.find(text) != std::string::npos; });
    };
    EXPECT_TRUE(has("C above 0x40"));
    EXPECT_TRUE(has("0x01-0x0F"));
    EXPECT_TRUE(has("effect I11"));
    EXPECT_TRUE(has("effect X03"));
    EXPECT_TRUE(has("notes above key-off"));
}

TEST(XmReaderRecords, SamplesInstrumentsAndKeyMap) {
    XmSample a{{-128, 0, 127, -1}, 0x02, 1, 2, -16, 12, 40, 0x30};   // ping-pong loop
    XmSample b{{1000, -1000, 32767, -32768}, 0x11, 2, 4, 5, -3, 64, 255};  // 16-bit, loop frames 1..3
    XmSample c{{10, 20, 30, -10, -20, -30}, 0x20};                     // stereo: 3 frames a channel
    std::vector<uint8_t> keys(96, 0);
    keys[50] = 1, keys[60] = 2, keys[70] = 7;  // 7: a sample the instrument does not have
    const Bytes file = buildXm({{49, 1, 0, 0, 0}}, {a, b, c}, keys);
    ReadResult r = readOk(file);
    const SongHeader& s = *r.song;
    ASSERT_EQ(s.samples.size(), 3u);
    EXPECT_EQ(s.flags, SH_LINEAR_SLIDES | SH_XM_ALT_TRACKER_NAME);
    const SampleRecord& sa = s.samples[0];
    EXPECT_EQ(sa.frequency & 0xFF, 112u);
    EXPECT_EQ(sa.relativeNote, 12);
    EXPECT_EQ(sa.volume, 40);
    EXPECT_EQ(sa.pan, 0x30);
    EXPECT_EQ(sa.flags, SF_LOOP | SF_PINGPONG);
    EXPECT_EQ(sa.loopStart, 1u);
    EXPECT_EQ(sa.loopEnd, 3u);
    EXPECT_EQ(sa.globalVolume, 1);  // the instrument it belongs to
    EXPECT_EQ(test::pcmOf(sa), (std::vector<int16_t>{-32768, 0, 32512, -256}));
    EXPECT_EQ(s.samples[1].flags, SF_16BIT | SF_LOOP);
    EXPECT_EQ(s.samples[1].loopStart, 1u);
    EXPECT_EQ(s.samples[1].loopEnd, 3u);
    EXPECT_EQ(test::pcmOf(s.samples[1]), (std::vector<int16_t>{1000, -1000, 32767, -32768}));
    EXPECT_EQ(s.samples[2].length, 3u);
    EXPECT_EQ(test::pcmOf(s.samples[2], 1), (std::vector<int16_t>{-2560, -5120, -7680}));
    const InstrumentRecord& ins = s.instruments[0];
    EXPECT_EQ(ins.noteMap[50].sample, 1);
    EXPECT_EQ(ins.noteMap[70].sample, 7);
    EXPECT_EQ(ins.noteMap[100].sample, 0xFFFF);
    EXPECT_EQ(ins.fadeout, 0x400);
    EXPECT_EQ(ins.volumeEnvelope.points[1].tick, 10);

    // Written back, the instrument and sample headers and the data are the source's bytes.
    const Bytes out = test::runWriteModule(*r.song, 1).bytes;
    const size_t srcIns = 336 + 9 + 4, outIns = 336 + 9 + 4;
    ASSERT_GE(out.size(), outIns + 248 + 3 * 40);
    EXPECT_TRUE(std::equal(file.begin() + srcIns + 4, file.begin() + srcIns + 248, out.begin() + outIns + 4));
    EXPECT_TRUE(std::equal(file.begin() + srcIns + 263, file.end(), out.begin() + outIns + 248, out.end()));
}

TEST(XmReaderRecords, TrailingChunksComeBack) {
    Bytes trailer;
    auto chunk = [&](const char* id, const Bytes& data) {
        putText(trailer, id, 4), put32(trailer, uint32_t(data.size()));
        trailer.insert(trailer.end(), data.begin(), data.end());
    };
    chunk("text", {'h', 'i', '\r', 'x', 0});
    Bytes midi(4896, 0);
    const char* globals[9] = {"FF", "FC", "", "9c n v", "9c n 0", "", "", "", "Cc p"};
    for (int i = 0; i < 9; ++i) std::memcpy(&midi[32 * i], globals[i], std::strlen(globals[i]));
    std::memcpy(&midi[32 * 9], "F0F000z", 7);
    std::memcpy(&midi[32 * 12], "F0F0fez", 7);
    std::memcpy(&midi[32 * 25], "F0F00000", 8);
    std::memcpy(&midi[32 * 26], "F0F0ffffff80", 12);
    chunk("MIDI", midi);
    chunk("FX03", {1, 2, 3});
    chunk("CHFX", {9, 0, 0, 0, 8, 0, 0, 0});
    const Bytes file = buildXm({{}}, {XmSample{{1}}}, {}, trailer);
    ReadResult r = readOk(file);
    EXPECT_EQ(r.song->message, "hi\rx");
    EXPECT_EQ(r.song->sfxMacro[0], 1);
    EXPECT_EQ(r.song->sfxMacro[3], 255);
    EXPECT_EQ(r.song->zxxMacro[0], 0x100);
    EXPECT_EQ(r.song->zxxMacro[1], 0x80);
    EXPECT_TRUE(r.song->flags & SH_EXTRA_CHUNKS);
    const Bytes out = test::runWriteModule(*r.song, 1).bytes;
    ASSERT_GE(out.size(), trailer.size());
    EXPECT_TRUE(std::equal(trailer.begin(), trailer.end(), out.end() - static_cast<std::ptrdiff_t>(trailer.size())));

    // A macro text the container cannot hold is reported, not kept.
    std::memcpy(&midi[32 * 10], "F0F001zz", 8);
    Bytes other;
    putText(other, "MIDI", 4), put32(other, 4896), other.insert(other.end(), midi.begin(), midi.end());
    ReadResult r2 = readOk(buildXm({{}}, {XmSample{{1}}}, {}, other));
    EXPECT_EQ(r2.song->sfxMacro[1], 0);
    EXPECT_FALSE(r2.warnings.empty());
}

}  // namespace
}  // namespace deqaz
