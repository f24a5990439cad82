// XM writer: serialises the module as a FastTracker 2 Extended Module, version 1.04.
//
// Layout, in file order: the 336-byte module header (60 bytes, then 276 counted from the header
// size field, ending with the 256-byte order table); each pattern as a 9-byte header and its
// packed cells; each instrument as its header, the 40-byte headers of its samples and then their
// delta-coded data; finally the trailing chunks "text" (song message), "MIDI" (macro
// configuration) and the extension blocks.
//
// Fields hold the low bits of their values: the song length is the order count while the table
// lists the first 256 orders, a pattern's packed size keeps 16 bits, and a loop's length is the
// unsigned 32-bit difference of its end and start, which wraps when the start lies past the end.
// What does not fit is noted in the diagnostics.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "formats/midi_config.hpp"
#include "formats/xm/xm_layout.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

using namespace xm;

constexpr uint16_t NO_SAMPLE = 0xFFFF;
constexpr unsigned MAX_CHANNELS = 256;  // the song header counts channels in a byte

// Counts as the records actually hold them, so a header never promises more than is written.
struct XmCounts {
    unsigned channels;
    unsigned orders;  // the song length; the table lists at most 256
    unsigned instruments;
    unsigned samples;
    unsigned patterns;
};

XmCounts countsOf(const SongHeader& song) {
    XmCounts c{};
    c.channels = song.channels;
    c.orders = static_cast<unsigned>(std::min<size_t>(song.orderCount, song.orders.size()));
    c.instruments = static_cast<unsigned>(std::min<size_t>(song.instrumentCount, song.instruments.size()));
    c.samples = static_cast<unsigned>(std::min<size_t>(song.sampleCount, song.samples.size()));
    c.patterns = static_cast<unsigned>(std::min<size_t>(song.patternCount, song.patternRows.size()));
    return c;
}

void buildHeader(const SongHeader& song, const XmCounts& counts, uint8_t* h) {
    std::memcpy(h, "Extended Module: ", 17);
    copyName(h + 17, 20, song.name);
    h[37] = 0x1A;
    const char* tracker = (song.flags & SH_XM_ALT_TRACKER_NAME) ? "FastTracker v 2.00  " : "FastTracker v2.00   ";
    std::memcpy(h + 38, tracker, 20);
    wr16le(h + 58, VERSION);
    wr32le(h + 60, SONG_HEADER_SIZE);
    wr16le(h + 64, static_cast<uint16_t>(counts.orders));
    wr16le(h + 66, song.restartPos);
    wr16le(h + 68, static_cast<uint16_t>(counts.channels));
    wr16le(h + 70, static_cast<uint16_t>(counts.patterns));
    wr16le(h + 72, static_cast<uint16_t>(counts.instruments));
    wr16le(h + 74, (song.flags & SH_LINEAR_SLIDES) ? 1 : 0);
    wr16le(h + 76, song.initialSpeed);
    wr16le(h + 78, song.initialTempo);
    if (counts.orders) std::memcpy(h + 80, song.orders.data(), std::min(counts.orders, MAX_ORDERS));
}

// Packs one cell: the flag byte, then each field that is non-zero. The flag byte is written
// even when all five fields follow, so every cell is at least one byte. Returns whether the
// cell holds anything.
bool packCell(OutputBuffer& out, EventCell cell) {
    if (cell.note == 0xFF) cell.note = KEY_OFF;
    uint8_t flags = PACKED;
    if (cell.note) flags |= 0x01;
    if (cell.instrument) flags |= 0x02;
    if (cell.volume) flags |= 0x04;
    if (cell.effect) flags |= 0x08;
    if (cell.parameter) flags |= 0x10;
    out.put8(flags);
    if (cell.note) out.put8(cell.note);
    if (cell.instrument) out.put8(cell.instrument);
    if (cell.volume) out.put8(cell.volume);
    if (cell.effect) out.put8(cell.effect);
    if (cell.parameter) out.put8(cell.parameter);
    return flags != PACKED;
}

void writePattern(const WriteContext& ctx, unsigned pattern, unsigned channels,
                  std::array<TrackCursor, MAX_CHANNELS>& cursors, const TranslateContext& tctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const uint16_t rows = song.patternRows[pattern];

    const uint32_t headerAt = out.outputSize();
    uint8_t header[PATTERN_HEADER_SIZE] = {};
    wr32le(header, PATTERN_HEADER_SIZE);
    header[4] = 0;  // packing type
    wr16le(header + 5, rows);
    // header + 7: packed size, patched below
    out.appendOutput(header, sizeof header);
    if (rows == 0) return;
    const uint32_t dataAt = out.outputSize();

    // One cursor per channel keeps the rebuild linear in the track length. A table entry that
    // names no track reads as an empty channel.
    for (unsigned c = 0; c < channels; ++c) cursors[c] = patternCursor(song, pattern, c);

    bool anything = false;
    for (uint32_t r = 0; r < rows; ++r) {
        for (unsigned c = 0; c < channels; ++c) {
            EventCell cell;
            translateEvent(cell, cursors[c].at(r), tctx);
            anything |= packCell(out, cell);
        }
    }
    if (out.failed()) return;
    // A pattern of empty cells only is stored as its header with packed size 0.
    if (!anything) {
        out.truncate(dataAt);
        return;
    }
    const uint32_t packed = out.outputSize() - dataAt;
    if (packed > 0xFFFF) ctx.diag.note("XM pattern %u packs to %u bytes; its size field keeps the low 16 bits", pattern, packed);
    out.patch16(headerAt + 7, static_cast<uint16_t>(packed));
}

// The run of sample records that belong to one instrument: first and last index, inclusive.
struct SampleRun {
    unsigned first = 0;
    unsigned count = 0;  // 0: the instrument has no samples
};

constexpr unsigned NONE = ~0u;

// XM modules record in each sample's global-volume byte the 1-based number of the instrument it
// belongs to, and an instrument's samples are contiguous: its run starts at the first sample
// that names it and extends over the directly following ones that name it too. An instrument no
// sample names takes the range of sample indices its first 96 keys map to; keys mapped to no
// sample do not widen the range (they would otherwise drag every later sample into the
// instrument).
SampleRun findSampleRun(const SongHeader& song, const InstrumentRecord& ins, unsigned number,
                        unsigned sampleCount, const std::array<unsigned, 256>& firstNaming) {
    SampleRun run;
    unsigned first = NONE;
    unsigned last = 0;
    if (number < firstNaming.size() && firstNaming[number] != NONE) {
        first = last = firstNaming[number];
        while (last + 1 < sampleCount && song.samples[last + 1].globalVolume == number) ++last;
    } else {
        for (unsigned k = 0; k < KEYS; ++k) {
            const uint16_t s = ins.noteMap[k].sample;
            if (s == NO_SAMPLE) continue;
            first = std::min<unsigned>(first, s);
            last = std::max<unsigned>(last, s);
        }
        if (first == NONE || first >= sampleCount) return run;
        last = std::min(last, sampleCount - 1);
    }
    run.first = first;
    run.count = last - first + 1;
    return run;
}

void putEnvelopePoints(const Envelope& env, uint8_t* p) {
    for (unsigned k = 0; k < ENVELOPE_POINTS; ++k) {
        wr16le(p + 4 * k, env.points[k].tick);
        wr16le(p + 4 * k + 2, env.points[k].value);
    }
}

void buildInstrument(const InstrumentRecord& ins, const SampleRun& run, uint8_t* h) {
    wr32le(h, static_cast<uint32_t>(run.count ? INSTRUMENT_FULL : INSTRUMENT_SHORT));
    copyName(h + 4, 22, ins.name);
    h[26] = 0;  // instrument type
    wr16le(h + 27, static_cast<uint16_t>(run.count));
    wr32le(h + 29, SAMPLE_HEADER_SIZE);
    if (!run.count) return;

    // Key map, relative to the instrument's first sample; a single sample plays on every key.
    if (run.count >= 2) {
        for (unsigned k = 0; k < KEYS; ++k) {
            const uint16_t s = ins.noteMap[k].sample;
            if (s != NO_SAMPLE) h[33 + k] = static_cast<uint8_t>(s - run.first);
        }
    }
    const Envelope& vol = ins.volumeEnvelope;
    const Envelope& pan = ins.panningEnvelope;
    putEnvelopePoints(vol, h + 129);
    putEnvelopePoints(pan, h + 177);
    h[225] = vol.pointCount;
    h[226] = pan.pointCount;
    h[227] = vol.sustainStart;
    h[228] = vol.loopStart;
    h[229] = vol.loopEnd;
    h[230] = pan.sustainStart;
    h[231] = pan.loopStart;
    h[232] = pan.loopEnd;
    h[233] = vol.flags;
    h[234] = pan.flags & 0x7F;
    h[235] = ins.vibratoType;
    h[236] = ins.vibratoSweep;
    h[237] = ins.vibratoDepth;
    h[238] = ins.vibratoRate;
    wr16le(h + 239, ins.fadeout);
    h[241] = (ins.flags & 0x1) ? 1 : 0;
    h[242] = ins.midiChannel;
    wr16le(h + 243, ins.midiProgram);
    wr16le(h + 245, ins.midiBendRange);
    h[247] = (ins.flags & 0x2) ? 1 : 0;
}

// Lengths and loop points count bytes: two per 16-bit frame, and the length (only) counts both
// channels of a stereo sample.
void buildSample(const SampleRecord& smp, uint8_t* h) {
    const unsigned shift = (smp.flags & SF_16BIT) ? 1 : 0;
    const unsigned channelShift = (smp.flags & SF_STEREO) ? 1 : 0;
    const uint32_t loopLength = smp.loopEnd - smp.loopStart;
    wr32le(h + 0, smp.length << (shift + channelShift));
    wr32le(h + 4, smp.loopStart << shift);
    wr32le(h + 8, loopLength << shift);
    h[12] = smp.volume;
    h[13] = static_cast<uint8_t>((smp.frequency & 0xFF) - 128);  // fine-tune is stored + 128
    uint8_t type = 0;
    if (smp.flags & SF_PINGPONG)
        type = 2;
    else if (smp.flags & SF_LOOP)
        type = 1;
    if (smp.flags & SF_16BIT) type |= 0x10;
    if (smp.flags & SF_STEREO) type |= 0x20;
    h[14] = type;
    h[15] = static_cast<uint8_t>(smp.pan);  // -1 (none) becomes 0xFF
    h[16] = static_cast<uint8_t>(smp.relativeNote);
    h[17] = 0;
    copyName(h + 18, 22, smp.name);
}

void writeInstruments(WriteContext& ctx, const XmCounts& counts) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;

    // First sample naming each instrument number, found in one pass so that the per-instrument
    // search costs only its own run.
    std::array<unsigned, 256> firstNaming;
    firstNaming.fill(NONE);
    for (unsigned i = 0; i < counts.samples; ++i) {
        unsigned& slot = firstNaming[song.samples[i].globalVolume];
        if (slot == NONE) slot = i;
    }
    firstNaming[0] = NONE;  // instruments are numbered from 1

    std::array<uint8_t, INSTRUMENT_FULL> header;
    std::array<uint8_t, SAMPLE_HEADER_SIZE> sampleHeader;
    for (unsigned i = 0; i < counts.instruments; ++i) {
        const InstrumentRecord& ins = song.instruments[i];
        const SampleRun run = findSampleRun(song, ins, i + 1, counts.samples, firstNaming);
        header.fill(0);
        buildInstrument(ins, run, header.data());
        out.appendOutput(header.data(), run.count ? INSTRUMENT_FULL : INSTRUMENT_SHORT);
        for (unsigned s = run.first; s < run.first + run.count; ++s) {
            sampleHeader.fill(0);
            buildSample(song.samples[s], sampleHeader.data());
            out.appendOutput(sampleHeader.data(), sampleHeader.size());
        }
        for (unsigned s = run.first; s < run.first + run.count; ++s) out.writeSamplePcm(song.samples[s], PCM_DELTA);
    }
}

void writeTrailingChunks(const SongHeader& song, OutputBuffer& out) {
    if (!song.message.empty()) {
        const size_t length = song.message.size() + 1;  // the text keeps its terminating zero
        out.appendOutput("text", 4);
        out.put32(static_cast<uint32_t>(length));
        out.appendOutput(song.message.c_str(), length);
    }
    // Only the parametered macros make the configuration worth writing; fixed ones alone don't.
    if (std::any_of(song.sfxMacro.begin(), song.sfxMacro.end(), [](uint8_t v) { return v != 0; })) {
        out.appendOutput("MIDI", 4);
        out.put32(static_cast<uint32_t>(midi::BLOCK_SIZE));
        writeMidiConfig(song, out);
    }
    if (song.flags & SH_EXTRA_CHUNKS) writeExtensionBlocks(song, out);
}

}  // namespace

void writeXm(WriteContext& ctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const XmCounts counts = countsOf(song);
    if (counts.orders > MAX_ORDERS)
        ctx.diag.note("XM lists 256 orders; %u more left out of the table", counts.orders - MAX_ORDERS);

    std::array<uint8_t, HEADER_SIZE> header{};
    buildHeader(song, counts, header.data());
    out.appendOutput(header.data(), header.size());

    const TranslateContext tctx{targetOf(song.flags), &ctx.diag};
    std::array<TrackCursor, MAX_CHANNELS> cursors{};
    for (unsigned p = 0; p < counts.patterns; ++p) writePattern(ctx, p, counts.channels, cursors, tctx);

    writeInstruments(ctx, counts);
    writeTrailingChunks(song, out);
}

}  // namespace deqaz
