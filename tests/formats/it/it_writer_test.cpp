// IT writer, byte by byte against hand-worked values, where the corpus read and written back
// (readers/corpus_fixpoint_test) does not reach: mix volume codes, the MIDI configuration scan
// and packed patterns' channel memory and special notes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

constexpr uint32_t IT = SH_ORIGIN_IT;
constexpr size_t HEADER = 192, MIDI_BLOCK = 4896;

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

}  // namespace
}  // namespace deqaz
