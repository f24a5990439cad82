#pragma once
// Impulse Tracker modules (IT): the file layout, for the reader and the writer alike.
//
// The 192-byte "IMPM" header, the order list, the offset table (32-bit file offsets of the
// instrument headers, the sample headers and the patterns), optionally the edit history, the
// MIDI configuration and ModPlug's extension chunks, the song message; then, where the offsets
// point, the 554-byte "IMPI" instrument headers, the 80-byte "IMPS" sample headers, the packed
// patterns (8-byte header: packed length, rows) and the sample data.
#include <cstddef>
#include <cstdint>

namespace deqaz::it {

inline constexpr size_t HEADER_SIZE = 192;
inline constexpr size_t INSTRUMENT_SIZE = 554;
inline constexpr size_t SAMPLE_SIZE = 80;
inline constexpr size_t ENVELOPE_SIZE = 82;
inline constexpr unsigned CHANNELS = 64;
inline constexpr unsigned ENVELOPE_NODES = 25;
inline constexpr unsigned MAX_ROWS = 1024;
inline constexpr uint8_t SURROUND = 100;  // a channel pan
inline constexpr uint8_t CHANNEL_DISABLED = 0x80;

// Header fields.
inline constexpr size_t NAME = 0x04, NAME_SIZE = 26;
inline constexpr size_t ORDER_COUNT = 0x20, INSTRUMENT_COUNT = 0x22, SAMPLE_COUNT = 0x24, PATTERN_COUNT = 0x26;
inline constexpr size_t CREATED_WITH = 0x28, COMPATIBLE_WITH = 0x2A, FLAGS = 0x2C, SPECIAL = 0x2E;
inline constexpr size_t GLOBAL_VOLUME = 0x30, MIX_VOLUME = 0x31, INITIAL_SPEED = 0x32, INITIAL_TEMPO = 0x33;
inline constexpr size_t SEPARATION = 0x34, MESSAGE_LENGTH = 0x36, MESSAGE_OFFSET = 0x38;
inline constexpr size_t CHANNEL_PANS = 0x40, CHANNEL_VOLUMES = 0x80;  // 64 bytes each

inline constexpr uint16_t FLAG_STEREO = 0x0001, FLAG_INSTRUMENTS = 0x0004, FLAG_LINEAR_SLIDES = 0x0008;
inline constexpr uint16_t FLAG_OLD_EFFECTS = 0x0010, FLAG_COMPAT_GXX = 0x0020, FLAG_1000 = 0x1000;
inline constexpr uint16_t SPECIAL_MESSAGE = 0x0001, SPECIAL_EDIT_HISTORY = 0x0002, SPECIAL_MIDI_CONFIG = 0x0008;

// Instrument header fields (IT 2.00 and later; the older layout is the reader's alone).
inline constexpr size_t INS_FILE_NAME = 0x04, FILE_NAME_SIZE = 12;
inline constexpr size_t INS_NEW_NOTE_ACTION = 0x11, INS_DUPLICATE_TYPE = 0x12, INS_DUPLICATE_ACTION = 0x13;
inline constexpr size_t INS_FADEOUT = 0x14;  // u16
inline constexpr size_t INS_PITCH_PAN_SEPARATION = 0x16, INS_PITCH_PAN_CENTRE = 0x17, INS_GLOBAL_VOLUME = 0x18;
inline constexpr size_t INS_PAN = 0x19, INS_RANDOM_VOLUME = 0x1A, INS_RANDOM_PAN = 0x1B;
inline constexpr size_t INS_NAME = 0x20;  // NAME_SIZE bytes
inline constexpr size_t INS_FILTER_CUTOFF = 0x3A, INS_FILTER_RESONANCE = 0x3B;
inline constexpr size_t INS_MIDI_CHANNEL = 0x3C, INS_MIDI_PROGRAM = 0x3D, INS_MIDI_BANK = 0x3E;  // bank: u16
inline constexpr size_t INS_KEYBOARD = 0x40;    // 120 pairs of note and sample
inline constexpr size_t INS_ENVELOPES = 0x130;  // volume, panning, pitch, ENVELOPE_SIZE each

// Sample header fields.
inline constexpr size_t SMP_FILE_NAME = 0x04, SMP_GLOBAL_VOLUME = 0x11, SMP_FLAGS = 0x12, SMP_VOLUME = 0x13;
inline constexpr size_t SMP_NAME = 0x14;  // NAME_SIZE bytes
inline constexpr size_t SMP_CONVERT = 0x2E, SMP_PAN = 0x2F;
inline constexpr size_t SMP_LENGTH = 0x30, SMP_LOOP_START = 0x34, SMP_LOOP_END = 0x38, SMP_FREQUENCY = 0x3C;
inline constexpr size_t SMP_SUSTAIN_START = 0x40, SMP_SUSTAIN_END = 0x44, SMP_DATA_OFFSET = 0x48;  // u32 each
inline constexpr size_t SMP_VIBRATO_SPEED = 0x4C, SMP_VIBRATO_DEPTH = 0x4D, SMP_VIBRATO_SWEEP = 0x4E;
inline constexpr size_t SMP_VIBRATO_TYPE = 0x4F;

inline constexpr uint8_t SMP_PRESENT = 0x01, SMP_16BIT = 0x02, SMP_STEREO = 0x04, SMP_COMPRESSED = 0x08;
inline constexpr uint8_t SMP_LOOP = 0x10, SMP_SUSTAIN = 0x20, SMP_PINGPONG = 0x40, SMP_SUSTAIN_PINGPONG = 0x80;
inline constexpr uint8_t CONVERT_SIGNED = 0x01;
inline constexpr uint8_t PAN_ENABLED = 0x80;  // in a sample's pan, and disabling an instrument's

}  // namespace deqaz::it
