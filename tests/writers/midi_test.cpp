// The MIDI configuration block (global macros, then the parametered and fixed macro slots as
// text) and the extension blocks that carry the extra chunk slots and channelFx.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "writers/writers.hpp"

namespace deqaz {
namespace {

using namespace std::string_literals;

constexpr size_t ENTRY = 32;
constexpr size_t BLOCK = 153 * ENTRY;

std::string textOf(const OutputBuffer& out) {
    return std::string(reinterpret_cast<const char*>(out.outputData()), out.outputSize());
}

// A 32-byte macro entry: the text, then zeros.
std::string entry(const char* text) { return text + std::string(ENTRY - std::strlen(text), '\0'); }

TEST(MidiConfigTest, EmptySlotsGiveGlobalsThenZeros) {
    SongHeader song;
    OutputBuffer out;
    writeMidiConfig(song, out);
    const std::string block = textOf(out);
    ASSERT_EQ(block.size(), BLOCK);
    const char* globals[9] = {"FF", "FC", "", "9c n v", "9c n 0", "", "", "", "Cc p"};
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(block.substr(i * ENTRY, ENTRY), entry(globals[i])) << i;
    EXPECT_EQ(block.substr(9 * ENTRY), std::string(BLOCK - 9 * ENTRY, '\0'));
}

TEST(MidiConfigTest, MacroSlotsFormatTheirBiasedValues) {
    SongHeader song;
    song.sfxMacro[0] = 1;
    song.sfxMacro[3] = 2;
    song.sfxMacro[15] = 255;
    song.zxxMacro[0] = 0x100;
    song.zxxMacro[1] = 0x0080;  // below the bias: printed as a 32-bit two's complement
    song.zxxMacro[5] = 0x17F;
    song.zxxMacro[127] = 0xFFFF;
    OutputBuffer out;
    out.put8(0x77);  // the block appends after what is there
    writeMidiConfig(song, out);
    const std::string all = textOf(out);
    ASSERT_EQ(all.size(), 1 + BLOCK);
    EXPECT_EQ(all[0], 0x77);
    const std::vector<std::pair<size_t, const char*>> expected = {
        {0, "FF"},          {9, "F0F000z"}, {10, ""},  {12, "F0F001z"},  {24, "F0F0fez"},
        {25, "F0F00000"}, {26, "F0F0ffffff80"}, {27, ""}, {30, "F0F0007f"}, {152, "F0F0feff"},
    };
    for (auto [index, text] : expected) EXPECT_EQ(all.substr(1 + index * ENTRY, ENTRY), entry(text)) << index;
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

TEST(ExtensionBlocksTest, SlotAndChannelBlocks) {
    SongHeader song;
    song.channels = 4;
    const std::string ten = "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A";
    setSlot(song, 2, 10, ten);
    std::string fx;
    for (int i = 0; i < 16; ++i) fx += static_cast<char>(0xA0 + i);
    ASSERT_TRUE(song.channelFx.dupBuffer(reinterpret_cast<const uint8_t*>(fx.data()), fx.size()));
    EXPECT_EQ(blocksOf(song), "FX02\x0A\0\0\0"s + ten + "CHFX\x10\0\0\0"s + fx);
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
