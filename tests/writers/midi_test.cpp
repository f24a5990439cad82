// The extension blocks that carry the extra chunk slots and channelFx, where their sizes and data
// disagree. Whole blocks, and the MIDI configuration's macro texts, are pinned byte for byte by
// XmReaderRecords.TrailingChunksComeBack, which writes back what it read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "writers/writers.hpp"

namespace deqaz {
namespace {

using namespace std::string_literals;

std::string textOf(const OutputBuffer& out) {
    return std::string(reinterpret_cast<const char*>(out.outputData()), out.outputSize());
}

// Slot k holds `size` with the given data bytes.
void setSlot(SongHeader& song, int k, uint32_t size, const std::string& data) {
    ASSERT_TRUE(data.empty() || song.fxSlots[k].data.dupBuffer(reinterpret_cast<const uint8_t*>(data.data()), data.size()));
    song.fxSlots[k].size = size;
    song.fxSlots[k].present = true;
}

std::string blocksOf(const SongHeader& song) {
    OutputBuffer out;
    writeExtensionBlocks(song, out);
    return textOf(out);
}

TEST(ExtensionBlocksTest, EmptyZeroSizedAndShortSlots) {
    SongHeader song;
    song.flags = SH_EXTRA_CHUNKS;
    song.fxSlots[4].size = 99;  // a size without data is no block
    EXPECT_EQ(blocksOf(song), "");

    setSlot(song, 7, 0, "");  // data of size 0: header only
    setSlot(song, 19, 1, "\x42");
    EXPECT_EQ(blocksOf(song), "FX07\0\0\0\0FX19\x01\0\0\0\x42"s);

    // Sizes are trusted, but a block never reads past its data: the rest is zero-filled.
    SongHeader shortData;
    shortData.channels = 2;
    setSlot(shortData, 0, 4, "\x07\x08");
    ASSERT_TRUE(shortData.channelFx.dupBuffer(shortData.fxSlots[0].data.data(), 2));
    EXPECT_EQ(blocksOf(shortData), "FX00\x04\0\0\0\x07\x08\0\0CHFX\x08\0\0\0\x07\x08\0\0\0\0\0\0"s);
}

}  // namespace
}  // namespace deqaz
