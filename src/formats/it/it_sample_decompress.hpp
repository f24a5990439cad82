#pragma once
// Impulse Tracker 2.14 / 2.15 compressed sample data.
//
// A compressed channel is a run of blocks. Each block is a 16-bit little-endian byte count and
// that many bytes of bit stream (read least significant bit first), and decodes to at most
// 0x8000 bytes of sample data: 0x8000 points of an 8-bit sample, 0x4000 of a 16-bit one. The bit
// stream holds deltas of variable width; the width starts at 9 (17 for 16-bit) and special
// values switch it. The decoded deltas are summed once (IT 2.14) or twice (IT 2.15) to give the
// points; both sums restart at 0 with every block, as does the width. A stereo sample stores its
// left channel whole, then its right channel, each as its own run of blocks.
#include <cstddef>
#include <cstdint>

namespace deqaz {

struct ItDecompressResult {
    size_t consumed = 0;    // bytes of input used: block headers and block bodies
    size_t frames = 0;      // points written to the output
    bool damaged = false;   // a block ended early or held an impossible width; its rest is filled
};

// Decodes one channel into `out` (at most `frames` points), stopping early only when the input
// has no further block header. Points are 16-bit PCM: an 8-bit point v is stored as v * 256.
// Never reads outside `in[0, size)` nor writes outside `out[0, frames)`.
ItDecompressResult decompressIt8(const uint8_t* in, size_t size, int16_t* out, size_t frames, bool it215);
ItDecompressResult decompressIt16(const uint8_t* in, size_t size, int16_t* out, size_t frames, bool it215);

}  // namespace deqaz
