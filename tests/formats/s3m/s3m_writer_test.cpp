// S3M writer: channel codes and channels past S3M's 32 against bytes worked by hand from the
// fields' arithmetic (the usual fields: the corpus read and written back).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace test;

// A written S3M file, its blocks found through the parapointers.
struct S3mFile : FileView {
    size_t tableAt() const { return 96 + u16(32); }
    size_t patternAt(size_t p) const { return 16 * size_t{u16(tableAt() + 2 * (u16(34) + p))}; }
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

}  // namespace
}  // namespace deqaz
