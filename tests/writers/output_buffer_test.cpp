// The output buffer: growth steps, stores, and patches that stay inside the output.
#include "writers/output_buffer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "container/module.hpp"

namespace deqaz {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes bytesOf(const OutputBuffer& out) { return Bytes(out.outputData(), out.outputData() + out.outputSize()); }

SampleRecord makeSample(uint16_t flags, std::vector<int16_t> left, std::vector<int16_t> right = {}) {
    SampleRecord s;
    s.flags = flags;
    s.length = static_cast<uint32_t>(left.size());
    EXPECT_TRUE(s.pcm[0].dupBuffer(left.data(), left.size()));
    if (!right.empty()) {
        EXPECT_TRUE(s.pcm[1].dupBuffer(right.data(), right.size()));
    }
    return s;
}

// Small writes grow by 64 KiB from the current size, large appends by exactly what they need,
// sample data exactly per channel; skipped room is zero even where the memory held bytes before.
TEST(OutputBufferTest, GrowthStoresAndPatches) {
    const Bytes ten(10, 0x11), block(100000, 0x22);
    OutputBuffer out;
    out.put8(0xAB);
    EXPECT_EQ(out.outputCapacity(), 65536u);
    out.put16(0x1234), out.put32(0xDEADBEEF), out.put16be(0x1234);
    EXPECT_EQ(bytesOf(out), (Bytes{0xAB, 0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE, 0x12, 0x34}));
    out.skip(65536 - 9 - 1);
    out.put16(0xBEEF);  // straddles the end
    EXPECT_EQ(out.outputCapacity(), 65535u + 65536u);
    out.appendOutput(block.data(), block.size());
    EXPECT_EQ(out.outputCapacity(), 65537u + 100000u);
    out.appendOutput(ten.data(), ten.size());
    EXPECT_EQ(out.outputCapacity(), 165537u + 65536u);
    const SampleRecord stereo = makeSample(SF_16BIT | SF_STEREO, std::vector<int16_t>(40000, 1), std::vector<int16_t>(40000, 2));
    out.writeSamplePcm(stereo, 0);
    EXPECT_EQ(out.outputCapacity(), 165547u + 160000u);  // no slack after the second channel

    out.truncate(50);
    out.truncate(60);  // cannot grow
    out.skip(100);
    ASSERT_EQ(out.outputSize(), 150u);
    Bytes kept(150, 0);  // what truncation kept, then zeros over the old sample bytes
    const Bytes head{0xAB, 0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE, 0x12, 0x34};
    std::copy(head.begin(), head.end(), kept.begin());
    EXPECT_EQ(bytesOf(out), kept);
    out.patch8(149, 1), out.patch16(10, 0x0302), out.patch32(146, 0x07060504);
    out.patch8(150, 9), out.patch16(149, 0xFFFF), out.patch32(147, 0xFFFFFFFF), out.patch32(0xFFFFFFFE, 0);  // outside: ignored
    EXPECT_EQ((Bytes{out.outputData()[10], out.outputData()[11], out.outputData()[146], out.outputData()[149]}), (Bytes{2, 3, 4, 7}));
    EXPECT_EQ(out.outputSize(), 150u);

    OutputBuffer gap;
    gap.skip(65535);  // still a small write: one step
    EXPECT_EQ(gap.outputCapacity(), 65536u);
    gap.truncate(2);
    gap.patch16(0, 0x0102);  // a patch may end exactly at the end
    EXPECT_EQ(bytesOf(gap), (Bytes{2, 1}));
}

}  // namespace
}  // namespace deqaz
