// IT reader: the compressed-sample decoder on hand-made blocks, the inverse effect translation
// against the writer's translation for every volume byte and effect letter, the fields a written
// file must give back. The corpus goes through corpus_fixpoint_test and, judged by libxmp,
// tests/tools/roundtrip_test.
#include <gtest/gtest.h>

#include <algorithm>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "formats/it/it_sample_decompress.hpp"
#include "readers/module_reader.hpp"
#include "support/module_builder.hpp"
#include "writers/translate.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;
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

// Fields that the corpus cannot pin, because a wrong reading would come back the same through
// the writer: the mixing volume's code, the macros a pattern uses, the instrument layout of files
// made for versions below 2.00, a message without its flag, and a pattern longer than its 16-bit
// length field holds.
TEST(ItReader, WrittenFieldsComeBack) {
    SongHeader song = makeOnePatternSong(SH_ORIGIN_IT | SH_IT_INSTRUMENTS, 2);
    addPattern(song, 1, {addTrackRows(song, {TrackRow{cmd(43, 0xF1), cmd(47, 0x80)}}), 0});
    setOrders(song, {0, 1});
    song.sfxMacro[0] = 1, song.sfxMacro[1] = 0xFF, song.zxxMacro[0] = 0x200, song.zxxMacro[1] = 0x80;
    InstrumentRecord& written = addInstrument(song);
    written.name = "Instrument";
    written.midiChannel = 1;  // stored as 2, the lowest channel the file names
    for (int code : {20, -52, -1, 0, 28, 29}) {
        song.mixVolume = static_cast<int8_t>(code);
        const WriteResult w = runWriteModule(song, 1);
        const ReadResult r = readIt(w.bytes.data(), w.bytes.size());
        ASSERT_TRUE(r.song) << r.error;
        const SongHeader& s = *r.song;
        EXPECT_EQ((std::array<int, 6>{s.mixVolume, s.instruments.at(0).midiChannel, s.sfxMacro[0], s.sfxMacro[1], s.zxxMacro[0], s.zxxMacro[1]}),
                  (std::array<int, 6>{code, 1, 1, 0xFF, 0x200, 0x80}));
    }

    // The old layout: one volume envelope of (tick, value) byte pairs ended by tick 0xFF, a
    // fade-out counted half as fine, an on/off duplicate-note check.
    song.message = "a note";
    Bytes f = runWriteModule(song, 1).bytes;
    wr16le(&f[0x2A], 0x100);
    f[0x2E] &= 0xFE;  // and the message flag cleared: its length and offset alone are no message
    uint8_t* ins = &f[rd32le(&f[192 + rd16le(&f[0x20])])];
    std::fill(ins + 0x11, ins + 0x20, 0);
    std::fill(ins + 0x130, ins + 554, 0);
    ins[0x11] = 0x01 | 0x04, ins[0x14] = 1, ins[0x15] = 1, ins[0x18] = 20, ins[0x1A] = 3, ins[0x1B] = 1;
    const uint8_t nodes[] = {0, 64, 10, 32, 0xFF};
    std::copy(std::begin(nodes), std::end(nodes), ins + 0x1F8);
    ReadResult r = readIt(f.data(), f.size());
    ASSERT_TRUE(r.song) << r.error;
    const InstrumentRecord& i = r.song->instruments[0];
    const Envelope& e = i.volumeEnvelope;
    EXPECT_EQ((std::array<int, 7>{e.flags, e.pointCount, e.sustainStart, e.sustainEnd, e.points[1].tick, e.points[1].value, i.fadeout}),
              (std::array<int, 7>{0x03, 2, 1, 1, 10, 32, 40 << 5}));
    EXPECT_EQ((std::array<int, 5>{i.newNoteAction, i.duplicateCheckType, i.duplicateCheckAction, i.pan, i.globalVolume}),
              (std::array<int, 5>{3, 1, 0, -1, 128}));
    EXPECT_EQ(i.name, "Instrument");
    EXPECT_EQ(r.song->message, "");

    // 200 rows of 64 cells of 6 bytes: the length field holds the packed size modulo 65536.
    SongHeader big = makeSong(SH_ORIGIN_IT, 64);
    PatternGrid grid(200, 64);
    for (unsigned row = 0; row < 200; ++row)
        for (unsigned c = 0; c < 64; ++c)
            grid.at(row, c) = {note(static_cast<uint8_t>((row + c) % 120)), instrument(static_cast<uint8_t>(row % 2)),
                               cmd(15, static_cast<uint8_t>(row % 64)), cmd(44, 0x40)};
    addPattern(big, grid);
    setOrders(big, {0});
    const WriteResult w = runWriteModule(big, 1);
    ASSERT_GT(w.bytes.size(), 70000u);
    r = readIt(w.bytes.data(), w.bytes.size());
    ASSERT_TRUE(r.song) << r.error;
    EXPECT_EQ(cellCommands(*r.song, 0, 199, 63), (TrackRow{{1, 22}, {2, 1}, {15, 199 % 64}, {44, 0x40}}));
    EXPECT_TRUE(r.warnings.empty());

    SongHeader tall = makeOnePatternSong(SH_ORIGIN_IT, 1);
    tall.patternRows[0] = 1024;  // the most IT holds
    const WriteResult t = runWriteModule(tall, 1);
    r = readIt(t.bytes.data(), t.bytes.size());
    ASSERT_TRUE(r.song) << r.error;
    EXPECT_EQ(r.song->patternRows[0], 1024);
}

// Cell bytes the container has no command for are dropped and said: volume byte 255, a letter
// past Z.
TEST(ItReader, CellBytesWithoutACommand) {
    for (auto [command, value, warning] : {std::tuple{15, 255, "volume-column byte 255 dropped"}, {16, 27, "effects outside A-Z dropped"}}) {
        SongHeader song = makeSong(SH_ORIGIN_IT, 1);
        addPattern(song, 1, {addTrackRows(song, {TrackRow{cmd(static_cast<uint8_t>(command), 5)}})});
        setOrders(song, {0});
        Bytes f = runWriteModule(song, 1).bytes;
        f.at(rd32le(&f[0xC0 + rd16le(&f[0x20])]) + 8 + 2) = static_cast<uint8_t>(value);  // past the channel and mask
        const ReadResult r = readIt(f.data(), f.size());
        ASSERT_TRUE(r.song) << r.error;
        EXPECT_TRUE(cellCommands(*r.song, 0, 0, 0).empty());
        EXPECT_EQ(r.warnings, std::vector<std::string>{std::string("IT: ") + warning});
    }
}

}  // namespace
}  // namespace deqaz
