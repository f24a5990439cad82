// S3M writer: channel settings, paragraph pointers, sample data and packed cells against bytes
// worked by hand from the fields' arithmetic, past S3M's usual range (the usual fields: the
// corpus read and written back).
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace test;

// A written S3M file, its blocks found through the parapointers.
struct S3mFile : FileView {
    size_t tableAt() const { return 96 + u16(32); }
    size_t sampleAt(size_t i) const { return 16 * size_t{u16(tableAt() + 2 * i)}; }
    size_t patternAt(size_t p) const { return 16 * size_t{u16(tableAt() + 2 * (u16(34) + p))}; }
    size_t dataAt(size_t i) const { return 16 * ((size_t{u8(sampleAt(i) + 13)} << 16) | u16(sampleAt(i) + 14)); }
    Bytes packedRows(size_t p) const { return bytes(patternAt(p) + 2, u16(patternAt(p))); }
};

S3mFile write(SongHeader& song, int silent = 0) { return writeFile<S3mFile>(song, silent); }

// Channels over the empty track, one pattern, order 0; pans as given (channel c: pans[c]).
SongHeader song(unsigned channels, const std::vector<uint8_t>& pans = {}) {
    SongHeader s = makeOnePatternSong(SH_ORIGIN_S3M, channels);
    for (size_t c = 0; c < pans.size(); ++c) s.channelPan[c] = pans[c];
    return s;
}

// Packed rows: the given leading bytes, then end-of-row zeros up to 64 rows.
Bytes rows(Bytes lead, size_t rowsInLead) {
    lead.insert(lead.end(), 64 - rowsInLead, 0);
    return lead;
}

TEST(S3mHeader, ChannelSettingsMasterVolumeAndPanTable) {
    SongHeader s = song(4, {0, 255, 128, 200, 255, 34});
    S3mFile f = write(s);
    EXPECT_EQ(f.bytes(64, 4), (Bytes{1, 9, 2, 10}));  // centre counts as left
    EXPECT_EQ(f.bytes(68, 28), Bytes(28, 0xFF));
    EXPECT_EQ(f.bytes(51, 13), (Bytes{0xB0, 0, 0xFC, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));  // no ultra-click, no special data
    // Pan table: all 32 slots, beyond the channel count too, then zeros to the next paragraph.
    const size_t pans = f.tableAt() + 2;
    EXPECT_EQ(f.bytes(pans, 7), (Bytes{0x20, 0x2F, 0x27, 0x2B, 0x2F, 0x22, 0x27}));
    EXPECT_EQ(f.patternAt(0), 144u);
    EXPECT_EQ(f.bytes(pans + 32, 144 - pans - 32), Bytes(144 - pans - 32, 0));

    s = song(4, {0, 128, 1, 64});
    f = write(s);
    EXPECT_EQ(f.bytes(64, 5), (Bytes{1, 2, 3, 4, 0xFF}));
    EXPECT_EQ(f.u8(51), 0x30);
    EXPECT_EQ(f.u16(40), 0x1301);  // the tracker version follows the slides flag
    s.flags |= SH_S3M_ST300_VOLSLIDES;
    EXPECT_EQ(write(s).u16(40), 0x1300);
}

TEST(S3mHeader, ChannelLimits) {
    // Eight a side use all sixteen codes: the eighth takes the code the count leaves free.
    SongHeader s = song(16);
    for (unsigned c = 0; c < 16; ++c) s.channelPan[c] = c % 2 ? 255 : 0;
    S3mFile f = write(s);
    EXPECT_EQ(f.bytes(64, 16), (Bytes{1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15, 0, 8}));
    EXPECT_EQ(f.messages, "");

    // From the ninth channel on a side the codes repeat on that side, and that is said.
    s = song(12, {64, 64, 64, 64, 64, 250, 64, 64, 64, 64, 64, 64});
    f = write(s);
    EXPECT_EQ(f.bytes(64, 12), (Bytes{1, 2, 3, 4, 5, 9, 6, 7, 0, 1, 2, 3}));
    EXPECT_EQ(f.notes, std::vector<std::string>{"S3M has 8 channel codes a side; 3 left and 0 right channels share codes"});

    // Channels past 32 are dropped from the tables and the patterns.
    s = makeSong(SH_ORIGIN_S3M, 34);
    std::vector<uint16_t> tracks(34, addTrackBytes(s, {0}));
    tracks[31] = tracks[33] = addTrackRows(s, {TrackRow{note(0)}});
    addPattern(s, 64, tracks);
    setOrders(s, {0});
    f = write(s);
    EXPECT_EQ(f.u8(64 + 31), 0);  // the 32nd left channel
    EXPECT_EQ(f.packedRows(0), rows({0x20 | 31, 0x00, 0x00, 0}, 1));
    EXPECT_EQ(f.notes[0], "S3M holds 32 channels; 2 more dropped");
}

TEST(S3mSample, DataAlignedUnsignedAndInFrames) {
    SongHeader s = song(1);
    addLoopedSample(s, SF_16BIT | SF_STEREO, 1000, 0, 1000, 3);
    addSample(s, SF_16BIT, 0);  // empty
    addSample(s, 0, 5, 2);
    const int16_t right0 = s.samples[0].pcm[1][0];
    const S3mFile f = write(s);
    EXPECT_EQ(f.u32(f.sampleAt(0) + 16), 1000u);
    EXPECT_EQ(f.u8(f.sampleAt(0) + 31), 7);
    const size_t d = f.dataAt(0);
    EXPECT_EQ(d % 16, 0u);
    // libxmp checks the first channel's data; the second follows it, also unsigned.
    EXPECT_EQ(f.u16(d + 2000), static_cast<uint16_t>(right0 + 0x8000));
    // The empty sample: no "SCRS", and it points at an empty block where the next data starts.
    EXPECT_EQ(f.bytes(f.sampleAt(1) + 76, 4), Bytes(4, 0));
    EXPECT_EQ(f.dataAt(1), d + 4000);
    EXPECT_EQ(f.dataAt(2), d + 4000);
    EXPECT_EQ(f.b.size(), d + 4005);
}

TEST(S3mSample, DataPointerUses24Bits) {
    SongHeader s = song(1);
    addSample(s, 0, 1100000);
    addSample(s, 0, 16);
    const S3mFile f = write(s);
    const size_t expected = (f.dataAt(0) + 1100000 + 15) / 16 * 16;
    EXPECT_EQ(f.u8(f.sampleAt(1) + 13), 1);  // beyond what 16 bits of paragraphs reach
    EXPECT_EQ(f.dataAt(1), expected);
    EXPECT_EQ(f.b.size(), expected + 16);
}

TEST(S3mPatterns, CellPacking) {
    SongHeader s = makeSong(SH_ORIGIN_S3M, 6);
    PatternGrid g(11, 6);
    g.at(0, 5) = {note(0), instrument(2)};      // note 1, instrument 3
    g.at(1, 5) = {note(12)};                    // note 13: octave 1
    g.at(2, 5) = {note(255)};                   // note off
    g.at(3, 5) = {note(253)};                   // reads as a note cut
    g.at(4, 2) = {instrument(1)};               // instrument only
    g.at(5, 0) = {cmd(15, 64)};                 // volume only
    g.at(6, 1) = {cmd(16, 0)};                  // effect C with parameter 0
    g.at(7, 3) = {note(50), instrument(0), cmd(15, 0), cmd(18, 0x7D)};  // all fields; volume 0, T
    g.at(7, 4) = {cmd(17, 0xE1)};
    g.at(8, 0) = {note(191)};                   // note 192: octave 15
    g.at(9, 0) = {note(199), instrument(0)};    // note 200: octave 16 wraps the byte, 0x107
    addPattern(s, g);
    addPattern(s, 20, std::vector<uint16_t>(6, 999));  // no such track: empty cells
    setOrders(s, {0});
    const S3mFile f = write(s);
    EXPECT_EQ(f.packedRows(0), rows({0x25, 0x00, 0x03, 0, 0x25, 0x10, 0x00, 0, 0x25, 0xFE, 0x00, 0,
                                     0x25, 0xFE, 0x00, 0, 0x22, 0xFF, 0x02, 0, 0x40, 0x40, 0, 0x81, 3, 0x00, 0,
                                     0xE3, 0x42, 0x01, 0x00, 20, 0x7D, 0x84, 14, 0xE1, 0,
                                     0x20, 0xFB, 0x00, 0, 0x20, 0x07, 0x01, 0},
                                    10));
    // An empty pattern is 64 end-of-row bytes whatever its row count, on the next paragraph.
    EXPECT_EQ(f.u16(f.patternAt(1)), 64);
    EXPECT_EQ(f.packedRows(1), Bytes(64, 0));
    EXPECT_EQ(f.patternAt(1), (f.patternAt(0) + 2 + f.u16(f.patternAt(0)) + 15) / 16 * 16);
    EXPECT_EQ(f.messages, "");
}

TEST(S3mPatterns, PointersKeepTheirLowBits) {
    // 100 dense 32-channel patterns of 12368 bytes: from the 86th on, a pattern's paragraph
    // number passes 16 bits and its pointer keeps the low 16; sample data still has 24.
    SongHeader s = makeSong(SH_ORIGIN_S3M, 32);
    const uint16_t busy = addTrackRows(s, std::vector<TrackRow>(64, {note(40), instrument(1), cmd(15, 10), cmd(16, 1)}));
    for (int p = 0; p < 100; ++p) addPattern(s, 64, std::vector<uint16_t>(32, busy));
    setOrders(s, {0});
    addSample(s, 0, 32);
    const S3mFile f = write(s);
    EXPECT_EQ(f.patternAt(84), 416u + 84 * 12368);
    EXPECT_EQ(f.u16(f.patternAt(84)), 12352);
    EXPECT_EQ(f.u16(f.tableAt() + 2 * 86), (26 + 85 * 773) & 0xFFFF);
    EXPECT_EQ(f.dataAt(0), 416u + 100 * 12368);
    EXPECT_EQ(f.b.size(), 416u + 100 * 12368 + 32);
}

}  // namespace
}  // namespace deqaz
