#pragma once
// FastTracker 2 modules (XM): the sizes and markers of the layout, for the reader and the writer
// alike. Version 1.04: the 60-byte preamble ("Extended Module: ", name, 0x1A, tracker name,
// version), the song header (its size counted from its own field, then the counts, flags, speed,
// tempo and the 256-entry order table), the patterns (a 9-byte header, then packed cells), then
// per instrument its header (29 bytes up to the sample count; 248 with the key map, envelopes
// and vibrato when it has samples), its 40-byte sample headers and their delta-coded data.
#include <cstddef>
#include <cstdint>

namespace deqaz::xm {

inline constexpr size_t PREAMBLE_SIZE = 60;           // up to and including the version
inline constexpr size_t HEADER_SIZE = 336;            // preamble and song header as written
inline constexpr uint32_t SONG_HEADER_SIZE = 276;     // the header-size field's value: from itself on
inline constexpr uint16_t VERSION = 0x0104;
inline constexpr uint16_t OLDEST_VERSION = 0x0102;    // 1.02 and 1.03: instruments first, sample data last
inline constexpr unsigned MAX_ORDERS = 256;
inline constexpr unsigned MAX_PATTERNS = 256;
inline constexpr unsigned MAX_INSTRUMENTS = 255;      // a sample names its instrument in one byte
inline constexpr unsigned MAX_ROWS = 1024;
inline constexpr size_t PATTERN_HEADER_SIZE = 9;
inline constexpr size_t INSTRUMENT_FIRST = 29;        // size, name, type, number of samples
inline constexpr size_t INSTRUMENT_SHORT = 33;        // an instrument without samples, as written
inline constexpr size_t INSTRUMENT_FULL = 248;        // with key map, envelopes and vibrato
inline constexpr size_t SAMPLE_HEADER_SIZE = 40;
inline constexpr unsigned KEYS = 96;
inline constexpr unsigned ENVELOPE_POINTS = 12;
inline constexpr uint8_t KEY_OFF = 97;
inline constexpr uint8_t PACKED = 0x80;  // a cell's flag byte; each low bit announces one field
inline constexpr uint8_t ADPCM = 0xAD;   // ModPlug's 4-bit ADPCM marker in a sample's reserved byte

}  // namespace deqaz::xm
