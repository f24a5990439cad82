// Prediction-coded sample data: known streams decode to known values, overlong codes are clamped
// and terminate, and every encoder is the exact inverse of its decoder.
#include "samples/predict.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace deqaz {
namespace {

using Unpack = void (*)(const uint8_t*, size_t, int16_t*, size_t);
using Pack = std::vector<uint8_t> (*)(const int16_t*, size_t);

struct Coder {
    const char* name;
    Unpack unpack;
    Pack pack;
    bool is16;
};
const Coder kCoders[] = {
    {"delta8", unpackDelta8, packDelta8, false},
    {"predict8", unpackPredict8, packPredict8, false},
    {"delta16", unpackDelta16, packDelta16, true},
    {"predict16", unpackPredict16, packPredict16, true},
};

// Decodes from a heap block of exactly the stored size, so ASan flags any read past it.
std::vector<int16_t> decode(Unpack unpack, const std::vector<uint8_t>& bytes, size_t count) {
    std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size() ? bytes.size() : 1]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    std::vector<int16_t> out(count, 0x5555);
    unpack(exact.get(), bytes.size(), out.data(), count);
    return out;
}

std::vector<int16_t> hex(std::initializer_list<uint16_t> values) {
    return std::vector<int16_t>(values.begin(), values.end());
}

// The mixed stream's first two delta8 values are worked by hand: 5A C3 holds v = 27 (d = 13) in
// its first ten bits; the six bits left, 000011, read with width 4 as one group (0, stop) and
// plain 0011: v = 3, d = 1. Any other width gives another value.
// Six values: also a stereo sample of length 3, one call with count 6, so the right channel's
// first values continue from the state the left channel left (the ramp, the acceleration).
TEST(PredictDecode, KnownStreams) {
    const std::vector<uint8_t> zeros{0, 0, 0, 0}, ones{0xFF, 0xFF, 0, 0, 0},
        mixed{0x5A, 0xC3, 0x96, 0x0F, 0xF0, 0x33, 0x81, 0x7E};
    struct Row {
        const std::vector<uint8_t>* bytes;
        std::vector<int16_t> expect[4];  // delta8, predict8, delta16, predict16
    } rows[] = {
        {&zeros,
         {hex({0xFF00, 0xFE00, 0xFD00, 0xFC00, 0xFB00, 0xFA00}),
          hex({0xFF00, 0xFC00, 0xF700, 0xF000, 0xE700, 0xDC00}),
          hex({0xFFFF, 0xFFFE, 0xFFFD, 0xFFFC, 0xFFFB, 0xFFFA}),
          hex({0xFFFF, 0xFFFC, 0xFFF7, 0xFFF0, 0xFFE7, 0xFFDC})}},
        {&ones,
         {hex({0x0F00, 0x0E00, 0x0D00, 0x0C00, 0x0B00, 0x0A00}),
          hex({0x0F00, 0x7F00, 0x7E00, 0x7B00, 0x7600, 0x6F00}),
          hex({0x00FF, 0x00FE, 0x00FD, 0x00FC, 0x00FB, 0x00FA}),
          hex({0x00FF, 0x827C, 0x7FFF, 0x7FFE, 0x7FFB, 0x7FF6})}},
        {&mixed,
         {hex({0x0D00, 0x0E00, 0x1000, 0x0D00, 0x0E00, 0xFF00}),
          hex({0x0D00, 0x2100, 0x3700, 0x4B00, 0x5E00, 0x6200}),
          hex({0xFF27, 0xFD7A, 0xFDF9, 0xFDF5, 0xFDC4, 0xFDE3}),
          hex({0xFF27, 0xFC34, 0xF8E9, 0xF5D9, 0xF296, 0xEF59})}},
    };
    for (const Row& row : rows)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(decode(kCoders[c].unpack, *row.bytes, 6), row.expect[c]) << kCoders[c].name;
}

TEST(PredictDecode, OverlongCodesAreClampedAndTerminate) {
    // 4096 bytes of 0xFF are one code of continuation bits; it is clamped to v = 2^30 - 1
    // (d = 2^29 - 1, which wraps to -1 at either sample width) and ends where the data does.
    // The zero bits after it are then v = 0 codes (d = -1), the first read with width 16 or 18.
    const std::vector<uint8_t> ff(4096, 0xFF);
    EXPECT_EQ(decode(unpackDelta8, ff, 4), hex({0xFF00, 0xFE00, 0xFD00, 0xFC00}));
    EXPECT_EQ(decode(unpackDelta16, ff, 4), hex({0xFFFF, 0xFFFE, 0xFFFD, 0xFFFC}));
    // Second order: pred = (2^28 - 1) + 2*(-1) saturates at the top, and 127 - 1 = 126 follows.
    EXPECT_EQ(decode(unpackPredict8, ff, 2), hex({0xFF00, 0x7E00}));
    EXPECT_EQ(decode(unpackPredict16, ff, 2), hex({0xFFFF, 0x7FFE}));

    // A clamped code followed by real data. 0x00 ends the long code (stop group, four plain
    // zeros) and starts the next one with its stop group; at width floor((4 + 29) / 2) = 16 the
    // plain bits are 0x1234: d = -0x91B, and -1 - 0x91B wraps to 0xE4.
    std::vector<uint8_t> tail(67, 0xFF);
    tail[64] = 0x00, tail[65] = 0x12, tail[66] = 0x34;
    EXPECT_EQ(decode(unpackDelta8, tail, 2), hex({0xFF00, 0xE400}));
}

TEST(PredictEncode, ShortestCodes) {
    // d = 13 (v = 27) at width 4 takes one 1-bit group (1, stop) and plain 1011; then v = 3 at
    // width 4 is group (0, stop) and plain 0011: 101011 000011, zero-padded.
    const int16_t worked[] = {0x0D00, 0x0E00};
    EXPECT_EQ(packDelta8(worked, 2), (std::vector<uint8_t>{0xAC, 0x30}));
    // Six v = 0 codes: 8-bit 6+4+3+3+3+3 bits; 16-bit 10, then 2-bit groups once the width is at
    // most 4: 7+5+4+4+4, so 34 bits. All zero bits.
    const std::vector<uint8_t> zeros{0, 0, 0, 0};
    for (const Coder& coder : kCoders) {
        const auto values = decode(coder.unpack, zeros, 6);
        EXPECT_EQ(coder.pack(values.data(), 6), std::vector<uint8_t>(coder.is16 ? 5 : 3, 0))
            << coder.name;
    }
}

// Test signals: both channels of a stereo pair are generated independently, so a stereo test is
// the same stream with count 2n.
std::vector<std::vector<int16_t>> testSignals(size_t n) {
    std::mt19937 rng(12345);
    std::vector<std::vector<int16_t>> signals;
    auto add = [&](auto f) {
        std::vector<int16_t> s(n);
        for (size_t i = 0; i < n; ++i) s[i] = static_cast<int16_t>(f(i));
        signals.push_back(std::move(s));
    };
    add([&](size_t) { return static_cast<int32_t>(rng() & 0xFFFF) - 32768; });  // white noise
    add([&](size_t i) { return std::lround(30000 * std::sin(i * 0.013) + rng() % 7); });  // smooth
    add([&](size_t i) { return i % 3 == 1 ? -32768 : 32767; });  // rail to rail
    add([&](size_t) { return -32768; });
    add([&](size_t) { return 4321; });
    // Blocks of 50 that jump between the rails and ramp away from them, forcing wrapped
    // differences and a saturated prediction at every jump.
    add([&](size_t i) {
        const int32_t ramp = static_cast<int32_t>(i % 50);
        return (i / 50) % 2 ? 32767 - ramp * 400 : -32768 + ramp;
    });
    return signals;
}

void expectRoundTrip(const Coder& coder, const std::vector<int16_t>& in, const char* what) {
    const auto bytes = coder.pack(in.data(), in.size());
    const auto out = decode(coder.unpack, bytes, in.size());
    std::vector<int16_t> expect = in;
    if (!coder.is16)
        for (auto& v : expect) v = static_cast<int16_t>(v & 0xFF00);  // 8-bit keeps the high byte
    size_t firstBad = 0;
    while (firstBad < in.size() && out[firstBad] == expect[firstBad]) ++firstBad;
    EXPECT_EQ(firstBad, in.size()) << coder.name << " " << what << " differs at " << firstBad;
}

// Every coder gives back every signal, mono and as a stereo stream (this signal on the left, the
// next on the right, one stream); a smooth signal packs well below its raw size, and white noise
// costs no more than a few bits a point over raw.
TEST(PredictRoundTrip, SignalsComeBackAndSmoothOnesShrink) {
    const auto signals = testSignals(20000);
    for (const Coder& coder : kCoders) {
        for (size_t s = 0; s < signals.size(); ++s) {
            expectRoundTrip(coder, signals[s], "mono");
            std::vector<int16_t> stereo(signals[s].begin(), signals[s].begin() + 3000);
            const auto& right = signals[(s + 1) % signals.size()];
            stereo.insert(stereo.end(), right.begin(), right.begin() + 3000);
            expectRoundTrip(coder, stereo, "stereo");
        }
        expectRoundTrip(coder, {}, "empty");
        const double raw = 20000.0 * (coder.is16 ? 2 : 1);
        const double noise = coder.pack(signals[0].data(), 20000).size() / raw;
        const double smooth = coder.pack(signals[1].data(), 20000).size() / raw;
        EXPECT_LT(smooth, 0.75) << coder.name;
        EXPECT_LT(noise, coder.is16 ? 1.3 : 1.6) << coder.name;
    }
}

}  // namespace
}  // namespace deqaz
