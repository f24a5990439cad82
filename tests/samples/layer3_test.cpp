// MPEG Layer III sample decoding, checked against the mpg123 command-line player decoding the
// same frames, and the LAME encoder wrapper that makes such samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "samples/lossy.hpp"
#include "samples/lossy_encode.hpp"
#include "support/run_process.hpp"
#include "support/signals.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using test::musicalSignal;
using test::expectRunThenSilence;
using test::compareAudio;

std::vector<uint8_t> encode(int channels, long rate, int kbps, size_t frames = 9000, bool crc = false) {
    const auto enc = encodeLayer3(musicalSignal(frames, channels, rate).data(), frames, channels, rate, kbps, crc);
    EXPECT_TRUE(enc.ok);
    return enc.frames;
}

// Byte offsets of the frames of a clean constant-bitrate stream.
std::vector<size_t> frameStarts(const std::vector<uint8_t>& s) {
    static const int kbps1[16] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
    static const int kbps2[16] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
    std::vector<size_t> out;
    for (size_t p = 0; p + 4 <= s.size();) {
        if (s[p] != 0xFF || (s[p + 1] & 0xE0) != 0xE0 || (s[p + 2] >> 4) == 0) {
            ADD_FAILURE() << "no frame header at " << p;
            break;
        }
        const bool mpeg1 = (s[p + 1] & 0x18) == 0x18;
        const int shift = mpeg1 ? 0 : ((s[p + 1] & 0x18) == 0x10 ? 1 : 2);
        static const long rates[4] = {44100, 48000, 32000, 1};
        const long rate = rates[(s[p + 2] >> 2) & 3] >> shift;
        // (Not `(mpeg1 ? kbps1 : kbps2)[i]`: GCC 12 miscompiles that under -fsanitize=undefined.)
        const int kbps = mpeg1 ? kbps1[s[p + 2] >> 4] : kbps2[s[p + 2] >> 4];
        out.push_back(p);
        p += (mpeg1 ? 144000 : 72000) * kbps / rate + ((s[p + 2] >> 1) & 1);
    }
    return out;
}

// Independent decode: the mpg123 player, no gapless trimming, raw 16-bit output.
std::vector<int16_t> mpg123Tool(const std::vector<uint8_t>& stream, bool mix = false) {
    std::vector<std::string> args = {"mpg123", "-q", "--no-gapless", "-s", "-"};
    if (mix) args.insert(args.begin() + 3, "-m");
    const test::ProcessResult r = test::runProcess(args, {"", std::string(stream.begin(), stream.end())});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    std::vector<int16_t> out(r.out.size() / 2);
    std::memcpy(out.data(), r.out.data(), out.size() * 2);
    return out;
}

std::vector<int16_t> decode(const std::vector<uint8_t>& stream, size_t values, uint16_t codecParam = 0) {
    std::vector<int16_t> out(values, 0x5A5A);
    decodeLayer3Sample(stream.data(), stream.size(), codecParam, out.data(), values * 2);
    return out;
}

TEST(Layer3Decode, MatchesMpg123AcrossVersionsRatesAndChannels) {
    struct Case { int channels; long rate; int kbps; } cases[] = {
        {1, 44100, 128}, {2, 48000, 192}, {2, 22050, 64}, {1, 24000, 56}, {2, 16000, 48}, {1, 11025, 24}, {2, 8000, 16}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rate * 10 + c.channels);
        const auto stream = encode(c.channels, c.rate, c.kbps);
        const auto ref = mpg123Tool(stream);
        // One frame of output per stored frame, nothing trimmed.
        ASSERT_EQ(ref.size(), frameStarts(stream).size() * (c.rate > 24000 ? 1152 : 576) * c.channels);
        expectRunThenSilence(decode(stream, ref.size() + 3001), ref, ref.size());
        // A buffer shorter than the stream ends exactly at its size, even inside a value.
        std::vector<uint8_t> part(10000, 0x5A);
        decodeLayer3Sample(stream.data(), stream.size(), 0, reinterpret_cast<int16_t*>(part.data()), 8003);
        EXPECT_EQ(std::memcmp(part.data(), ref.data(), 8003), 0);
        for (size_t i = 8003; i < part.size(); ++i) ASSERT_EQ(part[i], 0x5A) << i;
    }
}

TEST(Layer3Decode, CodecParamDiscardsLeadingOutputBytes) {
    const auto mono = encode(1, 44100, 96);
    const auto full = decode(mono, 20000);
    // 1152 bytes: half of the first frame; the buffer starts with its second half.
    expectRunThenSilence(decode(mono, 5000, 1152), full, 5000, 576);

    // Bytes, not frames: an odd count shifts the stream by one byte.
    const auto stereo = encode(2, 32000, 128);
    const auto fullStereo = decode(stereo, 40000);
    const auto shifted = decode(stereo, 10000, 4001);
    EXPECT_EQ(std::memcmp(shifted.data(), reinterpret_cast<const uint8_t*>(fullStereo.data()) + 4001, 20000), 0);
}

TEST(Layer3Decode, HeadersMustAgreeWithTheFirstValidOne) {
    const auto a = encode(1, 44100, 128, 6000);
    const auto fullA = decode(a, 30000);
    const size_t valuesA = frameStarts(a).size() * 1152;

    // Junk ahead of the first frame, near-miss headers included (bitrate 15, reserved version,
    // reserved layer, sampling rate 3, free format), is skipped byte by byte.
    std::vector<uint8_t> junk = {0xFF, 0xFB, 0xF0, 0x00, 0xFF, 0xEB, 0x90, 0x00, 0xFF, 0xF9, 0x90, 0x00,
                                 0xFF, 0xFB, 0x9C, 0x00, 0xFF, 0xFB, 0x00, 0x00, 0xFF, 0x13, 0x37};
    for (int i = 0; i < 300; ++i) junk.push_back(static_cast<uint8_t>(i * 7 % 255));
    auto s = junk;
    s.insert(s.end(), a.begin(), a.end());
    expectRunThenSilence(decode(s, 30000), fullA, valuesA);

    // Frames at another sampling rate (same version, or MPEG-2) are refused.
    for (long rate : {48000L, 22050L}) {
        auto changed = a;
        const auto b = encode(1, rate, 64, 6000);
        changed.insert(changed.end(), b.begin(), b.end());
        expectRunThenSilence(decode(changed, 30000), fullA, valuesA);
    }

    // The first valid header is Layer II: no Layer III frame agrees with it, nothing decodes.
    std::vector<uint8_t> layer2 = {0xFF, 0xFD, 0x90, 0x04};
    layer2.resize(522);
    layer2.insert(layer2.end(), a.begin(), a.end());
    expectRunThenSilence(decode(layer2, 3000), fullA, 0);
    expectRunThenSilence(decode(std::vector<uint8_t>(junk.begin() + 4, junk.end()), 3000), fullA, 0);
}

TEST(Layer3Decode, DamagedStreamsNeverCrash) {
    const auto stream = encode(2, 22050, 64, 6000, true);
    const auto starts = frameStarts(stream);
    const size_t values = starts.size() * 576 * 2;
    const auto full = decode(stream, values);

    // The CRC is not checked: a wrong one changes nothing.
    auto badCrc = stream;
    for (size_t p : starts) badCrc[p + 4] ^= 0x5A;
    expectRunThenSilence(decode(badCrc, values), full, values);

    // Cut anywhere: every whole frame before the cut decodes as before, then silence.
    for (size_t cut = 0; cut < stream.size(); cut += 37) {
        size_t whole = 0;
        while (whole < starts.size() && (whole + 1 < starts.size() ? starts[whole + 1] : stream.size()) <= cut)
            ++whole;
        expectRunThenSilence(decode(std::vector<uint8_t>(stream.begin(), stream.begin() + cut), values), full,
                             whole * 1152);
    }

    // Junk between two frames loses sync: the frames before it are intact, and the frame after it,
    // whose main data began before the junk, decodes as silence rather than from unrelated bytes.
    const size_t at = starts[starts.size() / 2];
    ASSERT_GT((stream[at + 4] << 1) | (stream[at + 5] >> 7), 0) << "main_data_begin";
    auto gap = stream;
    gap.insert(gap.begin() + static_cast<long>(at), 37, 0x00);
    const auto withGap = decode(gap, values);
    const size_t before = starts.size() / 2 * 1152;
    for (size_t i = 0; i < before; ++i) ASSERT_EQ(withGap[i], full[i]) << i;
    for (size_t i = before; i < before + 1152; ++i) ASSERT_EQ(withGap[i], 0) << i;

    // Flipped bits in the second half: the frames before them are untouched.
    std::mt19937 rng(11);
    const size_t half = starts.size() / 2;
    for (int trial = 0; trial < 200; ++trial) {
        auto bad = stream;
        for (int k = 0; k < 1 + trial % 20; ++k)
            bad[starts[half] + rng() % (bad.size() - starts[half])] ^= static_cast<uint8_t>(1u << (rng() % 8));
        const auto out = decode(bad, values + 5000);
        for (size_t i = 0; i < half * 1152; ++i) ASSERT_EQ(out[i], full[i]) << "trial " << trial;
    }
    // Garbage: silence where no header stands, no crash where some do.
    std::vector<uint8_t> junk(20000);
    for (auto& b : junk) b = static_cast<uint8_t>(rng() % 0xFF);  // no 0xFF: no header anywhere
    expectRunThenSilence(decode(junk, 4000), full, 0);
    for (auto& b : junk) b = static_cast<uint8_t>(rng());
    decode(junk, 40000);
    std::vector<int16_t> none(10, 7);
    decodeLayer3Sample(nullptr, 0, 0, none.data(), 20);
    EXPECT_EQ(none, std::vector<int16_t>(10, 0));
}

TEST(Layer3RoundTrip, DelayAlignsAndSignalToNoise) {
    struct Case { int channels; long rate; int kbps; } cases[] = {
        {1, 44100, 64}, {1, 44100, 128}, {2, 44100, 128}, {2, 44100, 256}, {1, 22050, 32}, {2, 22050, 64}, {1, 16000, 48}};
    for (const auto& c : cases) {
        const size_t frames = static_cast<size_t>(c.rate);
        const auto pcm = musicalSignal(frames, c.channels, c.rate);
        const auto enc = encodeLayer3(pcm.data(), frames, c.channels, c.rate, c.kbps);
        ASSERT_TRUE(enc.ok);
        EXPECT_EQ(enc.frameRate, c.rate);
        auto at = [&](long shiftFrames) {
            return compareAudio(pcm, decode(enc.frames, pcm.size(), static_cast<uint16_t>(enc.delayBytes + shiftFrames * 2 * c.channels))).snrDb;
        };
        const double snr = at(0);
        std::printf("Layer III %d ch %ld Hz %d kbit/s: %zu bytes, SNR %.1f dB\n", c.channels, c.rate, c.kbps,
                    enc.frames.size(), snr);
        EXPECT_GT(snr, 10.0);
        // The input lines up with the output exactly at the delay.
        EXPECT_GT(snr, at(-3) + 1.0);
        EXPECT_GT(snr, at(3) + 1.0);
        // Every input frame lies within the decoded frames.
        const auto tail = decode(enc.frames, pcm.size(), static_cast<uint16_t>(enc.delayBytes));
        EXPECT_NE(tail[pcm.size() - 1] | tail[pcm.size() - 2] | tail[pcm.size() - 3], 0);
    }
    // A rate MPEG audio cannot carry is labelled with the nearest one, not resampled: the
    // output still lines up with the input value for value.
    const auto pcm = musicalSignal(20000, 1, 8363);
    const auto odd = encodeLayer3(pcm.data(), pcm.size(), 1, 8363, 32);
    EXPECT_EQ(odd.frameRate, 8000);
    EXPECT_GT(compareAudio(pcm, decode(odd.frames, pcm.size(), static_cast<uint16_t>(odd.delayBytes))).snrDb, 10.0);
}

}  // namespace
}  // namespace deqaz
