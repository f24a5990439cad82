#pragma once
// Test audio for the lossy coders: a musical signal (decaying plucked notes with harmonics over a
// quieter chord, a different voicing per channel, interleaved) and the check that a decode
// buffer holds a reference run followed by silence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace deqaz::test {

inline std::vector<int16_t> musicalSignal(size_t frames, int channels, double rate) {
    std::vector<int16_t> pcm(frames * channels);
    const double notes[] = {220.0, 277.18, 329.63, 440.0};
    for (size_t i = 0; i < frames; ++i) {
        const double t = i / rate;
        for (int c = 0; c < channels; ++c) {
            const double f = notes[(i * 4 / frames + c) % 4];
            double v = 0;
            for (int h = 1; h <= 4; ++h) v += std::sin(2 * M_PI * f * h * t) / h;
            v *= 0.5 * std::exp(-6 * std::fmod(t, 0.25));
            v += 0.15 * std::sin(2 * M_PI * 110.0 * (c + 1) * t) + 0.1 * std::sin(2 * M_PI * 164.8 * t);
            pcm[i * channels + c] = static_cast<int16_t>(v * 20000);
        }
    }
    return pcm;
}

// Expects `out[i] == ref[from + i]` (within `tolerance`) for i < n and zeros after.
inline void expectRunThenSilence(const std::vector<int16_t>& out, const std::vector<int16_t>& ref, size_t n,
                                 size_t from = 0, int tolerance = 0) {
    ASSERT_LE(from + n, ref.size());
    ASSERT_LE(n, out.size());
    size_t bad = 0;
    for (size_t i = 0; i < n; ++i) bad += std::abs(out[i] - ref[from + i]) > tolerance;
    EXPECT_EQ(bad, 0u) << "values differing among the first " << n;
    for (size_t i = n; i < out.size(); ++i) ASSERT_EQ(out[i], 0) << "at " << i;
}

}  // namespace deqaz::test
