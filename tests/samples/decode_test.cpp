#include <gtest/gtest.h>

#include <algorithm>

#include "container/module.hpp"
#include "samples/decode.hpp"
#include "samples/lossy.hpp"
#include "samples/lossy_encode.hpp"
#include "samples/predict.hpp"
#include "support/signals.hpp"

using namespace deqaz;

namespace {

struct Case {
    SongHeader song;
    std::vector<uint8_t> file;
    InputStream in;

    Case(uint16_t flags, uint32_t length, std::vector<uint8_t> data, int32_t storedSize = 0) : file(std::move(data)) {
        song.samples.resize(1);
        song.samples[0].flags = flags;
        song.samples[0].length = length;
        song.samples[0].storedSize = storedSize;
        in = InputStream{file.data(), static_cast<uint32_t>(file.size()), 0};
    }
    std::vector<int16_t> decode() {
        HeapArray<int16_t> out;
        EXPECT_TRUE(decodeSample(in, song, 0, out));
        return std::vector<int16_t>(out.begin(), out.end());
    }
};

}  // namespace

TEST(DecodeSample, RawEightBitGoesToTheHighByte) {
    Case c(0, 5, {0x80, 0x7F, 0x01});
    EXPECT_EQ(c.decode(), (std::vector<int16_t>{-32768, 0x7F00, 0x0100, 0, 0}));
    EXPECT_EQ(c.in.inputPos, 3u);  // the missing two bytes read as silence
}

TEST(DecodeSample, RawSixteenBitIsLittleEndian) {
    Case c(SF_16BIT, 2, {0x34, 0x12, 0xFF, 0xFF, 0x99});
    EXPECT_EQ(c.decode(), (std::vector<int16_t>{0x1234, -1}));
    EXPECT_EQ(c.in.inputPos, 4u);
}

TEST(DecodeSample, CodedPositionFollowsTheStoredSizeOnly) {
    // Delta-coded data: the decoder uses one byte, the position moves on by all 6 stored bytes.
    std::vector<int16_t> ramp = {0, 256, 512};
    std::vector<uint8_t> coded = packDelta8(ramp.data(), ramp.size());
    coded.resize(6, 0xEE);
    coded.push_back(0x42);
    Case c(SF_DELTA, 3, coded, 6);
    EXPECT_EQ(c.decode(), ramp);
    EXPECT_EQ(c.in.inputPos, 6u);

    // A stored size running past the input stops the position at its end.
    Case past(SF_PREDICT | SF_16BIT, 4, {0, 0}, 1000);
    past.decode();
    EXPECT_EQ(past.in.inputPos, 2u);
}

TEST(DecodeSample, CodingBitsAreTestedInOrder) {
    const std::vector<uint8_t> zeros(8, 0);
    // Both prediction bits: the delta scheme (all-zero codes fall by one step per value).
    Case both(SF_DELTA | SF_PREDICT | SF_16BIT, 4, zeros, 8);
    EXPECT_EQ(both.decode(), (std::vector<int16_t>{-1, -2, -3, -4}));
    // Second-order alone falls ever faster.
    Case second(SF_PREDICT | SF_16BIT, 4, zeros, 8);
    EXPECT_EQ(second.decode(), (std::vector<int16_t>{-1, -4, -9, -16}));
    // Compressed wins over delta; data that is not Ogg (even under four bytes) goes to Layer III,
    // which finds no frame here: silence.
    Case lossy(SF_COMPRESSED | SF_DELTA, 4, {'O', 'g', 'g'}, 3);
    EXPECT_EQ(lossy.decode(), (std::vector<int16_t>{0, 0, 0, 0}));
    EXPECT_EQ(lossy.in.inputPos, 3u);
    // Only the 0x8000 bit: no decoder, silence, and the data is stepped over.
    Case unknown(0x8000, 3, {9, 9, 9, 9, 9}, 4);
    EXPECT_EQ(unknown.decode(), (std::vector<int16_t>{0, 0, 0}));
    EXPECT_EQ(unknown.in.inputPos, 4u);
}

TEST(DecodeSample, CodedStereoIsOneStreamOfBothChannels) {
    std::vector<int16_t> planar = {100, 200, 300, -5, -6, -7};
    std::vector<uint8_t> coded = packPredict16(planar.data(), planar.size());
    Case c(SF_PREDICT | SF_16BIT | SF_STEREO, 3, coded, static_cast<int32_t>(coded.size()));
    EXPECT_EQ(c.decode(), planar);
    // Raw stereo reads one channel per call.
    Case raw(SF_STEREO, 2, {1, 2, 3, 4});
    EXPECT_EQ(raw.decode(), (std::vector<int16_t>{0x100, 0x200}));
    EXPECT_EQ(raw.decode(), (std::vector<int16_t>{0x300, 0x400}));
}

TEST(DecodeSample, BorrowedVorbisHeaderStaysInsideTheInput) {
    // Sample 0: audio pages that borrow their header pages from sample `0 + headerSource`, whose
    // stored data ends the input. Exact-size input, so ASan sees any read past it.
    const VorbisEncoded enc = encodeVorbis(test::musicalSignal(6000, 1, 22050).data(), 6000, 1, 22050, 0.3f);
    ASSERT_TRUE(enc.ok);
    const auto decodeWith = [&](int16_t headerSource, size_t headerKept) {
        std::vector<uint8_t> data(enc.audio.size() + headerKept);
        std::copy(enc.audio.begin(), enc.audio.end(), data.begin());
        std::copy_n(enc.header.begin(), headerKept, data.begin() + static_cast<long>(enc.audio.size()));
        Case c(SF_COMPRESSED | SF_PREDICT, 6000, std::move(data), static_cast<int32_t>(enc.audio.size()));
        c.song.samples.resize(2);
        c.song.samples[0].headerSource = headerSource;
        c.song.samples[0].codecParam = static_cast<uint16_t>(enc.header.size());
        c.song.samples[1].dataOffset = static_cast<uint32_t>(enc.audio.size());
        return c.decode();
    };
    std::vector<int16_t> whole(6000);
    const std::vector<uint8_t> stream = enc.stream();
    decodeVorbisSample(nullptr, 0, stream.data(), stream.size(), whole.data(), whole.size() * 2);
    ASSERT_NE(whole, std::vector<int16_t>(6000, 0));
    EXPECT_EQ(decodeWith(1, enc.header.size()), whole);
    // The source's data shorter than the borrowed count: only what the input holds is lent, and
    // incomplete header pages set up no decoder.
    EXPECT_EQ(decodeWith(1, enc.header.size() - 40), std::vector<int16_t>(6000, 0));
    // A source outside the sample table lends nothing.
    for (int16_t outside : {-1, 2, 300})
        EXPECT_EQ(decodeWith(outside, enc.header.size()), std::vector<int16_t>(6000, 0)) << outside;
}
