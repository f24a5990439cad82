// IT writer, byte by byte against hand-worked values, where the corpus read and written back
// (readers/corpus_fixpoint_test) does not reach: mix volume codes, the offset table, the MIDI
// configuration scan, envelope conversion and packed patterns past IT's usual range.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

constexpr uint32_t IT = SH_ORIGIN_IT;
constexpr size_t HEADER = 192, INSTRUMENT_HEADER = 557, SAMPLE_HEADER = 80, MIDI_BLOCK = 4896;

struct ItFile : FileView {
    size_t tableAt() const { return HEADER + u16(0x20); }
    uint32_t entry(size_t k) const { return u32(tableAt() + 4 * k); }
    Bytes packedRows(size_t at) const { return bytes(at + 8, u16(at)); }  // pattern header at `at`
};

ItFile write(SongHeader& song, int silent = 0) { return writeFile<ItFile>(song, silent); }
SongHeader minimalSong(unsigned channels = 1) { return makeOnePatternSong(IT, channels); }

// ---------------------------------------------------------------------------------------------
// Header and tables

TEST(ItHeader, MixVolumeAndChannels) {
    for (auto [code, expected] : {std::pair{0, 52}, {10, 55}, {20, 73}, {25, 99}, {28, 127}, {29, 140}, {-52, 0}, {-1, 51}}) {
        SongHeader song = minimalSong();
        song.mixVolume = static_cast<int8_t>(code);
        EXPECT_EQ(write(song).u8(0x31), expected) << "code " << code;
    }
    SongHeader song = minimalSong(4);
    song.channelPan = {127, 128, 255, 0, 200};  // surround, centre, right, left, beyond the channels
    song.channelVolume = {64, 0, 0, 17, 50};
    const ItFile f = write(song);
    EXPECT_EQ(f.bytes(0x40, 4), (Bytes{100, 32, 64, 0}));
    EXPECT_EQ(f.bytes(0x80, 4), (Bytes{64, 0, 0, 17}));
    EXPECT_EQ(f.bytes(0x44, 60), Bytes(60, 0x80));
    EXPECT_EQ(f.bytes(0x84, 60), Bytes(60, 0));
}

// Instrument records without instrument mode: the offset table keeps their room at its end.
TEST(ItHeader, InstrumentRoomInTheOffsetTable) {
    SongHeader song = minimalSong();
    addInstrument(song);
    addInstrument(song);
    addSample(song, 0, 10);
    const ItFile f = write(song);
    EXPECT_EQ(f.bytes(0x20, 8), (Bytes{2, 0, 0, 0, 1, 0, 1, 0}));  // orders, instruments 0, samples, patterns
    EXPECT_EQ(f.entry(0), f.tableAt() + 4 * 4 + 2);
    EXPECT_EQ(f.entry(1), f.entry(0) + SAMPLE_HEADER);
    EXPECT_EQ((std::array<uint32_t, 2>{f.entry(2), f.entry(3)}), (std::array<uint32_t, 2>{0, 0}));
}

// ---------------------------------------------------------------------------------------------
// MIDI configuration and extension blocks

bool writesMidiBlock(const Bytes& track, uint8_t slot0, ItFile* file = nullptr) {
    SongHeader song = minimalSong();
    song.sfxMacro[0] = slot0;
    addTrackBytes(song, track);  // referenced by no pattern: the scan still reads it
    const ItFile f = write(song);
    const bool special = (f.u16(0x2E) & 0x000E) == 0x000E;
    EXPECT_EQ(special, f.b.size() > f.tableAt() + 4 + 2 + MIDI_BLOCK) << "special and block disagree";
    if (file) *file = f;
    return special;
}

TEST(ItMacros, ScanNeedsASlotAndAMacroCommandInAnyPair) {
    EXPECT_FALSE(writesMidiBlock({0x11, 47, 0x10, 0}, 0));        // Z, but every slot empty
    EXPECT_FALSE(writesMidiBlock({0x12, 43, 0xE2, 3, 1, 0}, 1));  // slot set, S below 0xF0, no Z
    EXPECT_TRUE(writesMidiBlock({0x11, 47, 0x10, 0}, 1));
    EXPECT_TRUE(writesMidiBlock({0x11, 43, 0xF0, 0}, 1));
    // (43, F2) after a command 0, in a group that covers no row, behind an empty-row group.
    ItFile f;
    ASSERT_TRUE(writesMidiBlock({0xF0, 0x02, 1, 48, 0, 0, 0x02, 0, 0, 43, 0xF2, 0}, 1, &f));
    EXPECT_EQ(f.u16(0x2E), 0x000E);
    const size_t block = f.tableAt() + 4 + 2;
    EXPECT_EQ(f.text(block, 3), std::string("FF\0", 3));
    EXPECT_EQ(f.text(block + 9 * 32, 8), std::string("F0F000z\0", 8));  // slot 0 = 1
    EXPECT_EQ(f.entry(0), block + MIDI_BLOCK);                          // the pattern follows
}

// ---------------------------------------------------------------------------------------------
// Instrument and sample headers

TEST(ItInstrument, EnvelopeConversion) {
    SongHeader song = minimalSong();
    song.flags |= SH_IT_INSTRUMENTS;
    InstrumentRecord& ins = addInstrument(song);
    ins.volumeEnvelope = {0x01 | 0x02 | 0x20, 3, 1, 2, 0, 1, {}};  // on, sustain loop, carry
    ins.volumeEnvelope.points = {EnvelopePoint{0, 64}, {10, 0x120}, {0x1234, 0}, {99, 99}};
    ins.panningEnvelope = {0x01 | 0x04, 2, 0, 0, 1, 1, {}};  // on, loop
    ins.panningEnvelope.points = {EnvelopePoint{0, 0}, {5, 64}};
    ins.pitchEnvelope = {0x01 | 0x10, 2, 0, 0, 0, 0, {}};  // on, filter
    ins.pitchEnvelope.points = {EnvelopePoint{0, 2048}, {8, 0}};
    addInstrument(song).volumeEnvelope.pointCount = 200;  // more than IT holds: clamped to 25

    const ItFile f = write(song);
    const size_t v = f.entry(0) + 0x130, p = v + 82, q = p + 82;
    EXPECT_EQ(f.bytes(v, 15), (Bytes{0x01 | 0x04 | 0x08, 3, 0, 1, 1, 2, 64, 0, 0, 0x20, 10, 0, 0, 0x34, 0x12}));
    EXPECT_EQ(f.bytes(v + 15, 82 - 15), Bytes(82 - 15, 0));  // the 4th point is beyond the count
    EXPECT_EQ(f.bytes(p, 12), (Bytes{0x01 | 0x02, 2, 1, 1, 0, 0, 0xE0, 0, 0, 32, 5, 0}));
    EXPECT_EQ(f.bytes(q, 12), (Bytes{0x81, 2, 0, 0, 0, 0, 32, 0, 0, 0xE0, 8, 0}));
    EXPECT_EQ(f.u8(f.entry(1) + 0x130 + 1), 25);
}

// ---------------------------------------------------------------------------------------------
// Packed patterns

Bytes packedPattern(SongHeader& song, unsigned p = 0) {
    const ItFile f = write(song);
    return f.packedRows(f.entry(song.instruments.size() + song.samples.size() + p));
}

TEST(ItPatterns, MaskInstrumentMemoryAndSpecialNotes) {
    SongHeader song = makeSong(IT, 1);
    PatternGrid g(9, 1);
    for (unsigned r = 0; r < 3; ++r) g.at(r, 0) = {note(48), instrument(0)};
    g.at(4, 0) = {note(255)};
    g.at(5, 0) = {note(254)};
    g.at(6, 0) = {note(253)};
    g.at(7, 0) = {note(0)};
    g.at(8, 0) = {note(252)};  // the highest note written less one
    addPattern(song, g);
    addPattern(song, g);  // a second pattern starts with fresh channel memory
    const Bytes expected{0x81, 0x03, 0x30, 0x01, 0x00, 0x81, 0x21, 0x30, 0x00, 0x01, 0x30, 0x00, 0x00,
                         0x81, 0x01, 0xFF, 0x00, 0x01, 0xFE, 0x00, 0x01, 0xFE, 0x00, 0x01, 0x00, 0x00, 0x01, 0xFC, 0x00};
    EXPECT_EQ(packedPattern(song, 0), expected);
    EXPECT_EQ(packedPattern(song, 1), expected);
}

TEST(ItPatterns, TranslationWarningsReachTheMessageStream) {
    SongHeader song = makeSong(IT, 1);
    addPattern(song, 4, {addTrackBytes(song, {0x32, 16, 0, 14, 1, 0})});  // C and B on rows 0-2
    setOrders(song, {0});
    const ItFile f = write(song, 1);  // printed in silent mode too, once per row
    EXPECT_EQ(f.messages, "2 effects in 1 row!\n2 effects in 1 row!\n2 effects in 1 row!\n");
    EXPECT_EQ(f.packedRows(f.entry(0)), (Bytes{0x81, 0x08, 3, 0, 0, 0x01, 3, 0, 0, 0x01, 3, 0, 0, 0}));
}

TEST(ItPatterns, EmptyRowsAndLengthModulo64K) {
    // 64 channels x 300 rows of note + effect under an unchanging mask: 4 bytes a cell.
    SongHeader song = minimalSong(64);
    const uint16_t t = addTrackRows(song, std::vector<TrackRow>(300, TrackRow{note(60), cmd(16, 0)}));
    addPattern(song, 300, std::vector<uint16_t>(64, t));
    addPattern(song, 200, std::vector<uint16_t>(64, 0));
    const ItFile f = write(song);
    EXPECT_EQ(f.packedRows(f.entry(0)), Bytes(64, 0));
    const size_t length = 64 * 4 * 300 + 300 + 64;  // the first row also carries the masks
    EXPECT_EQ(f.u16(f.entry(1)), length % 65536);
    EXPECT_EQ(f.entry(2), f.entry(1) + 8 + length);
    EXPECT_EQ(f.bytes(f.entry(2), 8), (Bytes{200, 0, 200, 0, 0, 0, 0, 0}));
}

TEST(ItPatterns, BeyondSixtyFourChannelsAndMissingTracks) {
    SongHeader song = makeSong(IT, 70);
    const uint16_t busy = addTrackRows(song, {TrackRow{note(1)}});
    std::vector<uint16_t> tracks(70, 999);  // no such track: empty
    tracks[63] = busy;
    tracks[69] = busy;  // beyond IT's 64 channels: dropped
    addPattern(song, 1, tracks);
    const ItFile f = write(song);
    EXPECT_EQ(f.u8(0x40 + 63), 32);
    EXPECT_EQ(f.packedRows(f.entry(0)), (Bytes{0x80 | 64, 0x01, 0x01, 0x00}));
}

}  // namespace
}  // namespace deqaz
