#pragma once
// Lossless prediction-coded sample data: an adaptive-width variable-length code of the difference
// between each point and a prediction (plain delta, or a second-order predictor), as one bit
// stream per sample, 8- or 16-bit. Stereo data is one stream: the left channel then the right,
// with the coder state carried straight on.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace deqaz {

// Each decoder writes exactly `count` values to `out`, reading at most `storedSize` bytes; bits
// past the end of the stored data read as 0. 8-bit points are stored as value * 256.
void unpackDelta8(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count);
void unpackDelta16(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count);
void unpackPredict8(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count);
void unpackPredict16(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count);

// Encoders, the exact inverses: decoding their output with the matching decoder gives back the
// input. 8-bit encoders take values as the decoders produce them (point * 256; the low byte is
// ignored).
std::vector<uint8_t> packDelta8(const int16_t* in, size_t count);
std::vector<uint8_t> packDelta16(const int16_t* in, size_t count);
std::vector<uint8_t> packPredict8(const int16_t* in, size_t count);
std::vector<uint8_t> packPredict16(const int16_t* in, size_t count);

}  // namespace deqaz
