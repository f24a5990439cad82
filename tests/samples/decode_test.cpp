// Sample decoding by the record's coding bits: which decoder runs, where the stored data ends,
// and what a sample reads as when its data runs short.
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

TEST(DecodeSample, CodingBitsChooseTheDecoderAndTheStoredSizeTheNextPosition) {
    const std::vector<int16_t> ramp = {0, 256, 512}, planar = {100, 200, 300, -5, -6, -7};
    const std::vector<uint8_t> zeros(8, 0), stereo = packPredict16(planar.data(), planar.size());
    std::vector<uint8_t> coded = packDelta8(ramp.data(), ramp.size());
    coded.resize(6, 0xEE), coded.push_back(0x42);  // six stored bytes, then the next sample's
    struct Row {
        const char* what;
        uint16_t flags;
        uint32_t length;
        std::vector<uint8_t> data;
        int32_t storedSize;
        std::vector<int16_t> pcm;
        uint32_t position;
    } rows[] = {
        {"raw 8-bit in the high byte, missing bytes silent", 0, 5, {0x80, 0x7F, 0x01}, 0, {-32768, 0x7F00, 0x0100, 0, 0}, 3},
        {"raw 16-bit little-endian", SF_16BIT, 2, {0x34, 0x12, 0xFF, 0xFF, 0x99}, 0, {0x1234, -1}, 4},
        {"coded: the position moves by the stored size", SF_DELTA, 3, coded, 6, ramp, 6},
        {"a stored size past the input stops at its end", SF_PREDICT | SF_16BIT, 4, {0, 0}, 1000, {-1, -4, -9, -16}, 2},
        {"both prediction bits: delta", SF_DELTA | SF_PREDICT | SF_16BIT, 4, zeros, 8, {-1, -2, -3, -4}, 8},
        {"second order alone", SF_PREDICT | SF_16BIT, 4, zeros, 8, {-1, -4, -9, -16}, 8},
        // Compressed wins over delta; data that is not Ogg (even under four bytes) goes to Layer
        // III, which finds no frame here.
        {"compressed, not Ogg", SF_COMPRESSED | SF_DELTA, 4, {'O', 'g', 'g'}, 3, {0, 0, 0, 0}, 3},
        {"only the 0x8000 bit: no decoder, data stepped over", 0x8000, 3, {9, 9, 9, 9, 9}, 4, {0, 0, 0}, 4},
        {"coded stereo: one stream of both channels", SF_PREDICT | SF_16BIT | SF_STEREO, 3, stereo,
         static_cast<int32_t>(stereo.size()), planar, static_cast<uint32_t>(stereo.size())},
    };
    for (const Row& row : rows) {
        Case c(row.flags, row.length, row.data, row.storedSize);
        EXPECT_EQ(c.decode(), row.pcm) << row.what;
        EXPECT_EQ(c.in.inputPos, row.position) << row.what;
    }
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
