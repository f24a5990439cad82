// MOD writer: serialises the module as a 31-sample Amiga ProTracker-style MOD file.
//
// Layout, in file order: the 1084-byte header (song name, 31 sample slots, song length, restart
// position, 128-entry order table, four-character signature), every pattern as 64 rows of
// 4-byte cells, then the sample data as signed 8-bit bytes. Every word is big-endian; notes are
// stored as Amiga periods.
//
// Fields hold the low bits of their sums: a slot's word counts keep 16 bits (a loop that ends
// before it starts wraps), a cell's third byte is the instrument's low nibble times 16 plus the
// effect, so an effect above 15 carries into the nibble above. The song length byte is the low
// byte of the order count; the table lists the first 128 orders.
//
// What the layout has no room for is cut to fit and noted in the diagnostics:
// - 31 sample slots: samples beyond the 31st are neither described nor written.
// - The signature names at most 99 channels ("99CH"): channels beyond are dropped from every
//   pattern.
// - MOD data is 8-bit mono: a 16-bit or stereo sample is written as the high byte of its first
//   channel, so the slot's length still matches the bytes written.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "formats/mod/mod_layout.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

using namespace mod;

struct ModCounts {
    unsigned channels;  // written, at most 99
    unsigned orders;
    unsigned samples;   // in the module
    unsigned slots;     // described and written, at most 31
    unsigned patterns;
};

ModCounts countsOf(const SongHeader& song) {
    ModCounts c{};
    c.channels = std::min<unsigned>(song.channels, MAX_CHANNELS);
    c.orders = static_cast<unsigned>(std::min<size_t>(song.orderCount, song.orders.size()));
    c.samples = static_cast<unsigned>(std::min<size_t>(song.sampleCount, song.samples.size()));
    c.slots = std::min(c.samples, SLOTS);
    c.patterns = static_cast<unsigned>(std::min<size_t>(song.patternCount, song.patternRows.size()));
    return c;
}

bool isPlainMod(const SampleRecord& smp) { return !(smp.flags & (SF_16BIT | SF_STEREO)); }

// Signature: the 15-sample Noisetracker mark, the classic 4/6/8-channel marks, else the
// channel count spelled out ("5CHN", "12CH"), which fits the four bytes up to 99 channels.
void putSignature(unsigned samples, unsigned channels, uint8_t* p) {
    const char* fixed = samples == 15   ? "N.T."
                        : channels == 4 ? "M.K."
                        : channels == 8 ? "CD81"
                        : channels == 6 ? "CD61"
                                        : nullptr;
    if (fixed) {
        std::memcpy(p, fixed, 4);
        return;
    }
    channels = std::min(channels, MAX_CHANNELS);
    if (channels < 10) {
        p[0] = static_cast<uint8_t>('0' + channels);
        std::memcpy(p + 1, "CHN", 3);
    } else {
        p[0] = static_cast<uint8_t>('0' + channels / 10);
        p[1] = static_cast<uint8_t>('0' + channels % 10);
        std::memcpy(p + 2, "CH", 2);
    }
}

void buildSlot(const SongHeader& song, unsigned index, uint8_t* p) {
    const SampleRecord& smp = song.samples[index];
    copyName(p, 22, sampleNameOrInstrument(song, index));
    wr16be(p + 22, static_cast<uint16_t>(smp.length / 2));
    // The stored fine-tune is signed + 128; MOD keeps a signed nibble (0..7, then 8..15 = -8..-1).
    p[24] = static_cast<uint8_t>(((smp.frequency & 0xFF) ^ 0x80) >> 4);
    p[25] = smp.volume;
    wr16be(p + 26, static_cast<uint16_t>(smp.loopStart / 2));
    wr16be(p + 28, static_cast<uint16_t>((smp.loopEnd - smp.loopStart) / 2));
}

void buildHeader(const SongHeader& song, const ModCounts& counts, uint8_t* h) {
    copyName(h, 20, song.name);
    for (unsigned i = 0; i < counts.slots; ++i) buildSlot(song, i, h + 20 + SLOT_SIZE * i);
    h[950] = static_cast<uint8_t>(counts.orders);
    h[951] = song.restartPos == 0 ? 0x7F : static_cast<uint8_t>(song.restartPos);
    const unsigned tableOrders = std::min(counts.orders, ORDERS);
    if (tableOrders) std::memcpy(h + 952, song.orders.data(), tableOrders);
    putSignature(counts.samples, counts.channels, h + SIGNATURE_AT);
}

// Amiga period of a cell note: 856 for note 37 (C-3), halving every octave.
uint16_t periodOf(uint8_t note) {
    if (note == 0) return 0;
    const double period = 6848.0 * std::pow(2.0, (1 - static_cast<int>(note)) * 0.08333333333333333);
    return static_cast<uint16_t>(static_cast<uint32_t>(period + 0.5) & 0x0FFF);
}

void writePatterns(const WriteContext& ctx, const ModCounts& counts, const TranslateContext& tctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const unsigned channels = counts.channels;
    std::array<TrackCursor, MAX_CHANNELS> cursors{};
    std::array<uint8_t, MAX_CHANNELS * CELL_SIZE> row{};

    for (unsigned p = 0; p < counts.patterns; ++p) {
        // One cursor per channel keeps the rebuild linear in the track length.
        for (unsigned c = 0; c < channels; ++c) cursors[c] = patternCursor(song, p, c);
        // MOD patterns are always 64 rows, whatever the pattern's own row count.
        for (uint32_t r = 0; r < ROWS; ++r) {
            for (unsigned c = 0; c < channels; ++c) {
                EventCell cell;
                translateEvent(cell, cursors[c].at(r), tctx);
                const uint16_t period = periodOf(cell.note);
                uint8_t* q = row.data() + CELL_SIZE * c;
                q[0] = static_cast<uint8_t>((cell.instrument & 0xF0) | (period >> 8));
                q[1] = static_cast<uint8_t>(period);
                q[2] = static_cast<uint8_t>((cell.instrument << 4) + cell.effect);
                q[3] = cell.parameter;
            }
            out.appendOutput(row.data(), CELL_SIZE * channels);
        }
    }
}

// Writes `frames` signed 8-bit values from the high bytes of the sample's first channel (past
// the end of its buffer: silence), reserving the room at once.
void writeFirstChannel8(OutputBuffer& out, const SampleRecord& smp, uint32_t frames) {
    const HeapArray<int16_t>& pcm = smp.pcm[0];
    if (frames == 0 || !pcm) return;
    const uint32_t at = out.outputSize();
    out.skip(frames);  // zero-filled, so frames past the buffer are silence
    if (out.failed()) return;
    uint8_t* dst = out.outputData() + at;
    const size_t have = std::min<size_t>(frames, pcm.size());
    for (size_t i = 0; i < have; ++i) dst[i] = static_cast<uint8_t>(static_cast<uint16_t>(pcm[i]) >> 8);
}

}  // namespace

void writeMod(WriteContext& ctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const ModCounts counts = countsOf(song);

    if (counts.samples > SLOTS) ctx.diag.note("MOD holds 31 samples; %u more dropped", counts.samples - SLOTS);
    if (song.channels > MAX_CHANNELS)
        ctx.diag.note("MOD holds 99 channels; %u more dropped", song.channels - MAX_CHANNELS);
    if (counts.orders > ORDERS)
        ctx.diag.note("MOD lists 128 orders; %u more left out of the table", counts.orders - ORDERS);
    unsigned reduced = 0;
    for (unsigned i = 0; i < counts.slots; ++i) reduced += !isPlainMod(song.samples[i]);
    if (reduced) ctx.diag.note("MOD samples are 8-bit mono; %u 16-bit or stereo samples reduced", reduced);

    std::array<uint8_t, HEADER_SIZE> header{};
    buildHeader(song, counts, header.data());
    out.appendOutput(header.data(), header.size());

    const TranslateContext tctx{targetOf(song.flags), &ctx.diag};
    writePatterns(ctx, counts, tctx);

    for (unsigned i = 0; i < counts.slots; ++i) {
        const SampleRecord& smp = song.samples[i];
        if (isPlainMod(smp))
            out.writeSamplePcm(smp, 0);
        else
            writeFirstChannel8(out, smp, smp.length);
    }
}

}  // namespace deqaz
