#pragma once
// ProTracker-family modules (MOD): the sizes of the layout, for the reader and the writer alike.
// A 20-byte song name, 31 sample slots of 30 bytes (15 in Soundtracker's files), the song length,
// the restart byte, the 128-entry order table and the 4-byte signature at 1080 that names the
// channel count; then patterns of 64 rows of 4-byte cells and the samples' signed 8-bit data.
#include <cstddef>
#include <cstdint>

namespace deqaz::mod {

inline constexpr size_t HEADER_SIZE = 1084;  // with 31 slots and the signature
inline constexpr size_t SIGNATURE_AT = 1080;
inline constexpr unsigned SLOTS = 31;
inline constexpr size_t SLOT_SIZE = 30;
inline constexpr unsigned ORDERS = 128;
inline constexpr unsigned ROWS = 64;
inline constexpr unsigned MAX_CHANNELS = 99;  // "99CH"
inline constexpr size_t CELL_SIZE = 4;

}  // namespace deqaz::mod
