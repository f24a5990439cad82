#pragma once
// Scream Tracker 3 modules (S3M): the file layout, for the reader and the writer alike.
//
// The 96-byte header ("SCRM" at 44), the order list, 16-bit paragraph pointers (file offset / 16)
// to the 80-byte sample headers and to the patterns, and, when the header's byte 53 is 0xFC, a
// 32-byte channel pan table. A sample header points at its data with a 24-bit paragraph pointer;
// a pattern is a 16-bit length and 64 packed rows: per cell a flag byte (channel in bits 0-4;
// 0x20 note and instrument, 0x40 volume, 0x80 effect and parameter follow), 0 ending the row.
#include <cstddef>
#include <cstdint>

namespace deqaz::s3m {

inline constexpr size_t HEADER_SIZE = 96;
inline constexpr size_t SAMPLE_SIZE = 80;
inline constexpr unsigned CHANNEL_SLOTS = 32;  // channel settings, pan table, a cell's channel number
inline constexpr unsigned ROWS = 64;           // of every pattern
inline constexpr uint32_t PARAGRAPH = 16;      // the unit of every pointer

// Header fields.
inline constexpr size_t NAME_SIZE = 28;
inline constexpr size_t END_OF_TEXT = 28, FILE_TYPE = 29;  // 0x1A, 0x10 (module)
inline constexpr size_t ORDER_COUNT = 32, SAMPLE_COUNT = 34, PATTERN_COUNT = 36;  // u16
inline constexpr size_t FLAGS = 38, TRACKER = 40, SAMPLE_FORMAT = 42;             // u16
inline constexpr size_t SIGNATURE = 44;                                           // "SCRM"
inline constexpr size_t GLOBAL_VOLUME = 48, INITIAL_SPEED = 49, INITIAL_TEMPO = 50, MASTER_VOLUME = 51;
inline constexpr size_t PAN_TABLE_FLAG = 53;
inline constexpr size_t CHANNEL_SETTINGS = 64;  // 32 bytes

inline constexpr uint16_t FLAG_AMIGA_LIMITS = 0x10, FLAG_ST300_VOLSLIDES = 0x40;
inline constexpr uint16_t FLAGS_ST2 = 0x07;  // ST2 vibrato, ST2 tempo, Amiga slides
inline constexpr uint16_t TRACKER_ST300 = 0x1300, TRACKER_ST301 = 0x1301;
inline constexpr uint16_t SAMPLES_SIGNED = 1, SAMPLES_UNSIGNED = 2;
inline constexpr uint8_t MASTER_STEREO = 0x80;
inline constexpr uint8_t PAN_TABLE_PRESENT = 0xFC;
inline constexpr uint8_t PAN_VALID = 0x20;  // in a pan-table entry, beside the nibble
inline constexpr uint8_t CHANNEL_OFF = 0xFF;
inline constexpr uint8_t FIRST_ADLIB_SETTING = 16;  // settings 0-7 left, 8-15 right

// Sample header fields.
inline constexpr size_t SMP_TYPE = 0, SMP_FILE_NAME = 1, SMP_FILE_NAME_SIZE = 12;
inline constexpr size_t SMP_POINTER_HIGH = 13, SMP_POINTER_LOW = 14;
inline constexpr size_t SMP_LENGTH = 16, SMP_LOOP_START = 20, SMP_LOOP_END = 24;  // u32, frames
inline constexpr size_t SMP_VOLUME = 28, SMP_PACKING = 30, SMP_FLAGS = 31, SMP_FREQUENCY = 32;
inline constexpr size_t SMP_NAME = 48, SMP_NAME_SIZE = 28, SMP_SIGNATURE = 76;  // "SCRS"
inline constexpr uint8_t SMP_TYPE_SAMPLE = 1;  // 0 empty, 2 and up AdLib
inline constexpr uint8_t SMP_LOOP = 0x01, SMP_STEREO = 0x02, SMP_16BIT = 0x04;
inline constexpr uint8_t SMP_PACKING_ADPCM = 4;  // ModPlug's 4-bit ADPCM; 0 is plain data

// Packed cells.
inline constexpr uint8_t CELL_CHANNEL = 0x1F, CELL_NOTE = 0x20, CELL_VOLUME = 0x40, CELL_EFFECT = 0x80;
inline constexpr uint8_t NOTE_NONE = 0xFF, NOTE_OFF = 0xFE;

}  // namespace deqaz::s3m
