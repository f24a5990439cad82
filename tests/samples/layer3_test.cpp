// MPEG Layer III sample decoding, checked against the mpg123 command-line player decoding the
// same frames, and the LAME encoder wrapper that makes such samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
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
