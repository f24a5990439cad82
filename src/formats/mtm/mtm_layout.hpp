#pragma once
// MultiTracker modules (MTM): the file layout, for the reader and the writer alike.
//
// In file order, with no padding: a 66-byte header ("MTM", version, song name, number of stored
// tracks, last pattern, last order, comment length, number of samples, attribute, beats per
// track, channels, 32 pan positions 0-15); 37-byte sample headers (name, length, loop start and
// loop end in bytes, finetune, volume, attribute bit 0 = 16-bit); the 128-byte order table; the
// tracks, 64 rows of 3 bytes each (6-bit note, 6-bit instrument, effect nibble, parameter); per
// pattern 32 little-endian track numbers (0 = the empty track, not stored); the comment in
// 40-byte lines; the sample data, unsigned.
#include <cstddef>
#include <cstdint>

namespace deqaz::mtm {

inline constexpr size_t HEADER_SIZE = 66;
inline constexpr size_t SAMPLE_SIZE = 37;
inline constexpr unsigned ORDERS = 128;  // entries of the order table
inline constexpr unsigned ROWS = 64;     // of every track
inline constexpr size_t TRACK_SIZE = ROWS * 3;
inline constexpr unsigned MAX_CHANNELS = 32;  // entries of a pattern's track list
inline constexpr size_t TRACK_LIST_SIZE = MAX_CHANNELS * 2;
inline constexpr size_t COMMENT_LINE = 40;
inline constexpr uint8_t VERSION = 0x10;
// A track row's note field f is the module's note f + 23 (the translation's 1-based note f + 24).
inline constexpr uint8_t NOTE_BIAS = 23;

// Header fields.
inline constexpr size_t NAME = 4, NAME_SIZE = 20;
inline constexpr size_t TRACK_COUNT = 24;   // u16: stored tracks
inline constexpr size_t LAST_PATTERN = 26;  // u8
inline constexpr size_t LAST_ORDER = 27;    // u8
inline constexpr size_t COMMENT_LENGTH = 28;  // u16
inline constexpr size_t SAMPLE_COUNT = 30;  // u8
inline constexpr size_t BEATS_PER_TRACK = 32;
inline constexpr size_t CHANNELS = 33;
inline constexpr size_t PANS = 34;  // 32 bytes, 0-15

// Sample header fields.
inline constexpr size_t SMP_NAME_SIZE = 22;
inline constexpr size_t SMP_LENGTH = 22, SMP_LOOP_START = 26, SMP_LOOP_END = 30;  // u32, bytes
inline constexpr size_t SMP_FINETUNE = 34, SMP_VOLUME = 35, SMP_ATTRIBUTE = 36;
inline constexpr uint8_t SMP_16BIT = 0x01;

}  // namespace deqaz::mtm
