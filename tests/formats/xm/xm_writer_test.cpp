// XM writer, byte by byte against hand-worked values, where the corpus read and written back
// does not reach: order lists and packed sizes past XM's fields.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

constexpr uint32_t XM = 0;  // no origin flag
constexpr size_t HEADER = 336;

FileView write(SongHeader& song, int silent = 0) { return writeFile(song, silent); }
SongHeader minimalSong(unsigned channels = 1) { return makeOnePatternSong(XM, channels); }

// ---------------------------------------------------------------------------------------------
// Module header

TEST(XmHeader, OrderListBeyondTheTable) {
    SongHeader song = minimalSong();
    std::vector<uint8_t> orders(300);
    for (size_t i = 0; i < orders.size(); ++i) orders[i] = static_cast<uint8_t>(i % 7);
    setOrders(song, orders);
    FileView f = write(song);
    EXPECT_EQ(f.u16(64), 300);  // the song length is the order count; the table holds 256
    EXPECT_EQ(f.bytes(80, 256), Bytes(orders.begin(), orders.begin() + 256));
    EXPECT_EQ(f.u32(HEADER), 9u);  // the first pattern follows the table
    EXPECT_EQ(f.notes, std::vector<std::string>{"XM lists 256 orders; 44 more left out of the table"});
    EXPECT_EQ(f.messages, "");
}

// ---------------------------------------------------------------------------------------------
// Patterns

TEST(XmPatterns, PackedSizeBeyond16Bits) {
    // 64 channels x 256 rows of six-byte cells: 98304 bytes, more than the size field holds.
    SongHeader song = makeSong(XM, 64);
    const uint16_t t = addTrackRows(song, std::vector<TrackRow>(256, TrackRow{note(1), instrument(1), cmd(15, 1), cmd(17, 0x11)}));
    addPattern(song, 256, std::vector<uint16_t>(64, t));
    addPattern(song, 1, std::vector<uint16_t>(64, t));
    setOrders(song, {0});
    const FileView f = write(song);
    EXPECT_EQ(f.u16(HEADER + 7), 98304 % 65536);
    EXPECT_EQ(f.u16(HEADER + 9 + 98304 + 5), 1);  // the next pattern still follows every byte
    EXPECT_EQ(f.notes, std::vector<std::string>{"XM pattern 0 packs to 98304 bytes; its size field keeps the low 16 bits"});
}

}  // namespace
}  // namespace deqaz
