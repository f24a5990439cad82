// IT writer, byte by byte against hand-worked values, where the corpus read and written back
// (readers/corpus_fixpoint_test) does not reach: mix volume codes, the offset table, the MIDI
// configuration scan, envelope conversion and packed patterns past IT's usual range.
#include <gtest/gtest.h>

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

ItFile write(SongHeader& song, int silent = 0) { return writeFile<ItFile>(&writeIt, song, silent); }
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

TEST(ItHeader, OrdersOffsetTableAndMessage) {
    // Two instrument records without instrument mode: the table keeps their room at its end.
    SongHeader song = minimalSong();
    addPattern(song, 32, {0});
    setOrders(song, {0, 1, 0xFE});
    addInstrument(song);
    addInstrument(song);
    addSample(song, 0, 10);
    addSample(song, SF_16BIT, 10);
    song.message = "Hi";
    const ItFile f = write(song);
    EXPECT_EQ(f.u16(0x20), 4);
    EXPECT_EQ(f.bytes(HEADER, 4), (Bytes{0x00, 0x01, 0xFE, 0xFF}));
    EXPECT_EQ(f.bytes(0x22, 6), (Bytes{0, 0, 2, 0, 2, 0}));  // instruments 0, samples 2, patterns 2
    EXPECT_EQ(f.u16(0x2E), 0x0001);

    const size_t message = f.tableAt() + 4 * 6 + 2;  // table, then two zero bytes
    EXPECT_EQ(f.u16(message - 2), 0);
    EXPECT_EQ(f.u16(0x36), 3);
    EXPECT_EQ(f.u32(0x38), message);
    EXPECT_EQ(f.bytes(message, 3), (Bytes{0x48, 0x69, 0x00}));
    const size_t samples = message + 3;
    EXPECT_EQ(f.entry(0), samples);
    EXPECT_EQ(f.entry(1), samples + SAMPLE_HEADER);
    EXPECT_EQ(f.entry(2), samples + 2 * SAMPLE_HEADER);
    EXPECT_EQ(f.entry(3), f.entry(2) + 8 + 64);
    EXPECT_EQ(f.entry(4), 0u);
    EXPECT_EQ(f.entry(5), 0u);
    EXPECT_EQ(f.text(samples, 4), "IMPS");
    EXPECT_EQ(f.u16(f.entry(3) + 2), 32);
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

TEST(ItMacros, BlocksComeBeforeTheMessage) {
    SongHeader song = minimalSong(2);
    song.flags |= SH_EXTRA_CHUNKS;
    song.message = "x";
    song.sfxMacro[3] = 2;
    addTrackBytes(song, {0x11, 47, 0, 0});
    ASSERT_TRUE(song.fxSlots[2].data.dupBuffer(Bytes{7, 8, 9}.data(), 3));
    song.fxSlots[2].size = 3;
    song.fxSlots[2].present = true;
    const ItFile f = write(song);
    const size_t at = f.tableAt() + 4 + 2 + MIDI_BLOCK;
    EXPECT_EQ(f.u16(0x2E), 0x000F);
    EXPECT_EQ(f.text(at, 4), "FX02");
    EXPECT_EQ(f.u32(at + 4), 3u);
    EXPECT_EQ(f.bytes(at + 8, 3), (Bytes{7, 8, 9}));
    EXPECT_EQ(f.u32(0x38), at + 11);
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

TEST(ItPatterns, VolumeMemoryAndEffects) {
    SongHeader song = makeSong(IT, 6);
    PatternGrid g(3, 6);
    g.at(0, 5) = {cmd(16, 0x10)};                            // pattern break C, channel 5 only
    g.at(0, 0) = {cmd(15, 32)};                              // volume column 32
    g.at(1, 0) = {cmd(15, 32), cmd(44, 0x80)};               // same volume, tempo T
    g.at(2, 0) = {instrument(4), cmd(15, 0), cmd(3, 0x37)};  // volume 0, arpeggio J
    addPattern(song, g);
    EXPECT_EQ(packedPattern(song), (Bytes{0x81, 0x04, 32, 0x86, 0x08, 3, 0x10, 0x00,  //
                                          0x81, 0x48, 20, 0x80, 0x00,                  //
                                          0x81, 0x0E, 5, 0, 10, 0x37, 0x00}));
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
