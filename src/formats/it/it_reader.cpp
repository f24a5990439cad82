// IT reader: an Impulse Tracker module into the module model, the inverse of the IT writer.
//
// File layout: the 192-byte "IMPM" header, the order list, file offsets of the instrument, sample
// and pattern headers, an optional edit history (special bit 1) and MIDI configuration (special
// bit 3), OpenMPT's plugin chunks ("FXnn", "CHFX"), then anywhere in the file the song message,
// the 554-byte "IMPI" instrument headers (an older layout when the file is compatible with
// versions below 2.00), the 80-byte "IMPS" sample headers, the packed patterns and the sample
// data (raw, or IT 2.14/2.15 compressed).
//
// Choices that make read -> write -> read a fixpoint:
// - The writer appends one 0xFF order; a last 0xFF order is therefore not kept. An order list
//   whose last entry is not 0xFF is kept whole (the writer's 0xFF then ends it).
// - Channels: the channels up to the last one that holds anything in a pattern. Channels past it
//   are written disabled; their pan and volume are kept as the writer's 0.
// - Channel and instrument/sample pan: IT's 0-64 becomes the smallest 0-255 value the writer
//   maps back to it, (v * 255 + 63) / 64 (so 32 is 128, the centre, not 127, the surround code).
// - Mixing volume: the code whose image under the writer's formula is the file's value, else the
//   nearest (warned).
// - MIDI macros are kept only when the writer will write them back: a parametered slot is set
//   and a pattern uses Zxx or SFx.
// - Cells become commands in the order note, instrument, volume column, effect, so the effect
//   translation gives the volume column to the volume-column command first.
//
// Column moves (the same command comes back in the other column, meaning the same):
// - an effect X whose parameter is a multiple of 4, or 0xFF, in a cell with an empty volume
//   column comes back as volume-column panning;
// - an effect G whose parameter is one of the ten volume-column portamento speeds (0, 1, 4, 8,
//   16, 32, 64, 96, 128, 255), and an effect H whose parameter is 0 to 9, likewise come back as
//   volume-column tone portamento and vibrato depth.
//
// What cannot survive a round trip:
// - header: the row highlight, pitch-wheel depth, the mono flag (the writer always writes
//   stereo; warned), the flags for zero-volume mixing optimisation, MIDI pitch controller and
//   embedded MIDI request, the edit history, the created-with version (always 2.14), the mute
//   flag of a channel (a muted channel gets channel volume 0 instead, which keeps it silent
//   unless its own effects raise the volume; warned when it holds notes), invalid channel pans;
// - the mixing volume when no code maps to it (128 comes back as 127; warned);
// - MIDI macro texts other than the default globals and the "F0F0xxz"/"F0F0xxxx" forms the
//   writer rebuilds (warned), and plugin chunks past FX19 (warned);
// - instruments: a MIDI channel of 1 (the container's 0 means "no MIDI"), the MIDI bank's high
//   byte, the MIDI program and bank of an instrument without MIDI channel, the instrument-file
//   fields (tracker version, sample count), envelope nodes past the node count, bits of
//   envelope flags without meaning; instruments stored in a file in sample mode (not played,
//   not written); old-format (pre-2.00) instruments are converted to the new layout;
// - samples: the default pan value of a sample whose pan is off, the conversion flags (data is
//   written as plain signed PCM), compression (written uncompressed);
// - pattern cells: note byte 253 (a note fade, read as 252, also a note fade), instrument 0,
//   volume-column byte 255 and effects outside A-Z (warned), a parameter without an effect.
#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/endian.hpp"
#include "formats/it/it_layout.hpp"
#include "formats/midi_config.hpp"
#include "formats/it/it_sample_decompress.hpp"
#include "readers/module_reader.hpp"

namespace deqaz {

// ---------------------------------------------------------------------------------------------
// Effect and volume-column inverse, shared with the S3M reader.

namespace {


// The effect a letter comes from, for the letters that are one command. K and L are two.
constexpr uint8_t LETTER_COMMAND[27] = {
    0,
    CMD_IT_SET_SPEED,                 // A
    CMD_POSITION_JUMP,                  // B
    CMD_PATTERN_BREAK,                 // C
    CMD_IT_VOLUME_SLIDE,          // D
    CMD_IT_PORTA_DOWN,            // E
    CMD_IT_PORTA_UP,              // F
    CMD_TONE_PORTA,            // G
    CMD_VIBRATO,               // H
    CMD_IT_TREMOR,                // I
    CMD_ARPEGGIO,              // J
    0,                         // K: vibrato + volume slide
    0,                         // L: tone portamento + volume slide
    CMD_IT_CHANNEL_VOLUME,        // M
    CMD_IT_CHANNEL_VOLUME_SLIDE,  // N
    CMD_SAMPLE_OFFSET,                // O
    CMD_IT_PAN_SLIDE,             // P
    CMD_IT_RETRIGGER,             // Q
    CMD_TREMOLO,               // R
    CMD_IT_SPECIAL,               // S
    CMD_IT_TEMPO,                 // T
    CMD_IT_FINE_VIBRATO,          // U
    CMD_SET_GLOBAL_VOLUME,         // V
    CMD_IT_GLOBAL_VOLUME_SLIDE,   // W
    CMD_SET_PAN,               // X
    CMD_IT_PANBRELLO,             // Y
    CMD_MIDI_MACRO,            // Z
};

constexpr uint8_t LETTER_K = 11;
constexpr uint8_t LETTER_L = 12;

// The translation merges a volume slide into a vibrato or tone portamento already in the effect
// column, taking the slide's parameter. The first command's parameter is lost in the merge; it
// must only keep the command out of the volume column when that is empty: above vibrato depth 9
// and not one of the volume-column portamento speeds.
constexpr uint8_t MERGE_CARRIER = 0xFE;

constexpr uint8_t PORTA_VOLUME_SPEEDS[10] = {0, 1, 4, 8, 16, 32, 64, 96, 128, 255};

}  // namespace

bool appendItEffect(TrackRow& row, uint8_t letter, uint8_t parameter) {
    if (letter == 0 || letter > 26) return false;
    if (letter == LETTER_K || letter == LETTER_L) {
        row.push_back({letter == LETTER_K ? CMD_VIBRATO : CMD_TONE_PORTA, MERGE_CARRIER});
        row.push_back({CMD_IT_VOLUME_SLIDE, parameter});
        return true;
    }
    row.push_back({LETTER_COMMAND[letter], parameter});
    return true;
}

bool appendItVolume(TrackRow& row, uint8_t v) {
    if (v <= 64) {
        row.push_back({CMD_SET_VOLUME, v});
    } else if (v >= 105 && v <= 114) {
        row.push_back({CMD_IT_VOLUME_COLUMN_PITCH_DOWN, static_cast<uint8_t>(v - 105)});
    } else if (v >= 115 && v <= 124) {
        row.push_back({CMD_IT_VOLUME_COLUMN_PITCH_UP, static_cast<uint8_t>(v - 115)});
    } else if (v >= 128 && v <= 191) {
        row.push_back({CMD_SET_PAN, static_cast<uint8_t>((v - 128) * 4)});
    } else if (v == 192) {
        row.push_back({CMD_SET_PAN, 255});  // panning 64 is the translation's parameter 255
    } else if (v >= 193 && v <= 202) {
        row.push_back({CMD_TONE_PORTA, PORTA_VOLUME_SPEEDS[v - 193]});
    } else if (v >= 203 && v <= 212) {
        row.push_back({CMD_VIBRATO, static_cast<uint8_t>(v - 203)});
    } else if (v != 255) {
        // The volume slides (65-104) and the bytes IT gives no meaning (125-127, 213-254): the
        // raw volume-column command reproduces the byte exactly.
        row.push_back({CMD_IT_VOLUME_COLUMN_SLIDE, static_cast<uint8_t>(v - 65)});
    } else {
        return false;
    }
    return true;
}

namespace {

using namespace it;

constexpr uint8_t PAN_SURROUND = 127;
constexpr uint8_t LETTER_S = 19;
constexpr uint8_t LETTER_Z = 26;

// A fixed-width name field, cut at its first zero byte.
std::string fieldText(const uint8_t* field, size_t width) {
    const char* text = reinterpret_cast<const char*>(field);
    return std::string(text, strnlen(text, width));
}

ReadResult fail(const std::string& why) {
    ReadResult r;
    r.error = why;
    return r;
}

// IT's pan 0-64 as the smallest 0-255 value that the writers' v * 64 / 255 maps back to it.
int16_t panFromIt(unsigned v) { return static_cast<int16_t>((std::min(v, 64u) * 255 + 63) / 64); }

// The writer's image of a mixing volume code (see the IT writer): codes below 0 are offsets from
// 52; the others grow exponentially.
int mixVolumeImage(int code) {
    if (code < 0) return code + 52;
    const double factor = std::bit_cast<double>(uint64_t{0x3FC3D70A3D70A3D8});
    return static_cast<int>(std::exp(factor * code)) + 51;
}

// The code for a mixing volume: one whose image is the value when there is one, else the code
// whose image is nearest (only codes whose image fits a byte count).
int8_t mixVolumeCode(uint8_t value, bool& exact) {
    int best = -52;
    int bestDistance = 1 << 30;
    for (int code = -52; code <= 127; ++code) {
        const int image = mixVolumeImage(code);
        if (image > 255) break;  // images only grow from here
        const int distance = std::abs(image - value);
        if (distance < bestDistance) {
            best = code;
            bestDistance = distance;
        }
    }
    exact = bestDistance == 0;
    return static_cast<int8_t>(best);
}

// OpenMPT's plugin chunks after the MIDI configuration: "FXnn" (plugin nn) and "CHFX" (the
// plugin of each channel), each an id, a 32-bit size and the data.
bool chunkIdAt(const uint8_t* data, size_t size, size_t pos) {
    if (pos > size || size - pos < 8) return false;
    const uint8_t* p = data + pos;
    if (std::memcmp(p, "CHFX", 4) == 0) return true;
    return p[0] == 'F' && p[1] == 'X' && std::isdigit(p[2]) && std::isdigit(p[3]);
}

bool readPluginChunks(const uint8_t* data, size_t size, size_t pos, SongHeader& song, HeapArray<uint8_t>& channelFx,
                      ReadWarnings& warnings) {
    // The IT writer puts two zero bytes (an empty edit history) before the chunks even when the
    // header does not announce a history.
    if (!chunkIdAt(data, size, pos) && pos < size && size - pos >= 2 && data[pos] == 0 && data[pos + 1] == 0 &&
        chunkIdAt(data, size, pos + 2))
        pos += 2;
    while (chunkIdAt(data, size, pos)) {
        const uint8_t* p = data + pos;
        const uint32_t declared = rd32le(p + 4);
        pos += 8;
        const size_t length = std::min<size_t>(declared, size - pos);
        if (length < declared) warnings.add("IT: a plugin chunk runs past the end of the file; cut");
        if (std::memcmp(p, "CHFX", 4) == 0) {
            if (!channelFx.dupBuffer(data + pos, length)) return false;
        } else {
            const unsigned k = static_cast<unsigned>((p[2] - '0') * 10 + (p[3] - '0'));
            if (k < MAX_CHUNK_SLOTS) {
                ChunkSlot& slot = song.fxSlots[k];
                if (!slot.data.dupBuffer(data + pos, length)) return false;
                slot.size = static_cast<uint32_t>(length);
                slot.present = true;
            } else {
                warnings.add("IT: plugin chunks FX20 and above dropped");
            }
        }
        song.flags |= SH_EXTRA_CHUNKS;
        pos += length;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Instruments

enum class EnvelopeKind { Volume, Panning, Pitch };

// An 82-byte IT envelope: flags, node count, loop start/end, sustain start/end, 25 nodes of a
// signed value byte and a 16-bit tick. The container keeps sustain before loop and 16-bit
// values: panning centred on 32, pitch as (value + 32) * 32.
Envelope envelopeFromIt(const uint8_t* e, EnvelopeKind kind) {
    Envelope env;
    const uint8_t f = e[0];
    if (f & 0x01) env.flags |= 0x01;
    if (f & 0x02) env.flags |= 0x04;
    if (f & 0x04) env.flags |= 0x02;
    if (f & 0x08) env.flags |= 0x20;
    if (kind == EnvelopeKind::Pitch && (f & 0x80)) env.flags |= 0x10;
    env.pointCount = std::min<uint8_t>(e[1], ENVELOPE_NODES);
    env.loopStart = e[2];
    env.loopEnd = e[3];
    env.sustainStart = e[4];
    env.sustainEnd = e[5];
    for (unsigned k = 0; k < env.pointCount; ++k) {
        const auto value = static_cast<int8_t>(e[6 + 3 * k]);
        EnvelopePoint& point = env.points[k];
        point.tick = rd16le(e + 7 + 3 * k);
        switch (kind) {
            case EnvelopeKind::Volume: point.value = static_cast<uint8_t>(value); break;
            case EnvelopeKind::Panning: point.value = static_cast<uint16_t>(value + 32); break;
            case EnvelopeKind::Pitch: point.value = static_cast<uint16_t>((value + 32) * 32); break;
        }
    }
    return env;
}

InstrumentRecord defaultInstrument() {
    InstrumentRecord ins;
    for (unsigned i = 0; i < 120; ++i) ins.noteMap[i] = {static_cast<uint16_t>(i), 0xFFFF};
    ins.globalVolume = 128;
    ins.pitchPanCentre = 60;  // C-5
    return ins;
}

void keyboardFromIt(const uint8_t* k, InstrumentRecord& ins) {
    for (unsigned i = 0; i < 120; ++i) {
        ins.noteMap[i].note = k[2 * i];
        const uint8_t s = k[2 * i + 1];
        ins.noteMap[i].sample = s == 0 ? 0xFFFF : static_cast<uint16_t>(s - 1);
    }
}

// The 554-byte layout of IT 2.00 and later.
InstrumentRecord instrumentFromIt(const uint8_t* h, ReadWarnings& warnings) {
    InstrumentRecord ins;
    ins.fileName = fieldText(h + INS_FILE_NAME, FILE_NAME_SIZE);
    ins.newNoteAction = h[INS_NEW_NOTE_ACTION];
    ins.duplicateCheckType = h[INS_DUPLICATE_TYPE];
    ins.duplicateCheckAction = h[INS_DUPLICATE_ACTION];
    uint16_t fadeout = rd16le(h + INS_FADEOUT);
    if (fadeout > 0x7FF) {
        warnings.add("IT: instrument fade-out above 2047 cut to 2047");
        fadeout = 0x7FF;
    }
    ins.fadeout = static_cast<uint16_t>(fadeout << 5);
    ins.pitchPanSeparation = h[INS_PITCH_PAN_SEPARATION];
    ins.pitchPanCentre = h[INS_PITCH_PAN_CENTRE];
    ins.globalVolume = h[INS_GLOBAL_VOLUME];
    ins.pan = (h[INS_PAN] & 0x80) ? int16_t{-1} : panFromIt(h[INS_PAN]);
    ins.randomVolume = h[INS_RANDOM_VOLUME];
    ins.randomPan = static_cast<uint16_t>(h[INS_RANDOM_PAN] << 2);
    ins.name = fieldText(h + INS_NAME, NAME_SIZE);
    ins.filterCutoff = h[INS_FILTER_CUTOFF];
    ins.filterResonance = h[INS_FILTER_RESONANCE];
    const uint8_t midiChannel = h[INS_MIDI_CHANNEL];
    if (midiChannel >= 2) {
        ins.midiChannel = static_cast<uint8_t>(midiChannel - 1);
        ins.midiProgram = h[INS_MIDI_PROGRAM];
        ins.midiBank = h[INS_MIDI_BANK];
        if (h[INS_MIDI_BANK + 1]) warnings.add("IT: high byte of an instrument's MIDI bank dropped");
    } else if (midiChannel == 1) {
        warnings.add("IT: instrument MIDI channel 1 cannot be kept (0 means no MIDI); dropped");
    }
    keyboardFromIt(h + INS_KEYBOARD, ins);
    ins.volumeEnvelope = envelopeFromIt(h + INS_ENVELOPES, EnvelopeKind::Volume);
    ins.panningEnvelope = envelopeFromIt(h + INS_ENVELOPES + ENVELOPE_SIZE, EnvelopeKind::Panning);
    ins.pitchEnvelope = envelopeFromIt(h + INS_ENVELOPES + 2 * ENVELOPE_SIZE, EnvelopeKind::Pitch);
    return ins;
}

// The layout of files compatible with IT versions below 2.00: one volume envelope of up to 25
// nodes (tick byte, value byte; a tick of 0xFF ends the list), a fade-out counted half as fine,
// and a duplicate-note check that is on or off.
InstrumentRecord instrumentFromOldIt(const uint8_t* h) {
    InstrumentRecord ins = defaultInstrument();
    ins.fileName = fieldText(h + 0x04, 12);
    const uint8_t f = h[0x11];
    Envelope& env = ins.volumeEnvelope;
    if (f & 0x01) env.flags |= 0x01;
    if (f & 0x02) env.flags |= 0x04;
    if (f & 0x04) env.flags |= 0x02;
    env.loopStart = h[0x12];
    env.loopEnd = h[0x13];
    env.sustainStart = h[0x14];
    env.sustainEnd = h[0x15];
    ins.fadeout = static_cast<uint16_t>(std::min<unsigned>(rd16le(h + 0x18) * 2u, 0x7FF) << 5);
    ins.newNoteAction = h[0x1A];
    if (h[0x1B]) {
        ins.duplicateCheckType = 1;    // note
        ins.duplicateCheckAction = 0;  // cut
    }
    ins.pan = -1;
    ins.name = fieldText(h + 0x20, 26);
    keyboardFromIt(h + 0x40, ins);
    unsigned n = 0;
    while (n < ENVELOPE_NODES && h[0x1F8 + 2 * n] != 0xFF) {
        env.points[n] = {h[0x1F8 + 2 * n], h[0x1F9 + 2 * n]};
        ++n;
    }
    env.pointCount = static_cast<uint8_t>(n);
    return ins;
}

// ---------------------------------------------------------------------------------------------
// Samples

struct ItSampleHeader {
    uint8_t flags = 0;
    uint8_t convert = 0;
    uint32_t dataOffset = 0;
};

SampleRecord sampleFromIt(const uint8_t* h, ItSampleHeader& raw) {
    SampleRecord smp;
    smp.fileName = fieldText(h + SMP_FILE_NAME, FILE_NAME_SIZE);
    smp.globalVolume = h[SMP_GLOBAL_VOLUME];
    raw.flags = h[SMP_FLAGS];
    smp.volume = h[SMP_VOLUME];
    smp.name = fieldText(h + SMP_NAME, NAME_SIZE);
    raw.convert = h[SMP_CONVERT];
    smp.pan = (h[SMP_PAN] & 0x80) ? panFromIt(h[SMP_PAN] & 0x7F) : int16_t{-1};
    smp.length = (raw.flags & 0x01) ? rd32le(h + SMP_LENGTH) : 0;  // no data without the "present" bit
    smp.loopStart = rd32le(h + SMP_LOOP_START);
    smp.loopEnd = rd32le(h + SMP_LOOP_END);
    smp.frequency = rd32le(h + SMP_FREQUENCY);
    smp.sustainStart = rd32le(h + SMP_SUSTAIN_START);
    smp.sustainEnd = rd32le(h + SMP_SUSTAIN_END);
    raw.dataOffset = rd32le(h + SMP_DATA_OFFSET);
    smp.vibratoSpeed = h[SMP_VIBRATO_SPEED];
    smp.vibratoDepth = h[SMP_VIBRATO_DEPTH];
    smp.vibratoSweep = h[SMP_VIBRATO_SWEEP];
    smp.vibratoType = h[SMP_VIBRATO_TYPE];
    if (raw.flags & 0x02) smp.flags |= SF_16BIT;
    if (raw.flags & 0x04) smp.flags |= SF_STEREO;
    if (raw.flags & 0x10) {
        smp.flags |= SF_LOOP;
        if (raw.flags & 0x40) smp.flags |= SF_PINGPONG;
    }
    if (raw.flags & 0x20) {
        smp.flags |= SF_SUSTAIN;
        if (raw.flags & 0x80) smp.flags |= SF_SUSTAIN_PINGPONG;
    }
    return smp;
}

// IT 2.14/2.15 compressed data: each channel's blocks in turn. Every point takes at least one
// bit, so the data present bounds the frames (and what is allocated for them).
bool readCompressedSample(const uint8_t* data, size_t size, size_t offset, bool it215, SampleRecord& smp,
                          ReadWarnings& warnings) {
    const bool wide = (smp.flags & SF_16BIT) != 0;
    const size_t available = offset < size ? size - offset : 0;
    const uint64_t bound = static_cast<uint64_t>(available) * 8;
    size_t frames = static_cast<size_t>(std::min<uint64_t>(smp.length, bound));
    const unsigned channels = (smp.flags & SF_STEREO) ? 2 : 1;
    size_t pos = offset;
    bool damaged = false;
    for (unsigned c = 0; c < channels; ++c) {
        HeapArray<int16_t>& pcm = smp.pcm[c];
        if (!pcm.allocZeroed(frames)) return false;
        const uint8_t* in = data + std::min(pos, size);
        const size_t left = pos < size ? size - pos : 0;
        const ItDecompressResult r = wide ? decompressIt16(in, left, pcm.data(), frames, it215)
                                          : decompressIt8(in, left, pcm.data(), frames, it215);
        pos += r.consumed;
        damaged |= r.damaged;
        if (c == 0 && r.frames < frames) {
            frames = r.frames;  // the first channel ran out of blocks: the sample ends there
            if (!pcm.shrink(frames)) return false;
        } else if (r.frames < frames) {
            damaged = true;  // a right channel without all its blocks: the rest is silence
        }
    }
    if (frames < smp.length) warnings.add("IT: compressed sample data cut short by the end of the file");
    if (damaged) warnings.add("IT: damaged compressed sample blocks filled with their last value");
    smp.length = static_cast<uint32_t>(frames);
    if (frames == 0) {
        smp.pcm[0].reset();
        smp.pcm[1].reset();
    }
    return true;
}

bool readSampleData(const uint8_t* data, size_t size, const ItSampleHeader& raw, SampleRecord& smp,
                    ReadWarnings& warnings) {
    if (smp.length == 0) return true;
    if (raw.flags & 0x08) return readCompressedSample(data, size, raw.dataOffset, (raw.convert & 0x04) != 0, smp, warnings);
    if (raw.convert == 0xFF && !(smp.flags & (SF_16BIT | SF_STEREO))) {
        warnings.add("IT: ADPCM-coded samples written back as plain PCM");
        bool cut = false;
        if (!readAdpcmSample(data, size, raw.dataOffset, smp, cut)) return false;
        if (cut) warnings.add("IT: ADPCM sample data cut short by the end of the file");
        return true;
    }
    RawPcmLayout layout;
    layout.sixteenBit = (smp.flags & SF_16BIT) != 0;
    layout.stereo = (smp.flags & SF_STEREO) != 0;
    layout.isSigned = (raw.convert & 0x01) != 0;
    layout.bigEndian = (raw.convert & 0x02) != 0;
    layout.delta = (raw.convert & 0x04) != 0;
    bool truncated = false;
    if (!readRawSample(data, size, raw.dataOffset, layout, smp, truncated)) return false;
    if (truncated) warnings.add("IT: sample data cut short by the end of the file");
    return true;
}

// ---------------------------------------------------------------------------------------------
// Patterns

// One unpacked cell; `what` says which fields it has (the mask bits 0x01-0x08 after the
// "same as last" bits have been resolved).
struct ItCell {
    uint16_t row;
    uint8_t channel;
    uint8_t what;
    uint8_t note, instrument, volume, effect, parameter;
};

struct ItPattern {
    unsigned rows = 64;
    std::vector<ItCell> cells;
};

// Unpacks the rows of one pattern from [start, end). A channel byte (channel + 1, plus 0x80 when
// a new mask follows) starts each cell, 0 ends the row; mask bits 0x01-0x08 announce note,
// instrument, volume and effect bytes, 0x10-0x80 repeat the channel's last ones. A channel named
// twice in one row (a damaged file) keeps the fields of both, the later ones winning. Returns the
// offset after the last row, or 0 when the data ends first (the rows read so far are kept).
size_t unpackRows(const uint8_t* data, size_t start, size_t end, ItPattern& pattern) {
    ByteReader in(data, end);
    in.seek(start);
    std::array<uint8_t, CHANNELS> lastMask{}, lastNote{}, lastInstrument{}, lastVolume{}, lastEffect{}, lastParameter{};
    for (unsigned r = 0; r < pattern.rows; ++r) {
        std::array<size_t, CHANNELS> cellOf;
        cellOf.fill(SIZE_MAX);
        for (;;) {
            if (!in.has(1)) return 0;
            const uint8_t channelByte = in.u8();
            if (channelByte == 0) break;
            const unsigned ch = (channelByte - 1u) & 63;
            uint8_t mask = lastMask[ch];
            if (channelByte & 0x80) mask = lastMask[ch] = in.u8();
            if (mask & 0x01) lastNote[ch] = in.u8();
            if (mask & 0x02) lastInstrument[ch] = in.u8();
            if (mask & 0x04) lastVolume[ch] = in.u8();
            if (mask & 0x08) {
                lastEffect[ch] = in.u8();
                lastParameter[ch] = in.u8();
            }
            if (in.overrun()) return 0;
            if (cellOf[ch] == SIZE_MAX) {
                cellOf[ch] = pattern.cells.size();
                pattern.cells.push_back(ItCell{static_cast<uint16_t>(r), static_cast<uint8_t>(ch), 0, 0, 0, 0, 0, 0});
            }
            ItCell& cell = pattern.cells[cellOf[ch]];
            if (mask & 0x11) cell.what |= 0x01, cell.note = lastNote[ch];
            if (mask & 0x22) cell.what |= 0x02, cell.instrument = lastInstrument[ch];
            if (mask & 0x44) cell.what |= 0x04, cell.volume = lastVolume[ch];
            if (mask & 0x88) cell.what |= 0x08, cell.effect = lastEffect[ch], cell.parameter = lastParameter[ch];
        }
    }
    return in.pos();
}

// One pattern: an 8-byte header (packed length, rows), then the packed rows, bounded by the
// length as IT loads them. The length field has 16 bits, so a longer pattern (which the IT
// writer stores modulo 65536) is recognised by rows that end exactly at a 65536 multiple past it.
void unpackPattern(const uint8_t* data, size_t size, uint32_t offset, ItPattern& pattern, ReadWarnings& warnings) {
    if (offset == 0) return;  // IT's empty 64-row pattern
    if (offset > size || size - offset < 8) {
        warnings.add("IT: a pattern lies past the end of the file; read as empty");
        return;
    }
    const size_t start = offset + 8;
    const size_t length = rd16le(data + offset);
    pattern.rows = rd16le(data + offset + 2);
    if (pattern.rows == 0 || pattern.rows > MAX_ROWS) {
        warnings.add("IT: pattern row count outside 1-1024 read as 64");
        pattern.rows = 64;
    }
    if (size - start > length + 0xFFFF) {
        const size_t end = unpackRows(data, start, size, pattern);
        if (end != 0 && (end - start <= length || (end - start) % 0x10000 == length)) return;
        pattern.cells.clear();
    }
    if (unpackRows(data, start, std::min(size, start + length), pattern) == 0)
        warnings.add("IT: a pattern's packed data ends early; the rest is empty");
}

// What the pattern cells hold beyond what commands can express, counted for the warnings.
struct CellLosses {
    unsigned volumes255 = 0;
    unsigned unknownEffects = 0;
};

// The commands of one cell: note, instrument, volume column, effect, in that order.
void cellCommands(const ItCell& c, TrackRow& row, CellLosses& losses) {
    if (c.what & 0x01) {
        // 0-119 notes, 254 cut, 255 off; the rest are note fades. 253 would come back as a cut.
        const uint8_t n = c.note == 253 ? 252 : c.note;
        row.push_back({CMD_NOTE, n});
    }
    if ((c.what & 0x02) && c.instrument != 0) row.push_back({CMD_INSTRUMENT, static_cast<uint8_t>(c.instrument - 1)});
    if ((c.what & 0x04) && !appendItVolume(row, c.volume)) ++losses.volumes255;
    if ((c.what & 0x08) && c.effect != 0 && !appendItEffect(row, c.effect, c.parameter)) ++losses.unknownEffects;
}

bool usesMacro(const ItCell& c) {
    return (c.what & 0x08) && (c.effect == LETTER_Z || (c.effect == LETTER_S && (c.parameter >> 4) == 0xF));
}

// ---------------------------------------------------------------------------------------------

struct ItHeader {
    uint16_t orders, instruments, samples, patterns;
    uint16_t compatible;
    uint16_t flags, special;
    uint16_t messageLength;
    uint32_t messageOffset;
};

// The song's flags and fields from the header, and the order list.
bool readSongFields(const uint8_t* data, const ItHeader& h, SongHeader& song, ReadWarnings& warnings) {
    song.flags = SH_ORIGIN_IT;
    if (h.flags & FLAG_INSTRUMENTS) song.flags |= SH_IT_INSTRUMENTS;
    if (h.flags & FLAG_LINEAR_SLIDES) song.flags |= SH_LINEAR_SLIDES;
    if (!(h.flags & FLAG_OLD_EFFECTS)) song.flags |= SH_IT_NO_OLD_EFFECTS;
    if (!(h.flags & FLAG_COMPAT_GXX)) song.flags |= SH_IT_NO_COMPAT_GXX;
    if (h.flags & FLAG_1000) song.flags |= SH_IT_FLAG_1000;
    if (!(h.flags & FLAG_STEREO)) warnings.add("IT: mono song written back as stereo");

    song.name = fieldText(data + NAME, NAME_SIZE);
    song.globalVolume = data[GLOBAL_VOLUME];
    bool exactMix;
    song.mixVolume = mixVolumeCode(data[MIX_VOLUME], exactMix);
    if (!exactMix) {
        char text[80];
        std::snprintf(text, sizeof text, "IT: mixing volume %u written back as %d", data[MIX_VOLUME], mixVolumeImage(song.mixVolume));
        warnings.add(text);
    }
    song.initialSpeed = data[INITIAL_SPEED];
    song.initialTempo = data[INITIAL_TEMPO];
    song.separation = data[SEPARATION];

    // Orders, without the end marker the writer adds back.
    size_t orderCount = h.orders;
    if (orderCount > 0 && data[HEADER_SIZE + orderCount - 1] == 0xFF) --orderCount;
    song.orderCount = static_cast<uint16_t>(orderCount);
    song.hasOrders = true;
    return song.orders.dupBuffer(data + HEADER_SIZE, orderCount);
}

// What follows the offset table: the edit history, the MIDI configuration, the plugin chunks;
// and the song message wherever it lies.
bool readExtras(const uint8_t* data, size_t size, size_t pos, const ItHeader& h, SongHeader& song,
                HeapArray<uint8_t>& channelFx, ReadWarnings& warnings) {
    // Without instrument mode, deqaz's IT writer keeps room in the offset table for the
    // instrument records it leaves out: zero entries the header does not count.
    if (!(h.flags & FLAG_INSTRUMENTS) && h.instruments == 0)
        while (pos <= size && size - pos >= 4 && rd32le(data + pos) == 0) pos += 4;
    if ((h.special & SPECIAL_EDIT_HISTORY) && size - pos >= 2) pos += 2 + 8 * size_t{rd16le(data + pos)};
    if (h.special & SPECIAL_MIDI_CONFIG) {
        if (pos <= size && size - pos >= midi::BLOCK_SIZE) {
            if (const unsigned lost = midi::readConfig(data + pos, midi::BLOCK_SIZE, song))
                warnings.add("IT: MIDI macro texts the container cannot hold dropped", lost);
            pos += midi::BLOCK_SIZE;
        } else {
            warnings.add("IT: MIDI configuration past the end of the file ignored");
        }
    }
    if (!readPluginChunks(data, size, pos, song, channelFx, warnings)) return false;

    if ((h.special & SPECIAL_MESSAGE) && h.messageLength > 0) {
        if (h.messageOffset < size) {
            const char* text = reinterpret_cast<const char*>(data + h.messageOffset);
            const size_t length = std::min<size_t>(h.messageLength, size - h.messageOffset);
            song.message.assign(text, strnlen(text, length));
            if (length < h.messageLength) warnings.add("IT: song message cut short by the end of the file");
        } else {
            warnings.add("IT: song message past the end of the file ignored");
        }
    }
    return true;
}

// Instruments (only in instrument mode are they played and written) and samples with their data.
bool readInstrumentsAndSamples(const uint8_t* data, size_t size, const ItHeader& h, size_t tableAt, SongHeader& song,
                               ReadWarnings& warnings) {
    auto offsetAt = [&](size_t k) { return rd32le(data + tableAt + 4 * k); };
    if (h.flags & FLAG_INSTRUMENTS) {
        song.instruments.reserve(h.instruments);
        for (unsigned i = 0; i < h.instruments; ++i) {
            const uint32_t at = offsetAt(i);
            if (at == 0 || at > size || size - at < INSTRUMENT_SIZE || std::memcmp(data + at, "IMPI", 4) != 0) {
                warnings.add("IT: a missing or damaged instrument header read as an empty instrument");
                song.instruments.push_back(defaultInstrument());
                continue;
            }
            song.instruments.push_back(h.compatible < 0x200 ? instrumentFromOldIt(data + at)
                                                            : instrumentFromIt(data + at, warnings));
        }
    } else if (h.instruments > 0) {
        warnings.add("IT: instruments of a song in sample mode dropped");
    }
    song.instrumentCount = static_cast<uint16_t>(song.instruments.size());

    song.samples.resize(h.samples);
    song.sampleCount = h.samples;
    for (unsigned i = 0; i < h.samples; ++i) {
        SampleRecord& smp = song.samples[i];
        const uint32_t at = offsetAt(size_t{h.instruments} + i);
        if (at == 0 || at > size || size - at < SAMPLE_SIZE || std::memcmp(data + at, "IMPS", 4) != 0) {
            warnings.add("IT: a missing or damaged sample header read as an empty sample");
            continue;
        }
        ItSampleHeader raw;
        smp = sampleFromIt(data + at, raw);
        if (!readSampleData(data, size, raw, smp, warnings)) return false;
        fitLoops(smp);
    }
    return true;
}

// The channels: as many as the last one a pattern uses, with their pans and volumes (a muted
// channel kept silent by its volume: the container has no mute flag). True in `macroCommands`
// when a cell asks for a MIDI macro.
unsigned readChannels(const uint8_t* data, const std::vector<ItPattern>& patterns, SongHeader& song, bool& macroCommands,
                      ReadWarnings& warnings) {
    unsigned channels = 1;
    macroCommands = false;
    std::array<bool, CHANNELS> used{};
    CellLosses losses;
    for (const ItPattern& pattern : patterns) {
        for (const ItCell& c : pattern.cells) {
            TrackRow probe;
            cellCommands(c, probe, losses);
            if (probe.empty()) continue;
            used[c.channel] = true;
            channels = std::max(channels, c.channel + 1u);
            macroCommands |= usesMacro(c);
        }
    }
    song.channels = static_cast<uint8_t>(channels);
    for (unsigned c = 0; c < channels; ++c) {
        const uint8_t raw = data[CHANNEL_PANS + c];
        const uint8_t pan = raw & 0x7F;
        if (pan == SURROUND)
            song.channelPan[c] = PAN_SURROUND;
        else if (pan <= 64)
            song.channelPan[c] = static_cast<uint8_t>(panFromIt(pan));
        else {
            warnings.add("IT: invalid channel pan read as centre");
            song.channelPan[c] = 128;
        }
        song.channelVolume[c] = data[CHANNEL_VOLUMES + c];
        if (raw & 0x80) {
            if (used[c]) warnings.add("IT: a muted channel that holds notes is written with channel volume 0");
            song.channelVolume[c] = 0;
        }
    }
    return channels;
}

// The writer writes the macros back only when a parametered slot is set and a pattern uses them;
// otherwise they would not come back, so they are not kept.
void keepMacrosOnlyIfWritten(SongHeader& song, bool macroCommands, ReadWarnings& warnings) {
    const bool anySfx = std::any_of(song.sfxMacro.begin(), song.sfxMacro.end(), [](uint8_t v) { return v != 0; });
    if (anySfx && macroCommands) return;
    const bool anyZxx = std::any_of(song.zxxMacro.begin(), song.zxxMacro.end(), [](uint16_t v) { return v != 0; });
    if (macroCommands && anyZxx) warnings.add("IT: fixed MIDI macros without a parametered macro dropped");
    song.sfxMacro.fill(0);
    song.zxxMacro.fill(0);
}

}  // namespace

ReadResult readIt(const uint8_t* data, size_t size) {
    if (size < 4 || std::memcmp(data, "IMPM", 4) != 0) return fail("not an IT file: no \"IMPM\" signature");
    if (size < HEADER_SIZE) return fail("IT file truncated in its header");

    ItHeader h{};
    h.orders = rd16le(data + ORDER_COUNT);
    h.instruments = rd16le(data + INSTRUMENT_COUNT);
    h.samples = rd16le(data + SAMPLE_COUNT);
    h.patterns = rd16le(data + PATTERN_COUNT);
    h.compatible = rd16le(data + COMPATIBLE_WITH);
    h.flags = rd16le(data + FLAGS);
    h.special = rd16le(data + SPECIAL);
    h.messageLength = rd16le(data + MESSAGE_LENGTH);
    h.messageOffset = rd32le(data + MESSAGE_OFFSET);
    const size_t tableAt = HEADER_SIZE + h.orders;
    const size_t tableEnd = tableAt + 4 * (size_t{h.instruments} + h.samples + h.patterns);
    if (tableEnd > size) return fail("IT file truncated in its order list or offset tables");

    ReadWarnings warnings;
    auto song = std::make_unique<SongHeader>();
    HeapArray<uint8_t> channelFx;
    if (!readSongFields(data, h, *song, warnings) || !readExtras(data, size, tableEnd, h, *song, channelFx, warnings) ||
        !readInstrumentsAndSamples(data, size, h, tableAt, *song, warnings))
        return fail("Insufficient memory");

    // Patterns: unpacked first, since the channel count is the last channel they use.
    std::vector<ItPattern> patterns(h.patterns);
    for (unsigned p = 0; p < h.patterns; ++p)
        unpackPattern(data, size, rd32le(data + tableAt + 4 * (size_t{h.instruments} + h.samples + p)), patterns[p], warnings);
    bool macroCommands;
    const unsigned channels = readChannels(data, patterns, *song, macroCommands, warnings);
    if (channelFx) {
        // The plugin table is written with one entry per channel.
        HeapArray<uint8_t> resized;
        if (!resized.allocZeroed(size_t{channels} * 4)) return fail("Insufficient memory");
        std::memcpy(resized.data(), channelFx.data(), std::min(channelFx.size(), resized.size()));
        song->channelFx = std::move(resized);
    }

    PatternBuilder builder(channels);
    CellLosses losses;
    for (const ItPattern& pattern : patterns) {
        builder.beginPattern(pattern.rows);
        for (const ItCell& c : pattern.cells)
            if (c.channel < channels) cellCommands(c, builder.cell(c.row, c.channel), losses);
    }
    if (!builder.finish(*song)) return fail("IT file has more distinct tracks than the container can hold");
    if (losses.volumes255) warnings.add("IT: volume-column byte 255 dropped", losses.volumes255);
    if (losses.unknownEffects) warnings.add("IT: effects outside A-Z dropped", losses.unknownEffects);
    keepMacrosOnlyIfWritten(*song, macroCommands, warnings);

    return warnings.result(std::move(song));
}

}  // namespace deqaz
