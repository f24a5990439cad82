#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "writers/writers.hpp"

namespace deqaz {
namespace {

constexpr size_t ENTRY = 32;
constexpr size_t BLOCK = 153 * ENTRY;

std::vector<uint8_t> bytesOf(const OutputBuffer& out) {
    return std::vector<uint8_t>(out.outputData(), out.outputData() + out.outputSize());
}

// A 32-byte macro entry: the text, then zeros.
std::vector<uint8_t> entry(const char* text) {
    std::vector<uint8_t> e(ENTRY, 0);
    std::memcpy(e.data(), text, std::strlen(text));
    return e;
}

std::vector<uint8_t> entryAt(const std::vector<uint8_t>& block, size_t index) {
    return std::vector<uint8_t>(block.begin() + index * ENTRY, block.begin() + (index + 1) * ENTRY);
}

void append(std::vector<uint8_t>& v, const std::string& s) { v.insert(v.end(), s.begin(), s.end()); }

TEST(MidiConfigTest, EmptySlotsGiveGlobalsThenZeros) {
    SongHeader song;
    OutputBuffer out;
    writeMidiConfig(song, out);
    const std::vector<uint8_t> block = bytesOf(out);
    ASSERT_EQ(block.size(), BLOCK);
    const char* globals[9] = {"FF", "FC", "", "9c n v", "9c n 0", "", "", "", "Cc p"};
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(entryAt(block, i), entry(globals[i])) << i;
    for (size_t i = 9 * ENTRY; i < BLOCK; ++i) ASSERT_EQ(block[i], 0) << i;
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
    ASSERT_EQ(out.outputSize(), 1 + BLOCK);
    EXPECT_EQ(out.outputData()[0], 0x77);
    const std::vector<uint8_t> block(out.outputData() + 1, out.outputData() + 1 + BLOCK);

    const std::vector<std::pair<size_t, const char*>> expected = {
        {9, "F0F000z"}, {10, ""}, {12, "F0F001z"}, {24, "F0F0fez"},
        {25, "F0F00000"}, {26, "F0F0ffffff80"}, {27, ""}, {30, "F0F0007f"}, {152, "F0F0feff"},
    };
    for (auto [index, text] : expected) EXPECT_EQ(entryAt(block, index), entry(text)) << index;
    EXPECT_EQ(entryAt(block, 0), entry("FF"));
}

TEST(ExtensionBlocksTest, SlotAndChannelBlocks) {
    SongHeader song;
    song.channels = 4;
    const uint8_t ten[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_TRUE(song.fxSlots[2].data.dupBuffer(ten, 10));
    song.fxSlots[2].size = 10;
    song.fxSlots[2].present = true;
    std::vector<uint8_t> fx(16);
    for (size_t i = 0; i < fx.size(); ++i) fx[i] = static_cast<uint8_t>(0xA0 + i);
    ASSERT_TRUE(song.channelFx.dupBuffer(fx.data(), fx.size()));

    OutputBuffer out;
    writeExtensionBlocks(song, out);
    std::vector<uint8_t> expect;
    append(expect, "FX02");
    expect.insert(expect.end(), {10, 0, 0, 0});
    expect.insert(expect.end(), ten, ten + 10);
    append(expect, "CHFX");
    expect.insert(expect.end(), {16, 0, 0, 0});
    expect.insert(expect.end(), fx.begin(), fx.end());
    EXPECT_EQ(bytesOf(out), expect);
}

TEST(ExtensionBlocksTest, EmptyAndZeroSizedSlots) {
    SongHeader song;
    song.flags = SH_EXTRA_CHUNKS;
    song.fxSlots[4].size = 99;  // a size without data is no block
    OutputBuffer out;
    writeExtensionBlocks(song, out);
    EXPECT_EQ(out.outputSize(), 0u);

    song.fxSlots[7].present = true;  // data of size 0: header only
    const uint8_t one = 0x42;
    ASSERT_TRUE(song.fxSlots[19].data.dupBuffer(&one, 1));
    song.fxSlots[19].size = 1;
    song.fxSlots[19].present = true;
    writeExtensionBlocks(song, out);
    std::vector<uint8_t> expect;
    append(expect, "FX07");
    expect.insert(expect.end(), {0, 0, 0, 0});
    append(expect, "FX19");
    expect.insert(expect.end(), {1, 0, 0, 0, 0x42});
    EXPECT_EQ(bytesOf(out), expect);
}

TEST(ExtensionBlocksTest, BlockMatchesItsSizeWhenDataIsShort) {
    // Sizes are trusted, but a block never reads past its data: the rest is zero-filled.
    SongHeader song;
    song.channels = 2;
    const uint8_t two[2] = {7, 8};
    ASSERT_TRUE(song.fxSlots[0].data.dupBuffer(two, 2));
    song.fxSlots[0].size = 4;
    song.fxSlots[0].present = true;
    ASSERT_TRUE(song.channelFx.dupBuffer(two, 2));
    OutputBuffer out;
    writeExtensionBlocks(song, out);
    std::vector<uint8_t> expect;
    append(expect, "FX00");
    expect.insert(expect.end(), {4, 0, 0, 0, 7, 8, 0, 0});
    append(expect, "CHFX");
    expect.insert(expect.end(), {8, 0, 0, 0, 7, 8, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(bytesOf(out), expect);
}

}  // namespace
}  // namespace deqaz
