// The output buffer: growth steps, stores, patches that stay inside the output, the size limit,
// and the PCM writer in every mode; the writer chosen by a module's origin flags.
#include "writers/output_buffer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "support/module_builder.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

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

TEST(OutputBufferTest, SamplePcmModes) {
    struct Case {
        const char* name;
        uint16_t flags;
        std::vector<int16_t> left, right;
        unsigned mode;
        Bytes expect;
    };
    const std::vector<Case> cases = {
        {"16-bit stereo delta", SF_16BIT | SF_STEREO, {100, -100, 32767}, {-32768, 0, 5}, PCM_DELTA,
         {0x64, 0x00, 0x38, 0xFF, 0x63, 0x80, 0x00, 0x80, 0x00, 0x80, 0x05, 0x00}},
        {"16-bit signed", SF_16BIT, {0x1234, -2}, {}, 0, {0x34, 0x12, 0xFE, 0xFF}},
        {"16-bit unsigned", SF_16BIT, {-32768, 0, 0x7FFF}, {}, PCM_UNSIGNED, {0x00, 0x00, 0x00, 0x80, 0xFF, 0xFF}},
        {"8-bit unsigned", 0, {-32768, 0x7F00, 0x0000}, {}, PCM_UNSIGNED, {0x00, 0xFF, 0x80}},
        {"8-bit signed high byte", 0, {0x7F80, -256, 0x00FF}, {}, 0, {0x7F, 0xFF, 0x00}},
        {"8-bit delta", 0, {0x1000, 0x0500, -4096}, {}, PCM_DELTA, {0x10, 0xF5, 0xEB}},
        {"8-bit stereo delta restarts", SF_STEREO, {0x1000, 0x2000}, {0x0300, 0x0100}, PCM_DELTA, {0x10, 0x10, 0x03, 0xFE}},
        {"8-bit unsigned delta", 0, {0, 0x0100}, {}, PCM_UNSIGNED | PCM_DELTA, {0x80, 0x01}},
    };
    for (const Case& c : cases) {
        OutputBuffer out;
        out.writeSamplePcm(makeSample(c.flags, c.left, c.right), c.mode);
        EXPECT_EQ(bytesOf(out), c.expect) << c.name;
    }
    // Channel 1 missing: nothing. A buffer shorter than the length: silence past its end.
    SampleRecord noLeft = makeSample(0, {0x0100, 0x0200});
    noLeft.pcm[1] = std::move(noLeft.pcm[0]);
    SampleRecord shortBuf = makeSample(SF_16BIT, {0x0102});
    shortBuf.length = 3;
    OutputBuffer out;
    out.writeSamplePcm(noLeft, 0);
    out.writeSamplePcm(shortBuf, PCM_UNSIGNED);
    EXPECT_EQ(bytesOf(out), (Bytes{0x02, 0x81, 0x00, 0x80, 0x00, 0x80}));
}

TEST(OutputBufferTest, LimitFailsTheBufferAndDropsLaterWrites) {
    OutputBuffer out;
    out.setLimit(100);
    const Bytes block(64, 0x5A);
    out.appendOutput(block.data(), block.size());
    EXPECT_EQ(out.outputCapacity(), 100u);  // growth step cut to the limit
    out.skip(36);                           // exactly at the limit is still fine
    EXPECT_FALSE(out.failed());
    out.put8(1);
    EXPECT_TRUE(out.failed());
    out.patch8(0, 0), out.truncate(10), out.put32(7);
    EXPECT_EQ(out.outputSize(), 100u);
    EXPECT_EQ(out.outputData()[0], 0x5A);

    out.reset();  // a reset starts over; the limit stays
    EXPECT_FALSE(out.failed());
    out.writeSamplePcm(makeSample(SF_16BIT | SF_STEREO, std::vector<int16_t>(30), std::vector<int16_t>(30)), 0);
    EXPECT_TRUE(out.failed());  // the second channel passes the limit
    EXPECT_EQ(out.outputSize(), 60u);

    // writeModule starts from an empty, sound buffer whatever it is handed.
    SongHeader song;
    Diagnostics diag;
    OutputBuffer direct;
    WriteContext ctx{song, direct, diag};
    writeXm(ctx);
    out.setLimit(0xFFFFFFFF);
    EXPECT_TRUE(writeModule(song, out, diag));
    EXPECT_EQ(bytesOf(out), bytesOf(direct));
}

TEST(WriterDispatchTest, FirstOriginFlagChoosesTheWriterAndTheTranslation) {
    struct Case {
        uint32_t flags;
        void (*writer)(WriteContext&);
        Target target;
    };
    for (const Case& c : {Case{SH_ORIGIN_IT | SH_ORIGIN_S3M, &writeIt, Target::IT},
                          Case{SH_ORIGIN_IT | SH_ORIGIN_MTM | SH_ORIGIN_MOD, &writeIt, Target::IT},
                          Case{SH_ORIGIN_S3M | SH_ORIGIN_MOD | SH_ORIGIN_MTM, &writeS3m, Target::S3M},
                          Case{SH_ORIGIN_MOD | SH_ORIGIN_MTM, &writeMod, Target::MODMTM},
                          Case{SH_ORIGIN_MTM, &writeMtm, Target::MODMTM}, Case{0, &writeXm, Target::XM},
                          Case{SH_LINEAR_SLIDES | SH_EXTRA_CHUNKS | SH_IT_INSTRUMENTS, &writeXm, Target::XM}}) {
        EXPECT_EQ(writerFor(c.flags), c.writer) << c.flags;
        EXPECT_EQ(targetOf(c.flags), c.target) << c.flags;
    }
}

}  // namespace
}  // namespace deqaz
