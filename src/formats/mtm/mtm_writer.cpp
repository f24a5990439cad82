// MTM writer: serialises the module as a MultiTracker module (the layout: mtm_layout.hpp).
//
// MTM stores tracks (one channel of 64 rows, 3 bytes a row) and per pattern a list of 32 track
// numbers, which is how the module holds its patterns too, so tracks are written one for one
// (track 0 is the implicit empty track, not stored) and the pattern-to-track table is copied.
//
// Fields hold the low bits of their sums: the counts of tracks, patterns and orders are stored
// less one (none wraps to all ones), a row's first byte is (note * 4 - 96) + instrument / 16 and
// its second instrument * 16 + effect, each in one byte, and the comment length keeps 16 bits.
//
// What MTM has no room for is cut to fit and noted in the diagnostics:
// - more than 32 channels or 128 orders: the track lists and the order table hold no more;
// - stereo samples: the header counts one channel, so only the first channel is written.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "formats/mtm/mtm_layout.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

using namespace mtm;

// Beats per track: written 0 as this converter always has; tracks are 64 rows regardless.
// (MultiTracker itself writes 64, and libxmp loads only files that say 64: the player fix.)
constexpr uint8_t CONVERTER_BEATS_PER_TRACK = 0;
struct MtmCounts {
    unsigned channels;  // written, at most 32
    unsigned orders;    // at most 128
    unsigned patterns;
    unsigned samples;
    unsigned tracks;    // module tracks, track 0 included
};

MtmCounts countsOf(const SongHeader& song) {
    MtmCounts c{};
    c.channels = std::min<unsigned>(song.channels, MAX_CHANNELS);
    c.orders = static_cast<unsigned>(std::min<size_t>({song.orderCount, song.orders.size(), size_t{ORDERS}}));
    c.patterns = song.patternCount;
    c.samples = static_cast<unsigned>(std::min<size_t>(song.sampleCount, song.samples.size()));
    c.tracks = static_cast<unsigned>(std::min<size_t>(song.trackCount, song.tracks.size()));
    return c;
}

void buildHeader(const SongHeader& song, const MtmCounts& counts, uint8_t* h) {
    std::memcpy(h, "MTM", 3);
    h[3] = VERSION;
    copyName(h + NAME, NAME_SIZE, song.name);
    wr16le(h + TRACK_COUNT, static_cast<uint16_t>(counts.tracks - 1));
    h[LAST_PATTERN] = static_cast<uint8_t>(counts.patterns - 1);
    h[LAST_ORDER] = static_cast<uint8_t>(counts.orders - 1);
    // COMMENT_LENGTH is patched after the comment; the attribute stays 0.
    h[SAMPLE_COUNT] = static_cast<uint8_t>(counts.samples);
    h[BEATS_PER_TRACK] = CONVERTER_BEATS_PER_TRACK;
    h[CHANNELS] = static_cast<uint8_t>(counts.channels);
    for (unsigned c = 0; c < MAX_CHANNELS; ++c) h[PANS + c] = static_cast<uint8_t>(song.channelPan[c] / 17);
}

void buildSample(const SongHeader& song, unsigned index, uint8_t* h) {
    const SampleRecord& smp = song.samples[index];
    const unsigned shift = (smp.flags & SF_16BIT) ? 1 : 0;  // lengths are in bytes
    copyName(h, SMP_NAME_SIZE, sampleNameOrInstrument(song, index));
    wr32le(h + SMP_LENGTH, smp.length << shift);
    wr32le(h + SMP_LOOP_START, smp.loopStart << shift);
    wr32le(h + SMP_LOOP_END, smp.loopEnd << shift);
    // The frequency's first byte holds the finetune in its high nibble.
    h[SMP_FINETUNE] = static_cast<uint8_t>((smp.frequency & 0xFF) >> 4);
    h[SMP_VOLUME] = smp.volume;
    h[SMP_ATTRIBUTE] = (smp.flags & SF_16BIT) ? SMP_16BIT : 0;
}

// One track row: byte 0 the note field (note - 24) in its top six bits and instrument bits 4-5
// below, byte 1 instrument bits 0-3 and the effect, byte 2 the parameter.
// Values past a field's bits carry into the next field, as the sums do.
void packRow(const EventCell& cell, uint8_t* row) {
    const unsigned noteField = cell.note != 0 ? cell.note * 4u - 96 : 0;
    row[0] = static_cast<uint8_t>(noteField + cell.instrument / 16);
    row[1] = static_cast<uint8_t>((cell.instrument << 4) + cell.effect);
    row[2] = cell.parameter;
}

void writeTracks(const SongHeader& song, OutputBuffer& out, unsigned tracks, const TranslateContext& tctx) {
    std::array<uint8_t, TRACK_SIZE> rows;
    for (unsigned t = 1; t < tracks; ++t) {
        TrackCursor cursor(song.tracks[t]);
        for (uint32_t r = 0; r < ROWS; ++r) {
            EventCell cell;
            translateEvent(cell, cursor.at(r), tctx);
            packRow(cell, rows.data() + 3 * r);
        }
        out.appendOutput(rows.data(), rows.size());
    }
}

void writePatternLists(const SongHeader& song, OutputBuffer& out, const MtmCounts& counts) {
    const size_t tableSize = song.patternTracks.size();
    std::array<uint8_t, TRACK_LIST_SIZE> list;
    for (unsigned p = 0; p < counts.patterns; ++p) {
        list.fill(0);
        for (unsigned c = 0; c < counts.channels; ++c) {
            const size_t entry = static_cast<size_t>(p) * song.channels + c;
            wr16le(list.data() + 2 * c, entry < tableSize ? song.patternTracks[entry] : 0);
        }
        out.appendOutput(list.data(), list.size());
    }
}

// The comment: every line that ends with a carriage return, without it, zero-padded to 40
// bytes (a longer line is written whole). Text after the last carriage return is not written.
// Returns the number of bytes written.
uint32_t writeComment(const std::string& message, OutputBuffer& out) {
    // The message ends at its first zero byte, as a C string would.
    std::string_view text(message.c_str(), ::strnlen(message.c_str(), message.size()));
    uint32_t written = 0;
    static constexpr uint8_t zeros[COMMENT_LINE] = {};
    for (size_t cr = text.find('\r'); cr != std::string_view::npos; cr = text.find('\r')) {
        const std::string_view line = text.substr(0, cr);
        text.remove_prefix(cr + 1);
        const size_t padding = line.size() < COMMENT_LINE ? COMMENT_LINE - line.size() : 0;
        out.appendOutput(line.data(), line.size());
        out.appendOutput(zeros, padding);
        written += static_cast<uint32_t>(line.size() + padding);
    }
    return written;
}

}  // namespace

void writeMtm(WriteContext& ctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const MtmCounts counts = countsOf(song);
    if (song.channels > counts.channels)
        ctx.diag.note("MTM holds 32 channels; %u more dropped", song.channels - counts.channels);
    if (song.orderCount > counts.orders) ctx.diag.note("MTM holds 128 orders; %u more dropped", song.orderCount - counts.orders);

    std::array<uint8_t, HEADER_SIZE> header{};
    buildHeader(song, counts, header.data());
    if (ctx.forPlayers) {
        header[BEATS_PER_TRACK] = ROWS;
        ctx.diag.note("MTM beats per track written as 64 for players (the converter writes 0)");
    }
    out.appendOutput(header.data(), header.size());

    {
        std::array<uint8_t, SAMPLE_SIZE> scratch;
        for (unsigned i = 0; i < counts.samples; ++i) {
            scratch.fill(0);
            buildSample(song, i, scratch.data());
            out.appendOutput(scratch.data(), scratch.size());
        }
    }

    std::array<uint8_t, size_t{ORDERS}> orders{};
    std::copy_n(song.orders.data(), counts.orders, orders.begin());
    out.appendOutput(orders.data(), orders.size());

    const TranslateContext tctx{targetOf(song.flags), &ctx.diag};
    writeTracks(song, out, counts.tracks, tctx);
    writePatternLists(song, out, counts);

    if (!song.message.empty()) {
        const uint32_t length = writeComment(song.message, out);
        out.patch16(COMMENT_LENGTH, static_cast<uint16_t>(length));
    }

    // The header counts one channel: a stereo sample's second channel is left out.
    unsigned stereo = 0;
    for (unsigned i = 0; i < counts.samples; ++i) {
        out.writeSamplePcm(song.samples[i], PCM_UNSIGNED, 1);
        stereo += (song.samples[i].flags & SF_STEREO) != 0;
    }
    if (stereo) ctx.diag.note("MTM samples are mono; the right channel of %u samples left out", stereo);
}

}  // namespace deqaz
