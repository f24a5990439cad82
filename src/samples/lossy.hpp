#pragma once
// Lossy sample decoders: Ogg Vorbis (libogg + libvorbis) and MPEG audio Layer III (libmpg123).
// Both fill a PCM buffer of `outBytes` bytes with signed 16-bit values interleaved by channel and
// never report an error; whatever cannot be decoded is left as silence (zeros).
#include <cstddef>
#include <cstdint>

namespace deqaz {

// One-time library set-up, done by the driver before any sample is decoded.
void initLossyDecoders();

// `header`/`headerSize`: Vorbis header pages borrowed from another sample (shared headers), or
// none (null, 0). The stream decoded is those bytes followed by the `storedSize` stored bytes.
void decodeVorbisSample(const uint8_t* header, size_t headerSize, const uint8_t* stored, size_t storedSize,
                        int16_t* out, size_t outBytes);

// One Vorbis float value as a 16-bit point: x * 32768 in single precision, truncated toward
// zero and saturated to -32768..32767 (so 1.0 gives 32767 and -0.00002 gives 0).
int16_t vorbisFloatToPcm16(float x);

// Decodes Layer III frames from memory, drops the first `codecParam` output bytes, and fills
// `outBytes` bytes exactly (zero-filled when the stream runs short).
void decodeLayer3Sample(const uint8_t* stored, size_t storedSize, uint16_t codecParam, int16_t* out,
                        size_t outBytes);

}  // namespace deqaz
