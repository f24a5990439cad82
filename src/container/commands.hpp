#pragma once
// The track commands: one numbering for all five formats. Commands 1 and 2 set the note and the
// instrument; 3 to 51 stand for the effects and volume-column commands of the formats, some
// shared by all, others belonging to the XM and MOD side or to the IT and S3M side. The readers
// make them and the translation turns them into each format's cells.
#include <cstdint>

namespace deqaz {

enum TrackCommandNumber : uint8_t {
    CMD_NOTE = 1,
    CMD_INSTRUMENT = 2,
    CMD_ARPEGGIO = 3,
    CMD_PORTA_UP = 4,    // XM 1
    CMD_PORTA_DOWN = 5,  // XM 2
    CMD_TONE_PORTA = 6,
    CMD_VIBRATO = 7,
    CMD_TONE_PORTA_VOLUME_SLIDE = 8,  // XM 5
    CMD_VIBRATO_VOLUME_SLIDE = 9,     // XM 6
    CMD_TREMOLO = 10,
    CMD_SET_PAN = 11,
    CMD_SAMPLE_OFFSET = 12,
    CMD_VOLUME_SLIDE = 13,  // XM A
    CMD_POSITION_JUMP = 14,
    CMD_SET_VOLUME = 15,
    CMD_PATTERN_BREAK = 16,
    CMD_EXTENDED = 17,  // XM E
    CMD_SPEED_TEMPO = 18,
    CMD_XM_TREMOR = 19,  // XM T
    CMD_VOLUME_COLUMN_SLIDE = 20,
    CMD_VOLUME_COLUMN_FINE_SLIDE = 21,
    CMD_SET_GLOBAL_VOLUME = 22,
    CMD_XM_GLOBAL_VOLUME_SLIDE = 23,  // XM H
    CMD_KEY_OFF = 24,                 // XM K
    CMD_SET_ENVELOPE_POSITION = 25,   // XM L
    CMD_XM_PAN_SLIDE = 26,            // XM P
    CMD_VOLUME_COLUMN_PAN_SLIDE = 27,
    CMD_MULTI_RETRIGGER = 28,  // XM R
    CMD_EXTRA_FINE_PORTA_UP = 29,    // XM X1
    CMD_EXTRA_FINE_PORTA_DOWN = 30,  // XM X2
    CMD_VOLUME_COLUMN_VIBRATO_SPEED = 31,
    CMD_VOLUME_COLUMN_VIBRATO_DEPTH = 32,
    CMD_IT_SET_SPEED = 33,      // IT A
    CMD_IT_VOLUME_SLIDE = 34,   // IT D
    CMD_IT_PORTA_DOWN = 35,     // IT E
    CMD_IT_PORTA_UP = 36,       // IT F
    CMD_IT_TREMOR = 37,         // IT I
    CMD_IT_RETRIGGER = 38,      // IT Q
    CMD_IT_FINE_VIBRATO = 39,   // IT U
    CMD_IT_CHANNEL_VOLUME = 40,        // IT M
    CMD_IT_CHANNEL_VOLUME_SLIDE = 41,  // IT N
    CMD_IT_PAN_SLIDE = 42,             // IT P
    CMD_IT_SPECIAL = 43,               // IT S
    CMD_IT_TEMPO = 44,                 // IT T
    CMD_IT_GLOBAL_VOLUME_SLIDE = 45,   // IT W
    CMD_IT_PANBRELLO = 46,             // IT Y
    CMD_MIDI_MACRO = 47,               // IT Z, XM Z
    CMD_IT_VOLUME_COLUMN_SLIDE = 48,       // IT volume column 65-104
    CMD_IT_VOLUME_COLUMN_PITCH_DOWN = 49,  // IT volume column 105-114
    CMD_IT_VOLUME_COLUMN_PITCH_UP = 50,    // IT volume column 115-124
    CMD_XM_W = 51,                         // XM effect 32
};

}  // namespace deqaz
