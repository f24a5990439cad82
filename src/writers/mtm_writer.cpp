// MTM writer: serialises the module as a MultiTracker module.
//
// MTM stores tracks (one channel of 64 rows, 3 bytes a row) and per pattern a list of 32 track
// numbers, which is how the module holds its patterns too, so tracks are written one for one and
// the pattern-to-track table is copied. Layout, in file order with no padding: 66-byte header,
// 37-byte sample headers, 128-byte order table, tracks 1 to trackCount - 1 (track 0 is the
// implicit empty track), the pattern track lists, the song comment in 40-byte lines, and the
// sample data (unsigned PCM).
//
// What MTM cannot hold is reported on the message stream (unless silent) rather than written
// out of range or into a neighbouring field:
// - more than 32 channels, 128 orders, 256 patterns or 255 samples: the rest are dropped;
// - no order or no pattern: the header counts both from 1, so one order of pattern 0 and one
//   empty pattern are written;
// - no tracks at all: nothing is stored and every pattern plays the empty track;
// - cell values outside a track row's fields (notes 25 to 87, instruments up to 63, effects 0
//   to F): the value is dropped, since it would spill into the neighbouring field;
// - stereo samples: the header counts one channel, so only the first channel is written;
// - a comment longer than its 16-bit length: the lines that do not fit are dropped.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

constexpr unsigned MTM_MAX_CHANNELS = 32;
constexpr unsigned MTM_MAX_ORDERS = 128;
constexpr unsigned MTM_MAX_PATTERNS = 256;
constexpr unsigned MTM_MAX_SAMPLES = 255;
constexpr unsigned MTM_ROWS = 64;
constexpr size_t MTM_HEADER_SIZE = 66;
constexpr size_t MTM_SAMPLE_SIZE = 37;
constexpr size_t MTM_COMMENT_LINE = 40;
constexpr uint32_t MTM_MAX_COMMENT = 0xFFFF;
constexpr uint32_t COMMENT_LENGTH_FIELD = 28;
constexpr uint8_t MTM_VERSION = 0x10;
// Beats per track: written 0 as this converter always has; tracks are 64 rows regardless.
// (MultiTracker itself writes 64, and libxmp loads only files that say 64.)
constexpr uint8_t MTM_BEATS_PER_TRACK = 0;
// Notes a row can hold: its 6-bit field is the note - 24, and 0 means no note.
constexpr uint8_t MTM_LOWEST_NOTE = 25;
constexpr uint8_t MTM_HIGHEST_NOTE = 87;
constexpr uint8_t MTM_MAX_INSTRUMENT = 63;
constexpr uint8_t MTM_MAX_EFFECT = 15;

struct MtmCounts {
    unsigned channels;  // written, at most 32
    unsigned orders;    // at most 128
    unsigned patterns;  // at most 256
    unsigned samples;   // at most 255
    unsigned tracks;    // module tracks, track 0 included
};

// What the writer had to leave out, reported once at the end.
struct MtmLosses {
    unsigned channels = 0;
    unsigned orders = 0;
    unsigned patterns = 0;
    unsigned samples = 0;
    bool noOrder = false;
    bool noPattern = false;
    bool noTracks = false;
    unsigned notes = 0;
    unsigned instruments = 0;
    unsigned effects = 0;
    unsigned stereoSamples = 0;
    unsigned commentBytes = 0;
};

unsigned clampCount(size_t count, unsigned limit, unsigned& dropped) {
    if (count <= limit) return static_cast<unsigned>(count);
    dropped = static_cast<unsigned>(count - limit);
    return limit;
}

MtmCounts countsOf(const SongHeader& song, MtmLosses& losses) {
    MtmCounts c{};
    c.channels = clampCount(song.channels, MTM_MAX_CHANNELS, losses.channels);
    c.orders = clampCount(std::min<size_t>(song.orderCount, song.orders.size()), MTM_MAX_ORDERS, losses.orders);
    c.patterns = clampCount(song.patternCount, MTM_MAX_PATTERNS, losses.patterns);
    c.samples = clampCount(std::min<size_t>(song.sampleCount, song.samples.size()), MTM_MAX_SAMPLES, losses.samples);
    c.tracks = static_cast<unsigned>(std::min<size_t>(song.trackCount, song.tracks.size()));
    losses.noOrder = c.orders == 0;
    losses.noPattern = c.patterns == 0;
    losses.noTracks = c.tracks == 0;
    return c;
}

void warn(const WriteContext& ctx, const char* format, unsigned n) {
    char text[160];
    std::snprintf(text, sizeof text, format, n);
    ctx.diag.say(text);
}

void report(const WriteContext& ctx, const MtmLosses& l) {
    if (l.channels) warn(ctx, "warn: MTM holds 32 channels; %u more dropped\n", l.channels);
    if (l.orders) warn(ctx, "warn: MTM holds 128 orders; %u more dropped\n", l.orders);
    if (l.patterns) warn(ctx, "warn: MTM holds 256 patterns; %u more dropped\n", l.patterns);
    if (l.samples) warn(ctx, "warn: MTM holds 255 samples; %u more dropped\n", l.samples);
    if (l.noOrder) ctx.diag.say("warn: MTM needs an order; pattern 0 listed\n");
    if (l.noPattern) ctx.diag.say("warn: MTM needs a pattern; an empty one written\n");
    if (l.noTracks) ctx.diag.say("warn: module has no tracks; MTM patterns written empty\n");
    if (l.notes) warn(ctx, "warn: MTM holds notes C-2 to D-7; %u others dropped\n", l.notes);
    if (l.instruments) warn(ctx, "warn: MTM holds instruments 1 to 63; %u others dropped\n", l.instruments);
    if (l.effects) warn(ctx, "warn: MTM holds effects 0 to F; %u others dropped\n", l.effects);
    if (l.stereoSamples) warn(ctx, "warn: MTM samples are mono; right channel of %u samples dropped\n", l.stereoSamples);
    if (l.commentBytes) warn(ctx, "warn: MTM comment holds 65535 bytes; %u more dropped\n", l.commentBytes);
}

void buildHeader(const SongHeader& song, const MtmCounts& counts, uint8_t* h) {
    std::memcpy(h, "MTM", 3);
    h[3] = MTM_VERSION;
    copyName(h + 4, 20, song.name);
    wr16le(h + 24, static_cast<uint16_t>(counts.tracks > 0 ? counts.tracks - 1 : 0));
    // Last pattern and last order; an empty list still needs one entry (see writeMtm).
    h[26] = static_cast<uint8_t>(std::max(counts.patterns, 1u) - 1);
    h[27] = static_cast<uint8_t>(std::max(counts.orders, 1u) - 1);
    // 28: comment length, patched after the comment.
    h[30] = static_cast<uint8_t>(counts.samples);
    // 31: attribute 0.
    h[32] = MTM_BEATS_PER_TRACK;
    h[33] = static_cast<uint8_t>(counts.channels);
    for (unsigned c = 0; c < MTM_MAX_CHANNELS; ++c) h[34 + c] = static_cast<uint8_t>(song.channelPan[c] / 17);
}

void buildSample(const SongHeader& song, unsigned index, uint8_t* h) {
    const SampleRecord& smp = song.samples[index];
    const unsigned shift = (smp.flags & SF_16BIT) ? 1 : 0;  // lengths are in bytes
    copyName(h, 22, sampleNameOrInstrument(song, index));
    wr32le(h + 22, smp.length << shift);
    wr32le(h + 26, smp.loopStart << shift);
    wr32le(h + 30, smp.loopEnd << shift);
    // The frequency's first byte holds the finetune in its high nibble.
    h[34] = static_cast<uint8_t>((smp.frequency & 0xFF) >> 4);
    h[35] = smp.volume;
    h[36] = (smp.flags & SF_16BIT) ? 1 : 0;
}

// One track row: byte 0 the note field (note - 24) in its top six bits and instrument bits 4-5
// below, byte 1 instrument bits 0-3 and the effect, byte 2 the parameter.
void packRow(const EventCell& cell, MtmLosses& losses, uint8_t* row) {
    unsigned note = cell.note;
    if (note != 0 && (note < MTM_LOWEST_NOTE || note > MTM_HIGHEST_NOTE)) {
        ++losses.notes;
        note = 0;
    }
    unsigned instrument = cell.instrument;
    if (instrument > MTM_MAX_INSTRUMENT) {
        ++losses.instruments;
        instrument = 0;
    }
    unsigned effect = cell.effect;
    unsigned parameter = cell.parameter;
    if (effect > MTM_MAX_EFFECT) {
        ++losses.effects;
        effect = 0;
        parameter = 0;
    }
    const unsigned noteField = note != 0 ? note * 4 - 96 : 0;
    row[0] = static_cast<uint8_t>(noteField + instrument / 16);
    row[1] = static_cast<uint8_t>((instrument << 4) + effect);
    row[2] = static_cast<uint8_t>(parameter);
}

void writeTracks(const SongHeader& song, OutputBuffer& out, unsigned tracks, const TranslateContext& tctx,
                 MtmLosses& losses) {
    std::array<uint8_t, MTM_ROWS * 3> rows;
    for (unsigned t = 1; t < tracks; ++t) {
        TrackCursor cursor(song.tracks[t]);
        for (uint32_t r = 0; r < MTM_ROWS; ++r) {
            EventCell cell;
            translateEvent(cell, cursor.at(r), tctx);
            packRow(cell, losses, rows.data() + 3 * r);
        }
        out.appendOutput(rows.data(), rows.size());
    }
}

void writePatternLists(const SongHeader& song, OutputBuffer& out, const MtmCounts& counts) {
    // Without patterns one empty list is still written, for the header's "last pattern" 0.
    const unsigned lists = std::max(counts.patterns, 1u);
    const size_t tableSize = song.patternTracks.size();
    std::array<uint8_t, MTM_MAX_CHANNELS * 2> list;
    for (unsigned p = 0; p < lists; ++p) {
        list.fill(0);
        for (unsigned c = 0; c < counts.channels && p < counts.patterns; ++c) {
            const size_t entry = static_cast<size_t>(p) * song.channels + c;
            const uint16_t t = entry < tableSize ? song.patternTracks[entry] : 0;
            // A track that was not written plays as the empty track.
            wr16le(list.data() + 2 * c, t < counts.tracks ? t : 0);
        }
        out.appendOutput(list.data(), list.size());
    }
}

// The comment: every line that ends with a carriage return, without it, zero-padded to 40
// bytes (a longer line is written whole). Text after the last carriage return is not written.
// Returns the number of bytes written.
uint32_t writeComment(const std::string& message, OutputBuffer& out, MtmLosses& losses) {
    // The message ends at its first zero byte, as a C string would.
    std::string_view text(message.c_str(), ::strnlen(message.c_str(), message.size()));
    uint32_t written = 0;
    static constexpr uint8_t zeros[MTM_COMMENT_LINE] = {};
    for (size_t cr = text.find('\r'); cr != std::string_view::npos; cr = text.find('\r')) {
        const std::string_view line = text.substr(0, cr);
        text.remove_prefix(cr + 1);
        const size_t padding = line.size() < MTM_COMMENT_LINE ? MTM_COMMENT_LINE - line.size() : 0;
        const size_t bytes = line.size() + padding;
        if (losses.commentBytes != 0 || bytes > MTM_MAX_COMMENT - written) {
            losses.commentBytes += static_cast<unsigned>(bytes);
            continue;
        }
        out.appendOutput(line.data(), line.size());
        out.appendOutput(zeros, padding);
        written += static_cast<uint32_t>(bytes);
    }
    return written;
}

// Writes a sample's data; a stereo sample's second channel is held back, so the data matches
// the one-channel length in its header.
void writeSampleData(SampleRecord& smp, OutputBuffer& out, MtmLosses& losses) {
    if (!(smp.flags & SF_STEREO) || !smp.pcm[1]) {
        out.writeSamplePcm(smp, PCM_UNSIGNED);
        return;
    }
    ++losses.stereoSamples;
    HeapArray<int16_t> right = std::move(smp.pcm[1]);
    smp.pcm[1] = HeapArray<int16_t>();
    out.writeSamplePcm(smp, PCM_UNSIGNED);
    smp.pcm[1] = std::move(right);
}

}  // namespace

void writeMtm(WriteContext& ctx) {
    SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    MtmLosses losses;
    const MtmCounts counts = countsOf(song, losses);

    std::array<uint8_t, MTM_HEADER_SIZE> header{};
    buildHeader(song, counts, header.data());
    out.appendOutput(header.data(), header.size());

    {
        std::array<uint8_t, MTM_SAMPLE_SIZE> scratch;
        for (unsigned i = 0; i < counts.samples; ++i) {
            scratch.fill(0);
            buildSample(song, i, scratch.data());
            out.appendOutput(scratch.data(), scratch.size());
        }
    }

    std::array<uint8_t, MTM_MAX_ORDERS> orders{};
    std::copy_n(song.orders.data(), counts.orders, orders.begin());
    out.appendOutput(orders.data(), orders.size());

    const TranslateContext tctx{targetOf(song.flags), &ctx.diag};
    writeTracks(song, out, counts.tracks, tctx, losses);
    writePatternLists(song, out, counts);

    if (!song.message.empty()) {
        const uint32_t length = writeComment(song.message, out, losses);
        out.patch16(COMMENT_LENGTH_FIELD, static_cast<uint16_t>(length));
    }

    for (unsigned i = 0; i < counts.samples; ++i) writeSampleData(song.samples[i], out, losses);

    report(ctx, losses);
}

}  // namespace deqaz
