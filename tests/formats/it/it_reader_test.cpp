// IT reader: the compressed-sample decoder on hand-made blocks, the inverse effect translation
// against the writer's translation for every volume byte and effect letter, a hand-made IT file
// field by field. The corpus goes through corpus_fixpoint_test and, judged by libxmp,
// tests/tools/roundtrip_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "formats/it/it_sample_decompress.hpp"
#include "readers/module_reader.hpp"
#include "support/module_builder.hpp"
#include "support/xmp_compare.hpp"
#include "writers/translate.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;
using Bytes = std::vector<uint8_t>;
using Pcm = std::vector<int16_t>;

// A compressed block: its 16-bit length, then the bits, least significant first.
struct Bits {
    Bytes bytes;
    unsigned count = 0;
    Bits& put(uint32_t value, unsigned width) {
        for (unsigned i = 0; i < width; ++i, ++count) {
            if (count % 8 == 0) bytes.push_back(0);
            bytes.back() |= static_cast<uint8_t>((value >> i & 1) << (count % 8));
        }
        return *this;
    }
    Bytes block() const {
        Bytes b{static_cast<uint8_t>(bytes.size()), static_cast<uint8_t>(bytes.size() >> 8)};
        return b.insert(b.end(), bytes.begin(), bytes.end()), b;
    }
};

TEST(ItDecompress, WidthChangesSumsBlocksAndBounds) {
    // 8-bit: +5 and -3 at width 9; 0x102 sets width 3 (type C); +3, -1; the type A marker 0b100
    // and 6 select 7, which skips the current width: 8; at width 8 the type B marker 0x7F
    // (border 0x7B) selects 4; the type A marker 0b1000 and 1 select 2; then +1, -1.
    Bits b8;
    b8.put(5, 9).put(0xFD, 9).put(0x102, 9).put(3, 3).put(7, 3).put(4, 3).put(6, 3).put(0x7F, 8).put(8, 4).put(1, 3);
    const Bytes block = b8.put(1, 2).put(3, 2).block();
    Pcm out(6);
    ItDecompressResult r = decompressIt8(block.data(), block.size(), out.data(), 6, false);
    EXPECT_EQ(out, (Pcm{5 * 256, 2 * 256, 5 * 256, 4 * 256, 5 * 256, 4 * 256}));
    EXPECT_EQ(r.consumed, block.size());
    EXPECT_FALSE(r.damaged);
    decompressIt8(block.data(), block.size(), out.data(), 6, true);  // IT 2.15 sums twice
    EXPECT_EQ(out, (Pcm{5 * 256, 7 * 256, 12 * 256, 16 * 256, 21 * 256, 25 * 256}));

    // 16-bit: a full block of 0x4000 points (+1 each at width 2), then a block that restarts the
    // sums: -16, -8 at width 17, then its bits run out and the rest holds the last value.
    Bits first;
    first.put(0x10001, 17);
    for (int i = 0; i < 0x4000; ++i) first.put(1, 2);
    Bytes data = first.block();
    const Bytes second = Bits{}.put(0xFFF0, 17).put(0xFFF8, 17).block();
    data.insert(data.end(), second.begin(), second.end());
    out.assign(0x4000 + 4, 0x5555);
    r = decompressIt16(data.data(), data.size(), out.data(), out.size(), false);
    EXPECT_EQ(r.frames, out.size());
    EXPECT_TRUE(r.damaged);
    EXPECT_EQ(Pcm(out.begin(), out.begin() + 2), (Pcm{1, 2}));
    EXPECT_EQ(Pcm(out.begin() + 0x3FFF, out.end()), (Pcm{0x4000, -16, -24, -24, -24}));
    // Type B at width 16: the border is 0x7FF7, so 0x7FF9 selects width 2.
    const Bytes typeB = Bits{}.put(0x1000F, 17).put(0x7FF9, 16).put(3, 2).block();
    r = decompressIt16(typeB.data(), typeB.size(), out.data(), 1, false);
    EXPECT_EQ(out[0], -1);
    EXPECT_FALSE(r.damaged);

    // No block header: nothing. A block longer than the input: decoded from what is there.
    EXPECT_EQ(decompressIt8(block.data(), 1, out.data(), 4, false).frames, 0u);
    const Bytes cut{0xFF, 0x00, 0x07};
    out.assign(4, 9);
    r = decompressIt8(cut.data(), cut.size(), out.data(), 4, false);
    EXPECT_EQ(r.consumed, 3u);
    EXPECT_EQ(out, Pcm(4, 0));
}

// The commands for a cell, translated back, give the cell, for every volume byte and for every
// letter beside any kind of volume column; alone, X, G and H move into the free volume column.
TEST(ItInverseTranslation, EveryVolumeByteAndLetterComesBack) {
    auto translated = [](const TrackRow& row, Target target) {
        Bytes group{static_cast<uint8_t>(0x10 | row.size())};
        for (const TrackCommand& c : row) group.insert(group.end(), {c.command, c.parameter});
        EventCell cell;
        translateEvent(cell, TrackGroup{group.data()}, TranslateContext{target, nullptr});
        return std::array<int, 3>{cell.volume, cell.effect, cell.parameter};
    };
    for (int v = 0; v < 255; ++v) {
        TrackRow row;
        ASSERT_TRUE(appendItVolume(row, static_cast<uint8_t>(v)));
        EXPECT_EQ(translated(row, Target::IT), (std::array<int, 3>{v + 1, 0, 0})) << v;
    }
    // Bytes 128-192 are pans 0-64 (64 as the translation's 255), not raw volume-column bytes.
    for (int v = 128; v <= 192; ++v) {
        TrackRow row;
        appendItVolume(row, static_cast<uint8_t>(v));
        EXPECT_EQ(row, (TrackRow{{11, static_cast<uint8_t>(v == 192 ? 255 : (v - 128) * 4)}})) << v;
    }
    TrackRow none;
    EXPECT_FALSE(appendItVolume(none, 255) || appendItEffect(none, 0, 1) || appendItEffect(none, 27, 1));
    EXPECT_TRUE(none.empty());
    for (int letter = 1; letter <= 26; ++letter)
        for (int p : {0x00, 0x01, 0x04, 0x09, 0x0A, 0x20, 0x44, 0x80, 0xF1, 0xFF}) {
            for (int v : {0, 64, 70, 110, 160, 192, 195, 205}) {
                TrackRow row;
                appendItVolume(row, static_cast<uint8_t>(v));
                ASSERT_TRUE(appendItEffect(row, static_cast<uint8_t>(letter), static_cast<uint8_t>(p)));
                EXPECT_EQ(translated(row, Target::IT), (std::array<int, 3>{v + 1, letter, p})) << letter << " " << p;
                if (v <= 64) {
                    EXPECT_EQ(translated(row, Target::S3M), (std::array<int, 3>{v + 1, letter, p}));
                }
            }
            TrackRow row;
            appendItEffect(row, static_cast<uint8_t>(letter), static_cast<uint8_t>(p));
            EXPECT_EQ(translated(row, Target::S3M), (std::array<int, 3>{0, letter, p}));
            const auto* speed = std::find(std::begin(PORTA_VOLUME_TABLE), std::end(PORTA_VOLUME_TABLE), p);
            std::array<int, 3> expected{0, letter, p};
            if (letter == 24 && (p % 4 == 0 || p == 255)) expected = {p == 255 ? 193 : 129 + p / 4, 0, 0};
            if (letter == 7 && speed != std::end(PORTA_VOLUME_TABLE)) expected = {194 + int(speed - PORTA_VOLUME_TABLE), 0, 0};
            if (letter == 8 && p <= 9) expected = {204 + p, 0, 0};
            EXPECT_EQ(translated(row, Target::IT), expected) << letter << " " << p;
        }
}

// ---------------------------------------------------------------------------------------------

size_t append(Bytes& f, const Bytes& part) {
    f.insert(f.end(), part.begin(), part.end());
    return f.size() - part.size();
}

// Orders 0 1 FF, an edit history entry, a MIDI configuration, a message, one instrument, two
// samples (8-bit unsigned; 16-bit IT 2.15 compressed) and one pattern of four rows.
Bytes handMadeIt() {
    Bytes f(192, 0);
    std::memcpy(&f[0], "IMPMhand made", 13);
    for (auto [at, v] : {std::pair{0x20, 3}, {0x22, 1}, {0x24, 2}, {0x26, 1}, {0x2A, 0x214}, {0x2C, 0x102D}, {0x2E, 0x0B}})
        wr16le(&f[at], static_cast<uint16_t>(v));
    f[0x30] = 128, f[0x31] = 73, f[0x32] = 5, f[0x33] = 140, f[0x34] = 100;  // mixing volume: the image of code 20
    std::fill(&f[0x40], &f[0x80], 0xA0);
    std::fill(&f[0x80], &f[0xC0], 64);
    f[0x40] = 0, f[0x41] = 32, f[0x42] = 100, f[0x43] = 0x80 | 64, f[0x80] = 17;  // left, centre, surround, muted right
    append(f, {0, 1, 0xFF});
    const size_t table = append(f, Bytes(16, 0));
    append(f, {1, 0, 1, 2, 3, 4, 5, 6, 7, 8});
    Bytes midi(4896, 0);
    for (auto [entry, text] : {std::pair{0, "FF"}, {1, "FC"}, {3, "9c n v"}, {4, "9c n 0"}, {8, "Cc p"}, {9, "F0F000z"},
                               {10, "F0F0FEz"}, {11, "F0F000q"}, {25, "F0F00100"}, {26, "F0F0ffffff80"}})
        std::memcpy(&midi[32 * entry], text, std::strlen(text));
    append(f, midi);
    append(f, {'F', 'X', '0', '1', 3, 0, 0, 0, 'a', 'b', 'c', 'C', 'H', 'F', 'X', 8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8});
    wr32le(&f[0x38], static_cast<uint32_t>(append(f, {'H', 'i', '\r', 'y', 'o', 0})));
    f[0x36] = 6;

    Bytes ins(554, 0);
    std::memcpy(&ins[0], "IMPIINS.ITI", 11);
    std::memcpy(&ins[0x20], "Instrument", 10);
    ins[0x11] = 2, ins[0x15] = 1, ins[0x19] = 16, ins[0x1B] = 7, ins[0x3C] = 3, ins[0x3D] = 9, ins[0x3E] = 5, ins[0x3F] = 1;
    for (int n = 0; n < 120; ++n) ins[0x40 + 2 * n] = static_cast<uint8_t>(n), ins[0x41 + 2 * n] = n < 60 ? 1 : n < 119 ? 2 : 0;
    const Bytes volume{0x0B, 2, 0, 1, 1, 1, 64, 0, 0, 10, 30, 0}, pan{0x05, 1, 0, 0, 0, 0, 0xE0}, pitch{0x81, 1, 0, 0, 0, 0, 12, 99};
    std::copy(volume.begin(), volume.end(), &ins[0x130]);
    std::copy(pan.begin(), pan.end(), &ins[0x182]);
    std::copy(pitch.begin(), pitch.end(), &ins[0x1D4]);
    const size_t insAt = append(f, ins);

    Bytes s1(80, 0), s2(80, 0);
    std::memcpy(&s1[0], "IMPS", 4), std::memcpy(&s2[0], "IMPS", 4);
    s1[0x12] = 0x51, s1[0x2F] = 0x80 | 64, s1[0x4E] = 3;  // looped ping-pong, unsigned; pan 64
    wr32le(&s1[0x30], 4), wr32le(&s1[0x34], 1), wr32le(&s1[0x38], 9), wr32le(&s1[0x3C], 22050);
    s2[0x12] = 0xAB, s2[0x2E] = 5;  // 16-bit compressed, ping-pong sustain loop; signed, IT 2.15
    wr32le(&s2[0x30], 3), wr32le(&s2[0x44], 2);
    const size_t s1At = append(f, s1), s2At = append(f, s2);

    // Row 0: ch 0 note, instrument, volume 40, K12; ch 1 volume-column pan 64 and X40. Row 1:
    // ch 0 with the same mask, SFx. Row 2: mask 0xF0 repeats it all. Row 3: ch 3 note off,
    // ch 2 note 253, ch 2 again with an instrument (one cell, both fields).
    const Bytes rows{0x81, 0x0F, 60, 1, 40, 11, 0x12, 0x82, 0x0C, 192, 24, 0x40, 0, 0x01, 61, 2, 203, 19, 0xF1, 0,
                     0x81, 0xF0, 0, 0x84, 0x01, 255, 0x83, 0x01, 253, 0x83, 0x02, 9, 0, 0x81};  // the last byte is past the length
    Bytes pattern{static_cast<uint8_t>(rows.size() - 1), 0, 4, 0, 0, 0, 0, 0};
    const size_t patAt = append(f, pattern);
    append(f, rows);
    const size_t d1 = append(f, {0x80, 0xFF, 0x00, 0x81});
    const size_t d2 = append(f, Bits{}.put(0x100, 17).put(0x10, 17).put(0xFFF0, 17).block());
    for (auto [at, v] : {std::pair{table, insAt}, {table + 4, s1At}, {table + 8, s2At}, {table + 12, patAt}, {s1At + 0x48, d1}, {s2At + 0x48, d2}})
        wr32le(&f[at], static_cast<uint32_t>(v));
    return f;
}

TEST(ItReader, HandMadeFileFieldByField) {
    const Bytes f = handMadeIt();
    ReadResult r = readIt(f.data(), f.size());
    ASSERT_TRUE(r.song) << r.error;
    const SongHeader& s = *r.song;
    EXPECT_EQ(s.flags, SH_ORIGIN_IT | SH_IT_INSTRUMENTS | SH_LINEAR_SLIDES | SH_IT_NO_OLD_EFFECTS | SH_IT_FLAG_1000 | SH_EXTRA_CHUNKS);
    EXPECT_EQ(std::tie(s.name, s.message), std::tuple("hand made", "Hi\ryo"));
    EXPECT_EQ((std::array<int, 5>{s.mixVolume, s.globalVolume, s.initialSpeed, s.initialTempo, s.separation}),
              (std::array<int, 5>{20, 128, 5, 140, 100}));
    EXPECT_EQ(Bytes(s.orders.begin(), s.orders.end()), (Bytes{0, 1}));
    // Channels up to the last one used; IT pans 0, 32, surround, 64; unused channels zero; the
    // muted channel 3 plays a note off: volume 0.
    ASSERT_EQ(s.channels, 4);
    EXPECT_EQ((std::array<int, 5>{s.channelPan[0], s.channelPan[1], s.channelPan[2], s.channelPan[3], s.channelPan[4]}),
              (std::array<int, 5>{0, 128, 127, 255, 0}));
    EXPECT_EQ((std::array<int, 5>{s.channelVolume[0], s.channelVolume[1], s.channelVolume[2], s.channelVolume[3], s.channelVolume[4]}),
              (std::array<int, 5>{17, 64, 64, 0, 0}));
    // Plugin chunk FX01 in slot 1; the channel plugin table cut or padded to one entry per channel.
    EXPECT_EQ(Bytes(s.fxSlots[1].data.begin(), s.fxSlots[1].data.end()), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(Bytes(s.channelFx.begin(), s.channelFx.end()), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0, 0, 0, 0, 0}));
    // SF0 and SF1 (a pattern uses SFx); SF2 is no form the container holds; Z80 and Z81.
    EXPECT_EQ((std::array<int, 5>{s.sfxMacro[0], s.sfxMacro[1], s.sfxMacro[2], s.zxxMacro[0], s.zxxMacro[1]}),
              (std::array<int, 5>{1, 0xFF, 0, 0x200, 0x80}));

    ASSERT_EQ(s.instruments.size(), 1u);
    const InstrumentRecord& ins = s.instruments[0];
    EXPECT_EQ(std::tie(ins.fileName, ins.name), std::tuple("INS.ITI", "Instrument"));
    EXPECT_EQ((std::array<int, 7>{ins.newNoteAction, ins.fadeout, ins.pan, ins.randomPan, ins.midiChannel, ins.midiProgram, ins.midiBank}),
              (std::array<int, 7>{2, 256 << 5, 64, 28, 2, 9, 5}));
    EXPECT_EQ((std::array<int, 3>{ins.noteMap[0].sample, ins.noteMap[60].sample, ins.noteMap[119].sample}),
              (std::array<int, 3>{0, 1, 0xFFFF}));
    const Envelope &ve = ins.volumeEnvelope, &pe = ins.panningEnvelope, &fe = ins.pitchEnvelope;
    EXPECT_EQ((std::array<int, 5>{ve.flags, ve.pointCount, ve.loopEnd, ve.points[1].tick, ve.points[1].value}),
              (std::array<int, 5>{0x25, 2, 1, 30, 10}));  // IT loop 0x02 is the container's 0x04, carry 0x08 its 0x20
    EXPECT_EQ((std::array<int, 4>{pe.flags, pe.points[0].value, fe.flags, fe.points[0].value}),
              (std::array<int, 4>{0x03, 0, 0x11, (12 + 32) * 32}));

    ASSERT_EQ(s.samples.size(), 2u);
    const SampleRecord &a = s.samples[0], &b = s.samples[1];
    EXPECT_EQ((std::array<int, 5>{a.flags, static_cast<int>(a.loopEnd), a.pan, static_cast<int>(a.frequency), a.vibratoSweep}),
              (std::array<int, 5>{SF_LOOP | SF_PINGPONG, 4, 255, 22050, 3}));
    EXPECT_EQ(pcmOf(a), (Pcm{0, 127 * 256, -128 * 256, 256}));
    EXPECT_EQ(b.flags, SF_16BIT | SF_SUSTAIN | SF_SUSTAIN_PINGPONG);
    EXPECT_EQ(pcmOf(b), (Pcm{256, 528, 784}));  // deltas 256, 16, -16 summed twice

    ASSERT_EQ(s.patternRows[0], 4);
    EXPECT_EQ(cellCommands(s, 0, 0, 0), (TrackRow{{1, 60}, {2, 0}, {15, 40}, {7, 0xFE}, {34, 0x12}}));
    EXPECT_EQ(cellCommands(s, 0, 0, 1), (TrackRow{{11, 255}, {11, 0x40}}));
    EXPECT_EQ(cellCommands(s, 0, 1, 0), (TrackRow{{1, 61}, {2, 1}, {7, 0}, {43, 0xF1}}));
    EXPECT_EQ(cellCommands(s, 0, 2, 0), cellCommands(s, 0, 1, 0));
    EXPECT_EQ(cellCommands(s, 0, 3, 3), (TrackRow{{1, 255}}));
    EXPECT_EQ(cellCommands(s, 0, 3, 2), (TrackRow{{1, 252}, {2, 8}}));
    EXPECT_TRUE(cellCommands(s, 0, 3, 0).empty());

    std::string warnings;
    for (const std::string& w : r.warnings) warnings += w + "\n";
    for (const char* expected : {"MIDI macro texts", "muted channel", "MIDI bank"})
        EXPECT_NE(warnings.find(expected), std::string::npos) << warnings;

    // Written back and read again: the same module, plugin chunks included.
    ReadResult again = readIt(f.data(), f.size());
    const WriteResult w = runWriteModule(*again.song, 1);
    again = readIt(w.bytes.data(), w.bytes.size());
    ASSERT_TRUE(again.song);
    EXPECT_EQ(fixpointDifference(s, *again.song), "");
    EXPECT_EQ(Bytes(again.song->channelFx.begin(), again.song->channelFx.end()), Bytes(s.channelFx.begin(), s.channelFx.end()));
    EXPECT_EQ(again.song->fxSlots[1].size, 3u);

    // Without a pattern using SFx the writer would not write the macros back: none are kept.
    Bytes noMacro = f;
    const uint8_t sfx[] = {19, 0xF1};
    noMacro[std::search(noMacro.begin(), noMacro.end(), sfx, sfx + 2) - noMacro.begin() + 1] = 0x01;
    r = readIt(noMacro.data(), noMacro.size());
    ASSERT_TRUE(r.song);
    EXPECT_EQ(r.song->sfxMacro[0] + r.song->zxxMacro[0], 0);
}

// Files compatible with versions below 2.00 hold instruments in the old layout: one volume
// envelope of (tick, value) byte pairs ended by tick 0xFF, a fade-out counted half as fine, and
// an on/off duplicate-note check.
TEST(ItReader, OldInstrumentLayout) {
    Bytes f = handMadeIt();
    wr16le(&f[0x2A], 0x100);
    uint8_t* ins = &f[rd32le(&f[192 + 3])];
    std::fill(ins + 0x11, ins + 0x20, 0);
    std::fill(ins + 0x130, ins + 554, 0);
    ins[0x11] = 0x01 | 0x04, ins[0x14] = 1, ins[0x15] = 1, ins[0x18] = 20, ins[0x1A] = 3, ins[0x1B] = 1;
    const uint8_t nodes[] = {0, 64, 10, 32, 0xFF};
    std::copy(std::begin(nodes), std::end(nodes), ins + 0x1F8);
    ReadResult r = readIt(f.data(), f.size());
    ASSERT_TRUE(r.song);
    const InstrumentRecord& i = r.song->instruments[0];
    const Envelope& e = i.volumeEnvelope;
    EXPECT_EQ((std::array<int, 7>{e.flags, e.pointCount, e.sustainStart, e.sustainEnd, e.points[1].tick, e.points[1].value, i.fadeout}),
              (std::array<int, 7>{0x03, 2, 1, 1, 10, 32, 40 << 5}));
    EXPECT_EQ((std::array<int, 5>{i.newNoteAction, i.duplicateCheckType, i.duplicateCheckAction, i.pan, i.globalVolume}),
              (std::array<int, 5>{3, 1, 0, -1, 128}));
    EXPECT_EQ(i.name, "Instrument");
}

// A pattern packed longer than its 16-bit length field holds (the writer stores the length
// modulo 65536) reads back whole.
TEST(ItReader, PatternLongerThanItsLengthField) {
    SongHeader song = makeSong(SH_ORIGIN_IT, 64);
    PatternGrid grid(200, 64);
    for (unsigned r = 0; r < 200; ++r)
        for (unsigned c = 0; c < 64; ++c)
            grid.at(r, c) = {note(static_cast<uint8_t>((r + c) % 120)), instrument(static_cast<uint8_t>(r % 2)),
                             cmd(15, static_cast<uint8_t>(r % 64)), cmd(44, 0x40)};
    addPattern(song, grid);
    setOrders(song, {0});
    const WriteResult w = runWriteModule(song, 1);
    ASSERT_GT(w.bytes.size(), 70000u);  // 200 rows of 64 cells of 6 bytes
    ReadResult r = readIt(w.bytes.data(), w.bytes.size());
    ASSERT_TRUE(r.song) << r.error;
    EXPECT_EQ(cellCommands(*r.song, 0, 199, 63), (TrackRow{{1, 22}, {2, 1}, {15, 199 % 64}, {44, 0x40}}));
    EXPECT_TRUE(r.warnings.empty());
}

// ---------------------------------------------------------------------------------------------

}  // namespace
}  // namespace deqaz
