#include "writers/output_buffer.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/module_builder.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {
namespace {

std::vector<uint8_t> bytesOf(const OutputBuffer& out) {
    return std::vector<uint8_t>(out.outputData(), out.outputData() + out.outputSize());
}

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

TEST(OutputBufferTest, GrowthAndEncoding) {
    // A small store or append grows by 64 KiB; a large append gets exactly what it needs.
    const std::vector<uint8_t> ten(10, 0x11), block(100000, 0x22);
    OutputBuffer small, big;
    small.appendOutput(ten.data(), ten.size());
    EXPECT_EQ(small.outputCapacity(), 65536u);
    big.appendOutput(block.data(), block.size());
    EXPECT_EQ(big.outputCapacity(), 100000u);
    big.appendOutput(ten.data(), ten.size());
    EXPECT_EQ(big.outputCapacity(), 100000u + 65536u);
    EXPECT_EQ(big.outputData()[99999], 0x22);
    EXPECT_EQ(big.outputData()[100000], 0x11);

    OutputBuffer out;
    out.put8(0xAB);
    EXPECT_EQ(out.outputCapacity(), 65536u);
    out.put16(0x1234);
    out.put32(0xDEADBEEF);
    out.put16be(0x1234);
    EXPECT_EQ(bytesOf(out), (std::vector<uint8_t>{0xAB, 0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE, 0x12, 0x34}));
    const std::vector<uint8_t> fill(65536 - 9 - 1, 0);
    out.appendOutput(fill.data(), fill.size());
    out.put16(0xBEEF);  // straddles the end: grows from the current size
    EXPECT_EQ(out.outputCapacity(), 65535u + 65536u);
    EXPECT_EQ(out.outputData()[65535], 0xEF);
    EXPECT_EQ(out.outputData()[65536], 0xBE);
}

TEST(OutputBufferTest, SkipZeroesReusedMemoryAndPatchesStayInBounds) {
    OutputBuffer out;
    std::vector<uint8_t> junk(200, 0xAA);
    out.appendOutput(junk.data(), junk.size());
    out.truncate(50);
    out.truncate(60);  // cannot grow
    EXPECT_EQ(out.outputSize(), 50u);
    out.skip(100);
    ASSERT_EQ(out.outputSize(), 150u);
    for (uint32_t i = 50; i < 150; ++i) ASSERT_EQ(out.outputData()[i], 0) << i;

    out.patch8(149, 1);
    out.patch16(10, 0x0302);
    out.patch32(146, 0x07060504);
    out.patch8(150, 9);        // past the end: ignored
    out.patch16(149, 0xFFFF);  // straddles the end
    out.patch32(147, 0xFFFFFFFF);
    out.patch32(0xFFFFFFFE, 0xFFFFFFFF);
    EXPECT_EQ(out.outputSize(), 150u);
    EXPECT_EQ(out.outputData()[10], 2);
    EXPECT_EQ(out.outputData()[11], 3);
    EXPECT_EQ(out.outputData()[146], 4);
    EXPECT_EQ(out.outputData()[149], 7);  // the patch32 above overwrote the patch8
}

TEST(OutputBufferTest, SamplePcmReservesExactly) {
    OutputBuffer out;
    out.put8(0);
    SampleRecord stereo = makeSample(SF_16BIT | SF_STEREO, std::vector<int16_t>(40000, 1), std::vector<int16_t>(40000, 2));
    out.writeSamplePcm(stereo, 0);
    EXPECT_EQ(out.outputSize(), 1u + 160000u);
    EXPECT_EQ(out.outputCapacity(), 1u + 160000u);  // no slack after either channel
    out.patch8(out.outputSize(), 9);  // just past the end, and the block: ignored (ASan watches)
    EXPECT_EQ(out.outputData()[1], 1);
    EXPECT_EQ(out.outputData()[1 + 80000], 2);

    OutputBuffer roomy;
    roomy.put8(0);  // 65536 bytes already there: no growth needed
    SampleRecord mono = makeSample(0, std::vector<int16_t>(1000, 0x0100));
    roomy.writeSamplePcm(mono, 0);
    EXPECT_EQ(roomy.outputCapacity(), 65536u);
    EXPECT_EQ(roomy.outputSize(), 1001u);

    SampleRecord empty;  // length 0 and no buffers
    OutputBuffer none;
    none.writeSamplePcm(empty, PCM_DELTA);
    EXPECT_EQ(none.outputCapacity(), 0u);
    EXPECT_EQ(none.outputData(), nullptr);
}

TEST(OutputBufferTest, SamplePcmModes) {
    struct Case {
        const char* name;
        uint16_t flags;
        std::vector<int16_t> left, right;
        unsigned mode;
        std::vector<uint8_t> expect;
    };
    const std::vector<Case> cases = {
        {"16-bit stereo delta", SF_16BIT | SF_STEREO, {100, -100, 32767}, {-32768, 0, 5}, PCM_DELTA,
         {0x64, 0x00, 0x38, 0xFF, 0x63, 0x80, 0x00, 0x80, 0x00, 0x80, 0x05, 0x00}},
        {"16-bit signed", SF_16BIT, {0x1234, -2}, {}, 0, {0x34, 0x12, 0xFE, 0xFF}},
        {"16-bit unsigned", SF_16BIT, {-32768, 0, 0x7FFF}, {}, PCM_UNSIGNED, {0x00, 0x00, 0x00, 0x80, 0xFF, 0xFF}},
        {"8-bit unsigned", 0, {-32768, 0x7F00, 0x0000}, {}, PCM_UNSIGNED, {0x00, 0xFF, 0x80}},
        {"8-bit signed high byte", 0, {0x7F80, -256, 0x00FF}, {}, 0, {0x7F, 0xFF, 0x00}},
        {"8-bit delta", 0, {0x1000, 0x0500, -4096}, {}, PCM_DELTA, {0x10, 0xF5, 0xEB}},
        {"8-bit stereo delta restarts", SF_STEREO, {0x1000, 0x2000}, {0x0300, 0x0100}, PCM_DELTA,
         {0x10, 0x10, 0x03, 0xFE}},
        {"8-bit unsigned delta", 0, {0, 0x0100}, {}, PCM_UNSIGNED | PCM_DELTA, {0x80, 0x01}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SampleRecord s = makeSample(c.flags, c.left, c.right);
        OutputBuffer out;
        out.writeSamplePcm(s, c.mode);
        EXPECT_EQ(bytesOf(out), c.expect);
    }
}

// Writers leave the module as they found it (unsigned and mono output made on the fly).
TEST(WriterDispatchTest, WritingAModuleTwiceGivesTheSameBytes) {
    for (uint32_t flags : {SH_ORIGIN_IT, SH_ORIGIN_S3M, SH_ORIGIN_MOD, SH_ORIGIN_MTM, 0u}) {
        SongHeader song = test::makeOnePatternSong(flags, 4);
        for (uint16_t f : {uint16_t{0}, SF_16BIT, SF_STEREO}) test::addSample(song, f, 40, f + 1u).globalVolume = 1;
        test::addInstrument(song);
        const test::WriteResult first = test::runWriteModule(song);
        EXPECT_GT(first.bytes.size(), 240u);
        EXPECT_EQ(first.bytes, test::runWriteModule(song).bytes) << flags;
    }
}

TEST(OutputBufferTest, SamplePcmChannelsAndShortBuffers) {
    SampleRecord noLeft = makeSample(0, {0x0100, 0x0200});
    noLeft.pcm[1] = std::move(noLeft.pcm[0]);  // channel 1 missing: nothing is written
    OutputBuffer out;
    out.writeSamplePcm(noLeft, 0);
    EXPECT_EQ(out.outputSize(), 0u);

    // A buffer shorter than the length reads as silence past its end.
    SampleRecord shortBuf = makeSample(SF_16BIT, {0x0102});
    shortBuf.length = 3;
    out.writeSamplePcm(shortBuf, PCM_UNSIGNED);
    EXPECT_EQ(bytesOf(out), (std::vector<uint8_t>{0x02, 0x81, 0x00, 0x80, 0x00, 0x80}));
}

TEST(OutputBufferTest, LimitFailsTheBufferAndDropsLaterWrites) {
    OutputBuffer out;
    out.setLimit(100);
    std::vector<uint8_t> block(64, 0x5A);
    out.appendOutput(block.data(), block.size());
    EXPECT_FALSE(out.failed());
    EXPECT_EQ(out.outputCapacity(), 100u);  // growth step cut to the limit
    out.skip(36);                           // exactly at the limit is still fine
    EXPECT_FALSE(out.failed());

    out.put8(1);
    EXPECT_TRUE(out.failed());
    out.appendOutput(block.data(), 1);
    out.put32(7);
    out.patch8(0, 0);
    out.truncate(10);
    SampleRecord s = makeSample(0, {0});
    out.writeSamplePcm(s, PCM_UNSIGNED);
    EXPECT_EQ(out.outputSize(), 100u);
    EXPECT_EQ(out.outputData()[0], 0x5A);

    out.reset();  // a reset starts over; the limit stays
    EXPECT_FALSE(out.failed());
    EXPECT_EQ(out.outputSize(), 0u);
    SampleRecord stereo = makeSample(SF_16BIT | SF_STEREO, std::vector<int16_t>(30), std::vector<int16_t>(30));
    out.writeSamplePcm(stereo, 0);  // the second channel passes the limit
    EXPECT_TRUE(out.failed());
    EXPECT_EQ(out.outputSize(), 60u);
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

TEST(WriterDispatchTest, WriteModuleStartsFromAnEmptyBuffer) {
    SongHeader song;
    song.flags = SH_LINEAR_SLIDES;
    Diagnostics diag;

    OutputBuffer expected;
    WriteContext direct{song, expected, diag};
    writeXm(direct);

    OutputBuffer out;
    out.setLimit(8);
    out.appendOutput("leftover", 8);
    out.put8(0);  // fails the buffer
    ASSERT_TRUE(out.failed());
    out.setLimit(0xFFFFFFFF);
    EXPECT_TRUE(writeModule(song, out, diag));
    EXPECT_FALSE(out.failed());
    EXPECT_EQ(bytesOf(out), bytesOf(expected));
}

TEST(CopyNameTest, BoundedZeroPaddedCopy) {
    using namespace std::string_literals;
    // A 6-byte field with a sentinel after it: cut to fit, zero-padded, ending at a zero byte.
    for (auto [name, field] : {std::pair{"abc"s, "abc\0\0\0"s}, {"abcdef"s, "abcdef"s}, {"abcdefgh"s, "abcdef"s},
                               {""s, std::string(6, '\0')}, {"ab\0cd"s, "ab\0\0\0\0"s}}) {
        std::vector<uint8_t> out(7, 0xEE);
        copyName(out.data(), 6, name);
        EXPECT_EQ(std::string(out.begin(), out.end()), field + "\xEE") << name;
    }
}

}  // namespace
}  // namespace deqaz
