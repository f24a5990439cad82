// IT writer: serialises the module as an uncompressed Impulse Tracker 2.14 file.
//
// Layout, in file order: 192-byte header, order list + 0xFF, offset table (instruments, samples,
// patterns; reserved now and patched later), two zero bytes, the MIDI configuration block (only
// when a parametered macro slot is set and some track uses a macro command), the extension
// blocks, the song message, 557-byte instrument headers, 80-byte sample headers, packed patterns
// and finally the sample data (signed PCM). Offsets to sections written later are remembered as
// buffer offsets, never addresses, since the buffer moves as it grows.
//
// IT has room for 64 channels and 25 envelope nodes. A module beyond either limit cannot be
// represented; rather than index past the header's tables or the per-channel memory, the writer
// clamps: only the first 64 channels are written (the rest of each pattern is dropped) and only
// the first 25 nodes of an envelope are copied, with the node count written as at most 25.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

#include "common/endian.hpp"
#include "container/commands.hpp"
#include "container/track.hpp"
#include "formats/it/it_layout.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

using namespace it;

// Instrument headers go out as IT's 554-byte layout plus three zero bytes, as this converter has
// always written them.
constexpr size_t INSTRUMENT_WRITTEN_SIZE = INSTRUMENT_SIZE + 3;
constexpr uint16_t IT_VERSION = 0x0214;


// Counts as the records actually hold them, so a header can never promise more than is written.
struct ItCounts {
    unsigned channels;
    unsigned orders;
    unsigned instruments;  // records, written only in instrument mode
    unsigned samples;
    unsigned patterns;
};

ItCounts countsOf(const SongHeader& song) {
    ItCounts c{};
    c.channels = std::min<unsigned>(song.channels, CHANNELS);
    c.orders = static_cast<unsigned>(std::min<size_t>(song.orderCount, song.orders.size()));
    c.instruments = static_cast<unsigned>(std::min<size_t>(song.instrumentCount, song.instruments.size()));
    c.samples = static_cast<unsigned>(std::min<size_t>(song.sampleCount, song.samples.size()));
    c.patterns = static_cast<unsigned>(std::min<size_t>(song.patternCount, song.patternRows.size()));
    return c;
}

// True when a parametered macro slot is set and some pair of some track asks for a macro: Zxx,
// or SFx (which selects a parametered macro). Every pair counts, also those after a command 0
// and those of groups that cover no row.
bool usesMidiMacros(const SongHeader& song) {
    const bool anySlot = std::any_of(song.sfxMacro.begin(), song.sfxMacro.end(), [](uint8_t v) { return v != 0; });
    if (!anySlot) return false;
    bool found = false;
    for (const Track& track : song.tracks) {
        forEachGroup(track, [&](TrackGroup group) {
            for (unsigned k = 0; k < group.pairCount(); ++k) {
                const uint8_t command = group.bytes[1 + 2 * k];
                const uint8_t parameter = group.bytes[2 + 2 * k];
                if (command == CMD_MIDI_MACRO || (command == CMD_IT_SPECIAL && (parameter >> 4) == 0xF)) {
                    found = true;
                    return false;
                }
            }
            return true;
        });
        if (found) return true;
    }
    return false;
}

// The stored mixing volume code: negative codes are offsets from 52, others grow exponentially
// (0 -> 52, 28 -> 127). The factor is taken bit for bit as the double 0x3FC3D70A3D70A3D8 (one
// unit in the last place above the nearest double to 0.155), the constant the codes were made with.
uint8_t itMixVolume(int8_t code) {
    if (code < 0) return static_cast<uint8_t>(code + 52);
    const double factor = std::bit_cast<double>(uint64_t{0x3FC3D70A3D70A3D8});
    const auto value = static_cast<int64_t>(std::exp(factor * code)) + 51;
    return static_cast<uint8_t>(value);
}

uint8_t itChannelPan(uint8_t pan) {
    if (pan == 127) return 100;  // surround
    return static_cast<uint8_t>(pan * 64 / 255);
}

void buildHeader(const SongHeader& song, const ItCounts& counts, bool instrumentMode, bool macros,
                 uint8_t* h) {
    std::copy_n("IMPM", 4, h);
    copyName(h + NAME, NAME_SIZE, song.name);
    wr16le(h + ORDER_COUNT, static_cast<uint16_t>(counts.orders + 1));
    wr16le(h + INSTRUMENT_COUNT, static_cast<uint16_t>(instrumentMode ? counts.instruments : 0));
    wr16le(h + SAMPLE_COUNT, static_cast<uint16_t>(counts.samples));
    wr16le(h + PATTERN_COUNT, static_cast<uint16_t>(counts.patterns));
    wr16le(h + CREATED_WITH, IT_VERSION);
    wr16le(h + COMPATIBLE_WITH, IT_VERSION);

    uint16_t flags = FLAG_STEREO;
    if (instrumentMode) flags |= FLAG_INSTRUMENTS;
    if (song.flags & SH_LINEAR_SLIDES) flags |= FLAG_LINEAR_SLIDES;
    if (!(song.flags & SH_IT_NO_OLD_EFFECTS)) flags |= FLAG_OLD_EFFECTS;
    if (!(song.flags & SH_IT_NO_COMPAT_GXX)) flags |= FLAG_COMPAT_GXX;
    if (song.flags & SH_IT_FLAG_1000) flags |= FLAG_1000;
    wr16le(h + FLAGS, flags);

    const bool hasMessage = !song.message.empty();
    uint16_t special = 0;
    if (hasMessage) special |= SPECIAL_MESSAGE;
    // The MIDI configuration, with the edit-history bit and bit 2 as this converter sets them.
    if (macros) special |= SPECIAL_EDIT_HISTORY | 0x0004 | SPECIAL_MIDI_CONFIG;
    wr16le(h + SPECIAL, special);

    h[GLOBAL_VOLUME] = song.globalVolume;
    h[MIX_VOLUME] = itMixVolume(song.mixVolume);
    h[INITIAL_SPEED] = song.initialSpeed;
    h[INITIAL_TEMPO] = song.initialTempo;
    h[SEPARATION] = song.separation;
    // The message length counts the terminating zero; the offset is patched when the text goes out.
    if (hasMessage) wr16le(h + MESSAGE_LENGTH, static_cast<uint16_t>(song.message.size() + 1));

    for (unsigned c = 0; c < CHANNELS; ++c) {
        const bool used = c < counts.channels;
        h[CHANNEL_PANS + c] = used ? itChannelPan(song.channelPan[c]) : CHANNEL_DISABLED;
        h[CHANNEL_VOLUMES + c] = used ? song.channelVolume[c] : 0;
    }
}

enum class EnvelopeKind { Volume, Panning, Pitch };

// QAZ envelopes keep sustain before loop and 16-bit values; IT keeps loop before sustain and one
// signed byte per node (panning centred on 0, pitch in half-tones).
void buildEnvelope(const Envelope& env, EnvelopeKind kind, uint8_t* e) {
    uint8_t flags = 0;
    if (env.flags & 0x01) flags |= 0x01;
    if (env.flags & 0x04) flags |= 0x02;
    if (env.flags & 0x02) flags |= 0x04;
    if (env.flags & 0x20) flags |= 0x08;
    if (kind == EnvelopeKind::Pitch && (env.flags & 0x10)) flags |= 0x80;
    const unsigned nodes = std::min<unsigned>(env.pointCount, ENVELOPE_NODES);
    e[0] = flags;
    e[1] = static_cast<uint8_t>(nodes);
    e[2] = env.loopStart;
    e[3] = env.loopEnd;
    e[4] = env.sustainStart;
    e[5] = env.sustainEnd;
    for (unsigned k = 0; k < nodes; ++k) {
        const EnvelopePoint& point = env.points[k];
        uint8_t value = 0;
        switch (kind) {
            case EnvelopeKind::Volume: value = static_cast<uint8_t>(point.value); break;
            case EnvelopeKind::Panning: value = static_cast<uint8_t>(point.value - 32); break;
            case EnvelopeKind::Pitch: value = static_cast<uint8_t>((point.value >> 5) - 32); break;
        }
        e[6 + 3 * k] = value;
        wr16le(e + 7 + 3 * k, point.tick);
    }
}

void buildInstrument(const InstrumentRecord& ins, uint8_t* h) {
    std::copy_n("IMPI", 4, h);
    copyName(h + INS_FILE_NAME, FILE_NAME_SIZE, ins.fileName);
    h[INS_NEW_NOTE_ACTION] = ins.newNoteAction;
    h[INS_DUPLICATE_TYPE] = ins.duplicateCheckType;
    h[INS_DUPLICATE_ACTION] = ins.duplicateCheckAction;
    wr16le(h + INS_FADEOUT, static_cast<uint16_t>(ins.fadeout >> 5));
    h[INS_PITCH_PAN_SEPARATION] = ins.pitchPanSeparation;
    h[INS_PITCH_PAN_CENTRE] = ins.pitchPanCentre;
    h[INS_GLOBAL_VOLUME] = ins.globalVolume;
    h[INS_PAN] = ins.pan == -1 ? 0x80 : static_cast<uint8_t>(ins.pan * 64 / 255);
    h[INS_RANDOM_VOLUME] = static_cast<uint8_t>(ins.randomVolume);
    h[INS_RANDOM_PAN] = static_cast<uint8_t>(ins.randomPan >> 2);
    copyName(h + INS_NAME, NAME_SIZE, ins.name);
    h[INS_FILTER_CUTOFF] = ins.filterCutoff;
    h[INS_FILTER_RESONANCE] = ins.filterResonance;
    // MIDI channel 0 means the instrument plays no MIDI; the other MIDI fields are then left 0.
    if (ins.midiChannel != 0) {
        h[INS_MIDI_CHANNEL] = static_cast<uint8_t>(ins.midiChannel + 1);
        h[INS_MIDI_PROGRAM] = ins.midiProgram;
        wr16le(h + INS_MIDI_BANK, ins.midiBank);
    }
    for (unsigned i = 0; i < 120; ++i) {
        h[INS_KEYBOARD + 2 * i] = static_cast<uint8_t>(ins.noteMap[i].note);
        h[INS_KEYBOARD + 1 + 2 * i] = static_cast<uint8_t>(ins.noteMap[i].sample + 1);  // 0xFFFF (none) -> 0
    }
    buildEnvelope(ins.volumeEnvelope, EnvelopeKind::Volume, h + INS_ENVELOPES);
    buildEnvelope(ins.panningEnvelope, EnvelopeKind::Panning, h + INS_ENVELOPES + ENVELOPE_SIZE);
    buildEnvelope(ins.pitchEnvelope, EnvelopeKind::Pitch, h + INS_ENVELOPES + 2 * ENVELOPE_SIZE);
}

void buildSample(const SampleRecord& smp, uint8_t* h) {
    std::copy_n("IMPS", 4, h);
    copyName(h + SMP_FILE_NAME, FILE_NAME_SIZE, smp.fileName);
    h[SMP_GLOBAL_VOLUME] = smp.globalVolume;
    uint8_t flags = 0;
    if (smp.length != 0) flags |= SMP_PRESENT;
    if (smp.flags & SF_16BIT) flags |= SMP_16BIT;
    if (smp.flags & SF_STEREO) flags |= SMP_STEREO;
    if (smp.flags & SF_LOOP) {
        flags |= SMP_LOOP;
        if (smp.flags & SF_PINGPONG) flags |= SMP_PINGPONG;
    }
    if (smp.flags & SF_SUSTAIN) {
        flags |= SMP_SUSTAIN;
        if (smp.flags & SF_SUSTAIN_PINGPONG) flags |= SMP_SUSTAIN_PINGPONG;
    }
    h[SMP_FLAGS] = flags;
    h[SMP_VOLUME] = smp.volume;
    copyName(h + SMP_NAME, NAME_SIZE, smp.name);
    h[SMP_CONVERT] = CONVERT_SIGNED;
    h[SMP_PAN] = smp.pan == -1 ? 0 : static_cast<uint8_t>((smp.pan * 64 / 255) | 0x80);
    wr32le(h + SMP_LENGTH, smp.length);
    wr32le(h + SMP_LOOP_START, smp.loopStart);
    wr32le(h + SMP_LOOP_END, smp.loopEnd);
    wr32le(h + SMP_FREQUENCY, smp.frequency);
    wr32le(h + SMP_SUSTAIN_START, smp.sustainStart);
    wr32le(h + SMP_SUSTAIN_END, smp.sustainEnd);
    // SMP_DATA_OFFSET is patched when the data is written.
    h[SMP_VIBRATO_SPEED] = smp.vibratoSpeed;
    h[SMP_VIBRATO_DEPTH] = smp.vibratoDepth;
    h[SMP_VIBRATO_SWEEP] = smp.vibratoSweep;
    h[SMP_VIBRATO_TYPE] = smp.vibratoType;
}

// What IT's packer remembers per channel within one pattern.
struct ChannelMemory {
    uint8_t mask = 0;
    uint8_t instrument = 0;
    uint8_t volume = 0;
};

// Packs one cell. A channel byte carries the channel number + 1 and, with 0x80, announces a new
// mask; 0x20 and 0x40 in the mask reuse the channel's last instrument and volume.
void packCell(OutputBuffer& out, unsigned channel, const EventCell& cell, ChannelMemory& mem) {
    if (cell.note == 0 && cell.instrument == 0 && cell.volume == 0 && cell.effect == 0) return;
    uint8_t mask = 0;
    if (cell.note) mask |= 0x01;
    if (cell.instrument) mask |= cell.instrument == mem.instrument ? 0x20 : 0x02;
    if (cell.volume) mask |= cell.volume == mem.volume ? 0x40 : 0x04;
    if (cell.effect) mask |= 0x08;

    const auto channelByte = static_cast<uint8_t>(channel + 1);
    if (mask == mem.mask) {
        out.put8(channelByte);
    } else {
        out.put8(channelByte | 0x80);
        out.put8(mask);
        mem.mask = mask;
    }
    if (mask & 0x01) out.put8(cell.note <= 253 ? static_cast<uint8_t>(cell.note - 1) : cell.note);
    if (mask & 0x02) {
        out.put8(cell.instrument);
        mem.instrument = cell.instrument;
    }
    if (mask & 0x04) {
        out.put8(static_cast<uint8_t>(cell.volume - 1));
        mem.volume = cell.volume;
    }
    if (mask & 0x08) {
        out.put8(cell.effect);
        out.put8(cell.parameter);
    }
}

void writePattern(const SongHeader& song, OutputBuffer& out, unsigned pattern, unsigned channels,
                  const TranslateContext& tctx) {
    const uint16_t rows = song.patternRows[pattern];
    const uint32_t headerAt = out.outputSize();
    out.put16(0);  // packed length, patched below
    out.put16(rows);
    out.put32(0);
    const uint32_t rowsAt = out.outputSize();

    // One cursor per channel keeps the rebuild linear in the track length.
    std::array<TrackCursor, CHANNELS> cursors{};
    for (unsigned c = 0; c < channels; ++c) cursors[c] = patternCursor(song, pattern, c);

    std::array<ChannelMemory, CHANNELS> memory{};
    for (uint32_t r = 0; r < rows; ++r) {
        for (unsigned c = 0; c < channels; ++c) {
            EventCell cell;
            translateEvent(cell, cursors[c].at(r), tctx);
            packCell(out, c, cell, memory[c]);
        }
        out.put8(0);
    }
    if (out.failed()) return;
    // The length field is 16 bits wide; a longer pattern keeps its length modulo 65536.
    out.patch16(headerAt, static_cast<uint16_t>(out.outputSize() - rowsAt));
}

}  // namespace

void writeIt(WriteContext& ctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const ItCounts counts = countsOf(song);
    const bool instrumentMode = (song.flags & SH_IT_INSTRUMENTS) != 0;
    const bool macros = usesMidiMacros(song);

    std::array<uint8_t, HEADER_SIZE> header{};
    buildHeader(song, counts, instrumentMode, macros, header.data());
    out.appendOutput(header.data(), header.size());

    out.appendOutput(song.orders.data(), counts.orders);
    out.put8(0xFF);

    // The table always has room for every instrument record; without instrument mode the header
    // says 0 instruments, so the sample entries start the table and the tail stays zero.
    const uint32_t tableAt = out.outputSize();
    out.skip(4 * (static_cast<size_t>(counts.instruments) + counts.samples + counts.patterns));
    uint32_t nextEntry = tableAt;
    auto recordOffset = [&]() {
        if (out.failed()) return;
        out.patch32(nextEntry, out.outputSize());
        nextEntry += 4;
    };

    out.put16(0);
    if (macros) writeMidiConfig(song, out);
    if (song.flags & SH_EXTRA_CHUNKS) writeExtensionBlocks(song, out);

    if (!song.message.empty()) {
        if (!out.failed()) out.patch32(0x38, out.outputSize());
        out.appendOutput(song.message.c_str(), song.message.size() + 1);
    }

    if (instrumentMode) {
        std::array<uint8_t, INSTRUMENT_WRITTEN_SIZE> scratch;
        for (unsigned i = 0; i < counts.instruments; ++i) {
            recordOffset();
            scratch.fill(0);
            buildInstrument(song.instruments[i], scratch.data());
            out.appendOutput(scratch.data(), scratch.size());
        }
    }

    const uint32_t firstSampleAt = out.outputSize();
    {
        std::array<uint8_t, SAMPLE_SIZE> scratch;
        for (unsigned i = 0; i < counts.samples; ++i) {
            recordOffset();
            scratch.fill(0);
            buildSample(song.samples[i], scratch.data());
            out.appendOutput(scratch.data(), scratch.size());
        }
    }

    const TranslateContext tctx{targetOf(song.flags), &ctx.diag};
    for (unsigned p = 0; p < counts.patterns; ++p) {
        recordOffset();
        writePattern(song, out, p, counts.channels, tctx);
    }

    for (unsigned i = 0; i < counts.samples; ++i) {
        if (out.failed()) return;
        out.patch32(firstSampleAt + static_cast<uint32_t>(SAMPLE_SIZE) * i + SMP_DATA_OFFSET,
                    out.outputSize());
        out.writeSamplePcm(song.samples[i], 0);
    }
}

}  // namespace deqaz
