// S3M writer: serialises the module as a Scream Tracker 3 module (the layout: s3m_layout.hpp).
//
// In file order: the header, the order list, the parapointer table (one paragraph pointer per
// sample header, then per pattern; reserved now, patched as the blocks are placed), the channel
// pan table, then, each on a 16-byte boundary, the "SCRS" sample headers, the packed patterns and
// the sample data (unsigned PCM); the gaps are zero bytes.
//
// Fields hold the low bits of their values: a note byte is (n - 1) / 12 * 16 + (n - 1) % 12 in
// one byte, so notes past octave 15 wrap; a paragraph pointer keeps 16 bits (24 for sample
// data). More than 32 channels do not fit the channel table, the pan table and the 5-bit
// channel number of a packed cell: the first 32 are written and the rest noted in the
// diagnostics.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "formats/s3m/s3m_layout.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

using namespace s3m;

constexpr unsigned MAX_CHANNELS = CHANNEL_SLOTS;
constexpr uint8_t MASTER_VOLUME_WRITTEN = 0x30;

struct S3mCounts {
    unsigned channels;  // written, at most 32
    unsigned orders;
    unsigned samples;
    unsigned patterns;
};

S3mCounts countsOf(const SongHeader& song) {
    S3mCounts c{};
    c.channels = std::min<unsigned>(song.channels, MAX_CHANNELS);
    c.orders = static_cast<unsigned>(std::min<size_t>(song.orderCount, song.orders.size()));
    c.samples = static_cast<unsigned>(std::min<size_t>(song.sampleCount, song.samples.size()));
    c.patterns = song.patternCount;  // a damaged track table reads as empty cells
    return c;
}

// Channel settings. S3M codes 0-7 are the left channels L1-L8 and 8-15 the right R1-R8 (16 and
// up are AdLib channels). Channels are counted per side in channel order, centre (pan 128)
// counting as left; the n-th left channel gets code n and the n-th right channel 8 + n, so the
// first left channel is 1 and the first right 9. That rule runs out of codes at the eighth
// channel of a side (it would give 8, a right code, or 16, an AdLib code), so the code is taken
// modulo 8 within its side: the eighth channel takes the code the rule leaves free (0 or 8) and
// from the ninth on the codes repeat. Every channel keeps its side; only with more than eight
// channels on a side do two channels share a code, which is noted.
struct ChannelSettings {
    std::array<uint8_t, MAX_CHANNELS> codes;
    unsigned left = 0;
    unsigned right = 0;
};

ChannelSettings channelSettings(const SongHeader& song, unsigned channels) {
    ChannelSettings s;
    s.codes.fill(CHANNEL_OFF);
    for (unsigned c = 0; c < channels; ++c) {
        if (song.channelPan[c] <= 128) {
            ++s.left;
            s.codes[c] = static_cast<uint8_t>(s.left % 8);
        } else {
            ++s.right;
            s.codes[c] = static_cast<uint8_t>(8 + s.right % 8);
        }
    }
    return s;
}

void buildHeader(const SongHeader& song, const S3mCounts& counts, const ChannelSettings& settings, uint8_t* h) {
    copyName(h, NAME_SIZE, song.name);
    h[END_OF_TEXT] = 0x1A;
    h[FILE_TYPE] = 0x10;  // module
    wr16le(h + ORDER_COUNT, static_cast<uint16_t>(counts.orders));
    wr16le(h + SAMPLE_COUNT, static_cast<uint16_t>(counts.samples));
    wr16le(h + PATTERN_COUNT, static_cast<uint16_t>(counts.patterns));
    const bool st300 = (song.flags & SH_S3M_ST300_VOLSLIDES) != 0;
    uint16_t flags = 0;
    if (st300) flags |= FLAG_ST300_VOLSLIDES;
    if (song.flags & SH_S3M_AMIGA_LIMITS) flags |= FLAG_AMIGA_LIMITS;
    wr16le(h + FLAGS, flags);
    wr16le(h + TRACKER, st300 ? TRACKER_ST300 : TRACKER_ST301);
    wr16le(h + SAMPLE_FORMAT, SAMPLES_UNSIGNED);
    std::memcpy(h + SIGNATURE, "SCRM", 4);
    h[GLOBAL_VOLUME] = song.globalVolume;
    h[INITIAL_SPEED] = song.initialSpeed;
    h[INITIAL_TEMPO] = song.initialTempo;
    h[MASTER_VOLUME] = static_cast<uint8_t>(MASTER_VOLUME_WRITTEN | (settings.right > 0 ? MASTER_STEREO : 0));
    h[PAN_TABLE_FLAG] = PAN_TABLE_PRESENT;
    std::copy(settings.codes.begin(), settings.codes.end(), h + CHANNEL_SETTINGS);
}

void buildSample(const SongHeader& song, unsigned index, uint8_t* h) {
    const SampleRecord& smp = song.samples[index];
    h[SMP_TYPE] = SMP_TYPE_SAMPLE;
    copyName(h + SMP_FILE_NAME, SMP_FILE_NAME_SIZE, smp.fileName);
    // The data pointer is patched when the data is placed.
    wr32le(h + SMP_LENGTH, smp.length);  // frames, also for 16-bit and stereo samples
    wr32le(h + SMP_LOOP_START, smp.loopStart);
    wr32le(h + SMP_LOOP_END, smp.loopEnd);
    h[SMP_VOLUME] = smp.volume;
    uint8_t flags = 0;
    if (smp.flags & SF_LOOP) flags |= SMP_LOOP;  // ping-pong has no S3M flag
    if (smp.flags & SF_STEREO) flags |= SMP_STEREO;
    if (smp.flags & SF_16BIT) flags |= SMP_16BIT;
    h[SMP_FLAGS] = flags;
    wr32le(h + SMP_FREQUENCY, smp.frequency);
    copyName(h + SMP_NAME, SMP_NAME_SIZE, sampleNameOrInstrument(song, index));
    if (smp.length != 0) std::memcpy(h + SMP_SIGNATURE, "SCRS", 4);
}

void alignParagraph(OutputBuffer& out) {
    out.skip((PARAGRAPH - out.outputSize() % PARAGRAPH) % PARAGRAPH);
}

// The paragraph pointer of the current (aligned) output position.
uint32_t paragraphHere(const OutputBuffer& out) { return out.outputSize() / PARAGRAPH; }

// Note byte: octave in the high nibble, semitone in the low; 0xFF no note, 0xFE note cut or off.
uint8_t noteByte(uint8_t note) {
    if (note == 0) return NOTE_NONE;
    if (note >= 0xFE) return NOTE_OFF;
    return static_cast<uint8_t>((note - 1u) / 12 * 16 + (note - 1u) % 12);
}

// Packs one cell: the flag byte, then the fields it announces. An empty cell writes nothing.
// Only the effect byte decides CELL_EFFECT: a parameter without an effect is not written.
void packCell(OutputBuffer& out, unsigned channel, const EventCell& cell) {
    auto flag = static_cast<uint8_t>(channel);
    const bool noteAndInstrument = cell.note != 0 || cell.instrument != 0;
    if (noteAndInstrument) flag |= CELL_NOTE;
    if (cell.volume) flag |= CELL_VOLUME;
    if (cell.effect) flag |= CELL_EFFECT;
    if (flag == channel) return;
    out.put8(flag);
    if (noteAndInstrument) {
        out.put8(noteByte(cell.note));
        out.put8(cell.instrument);
    }
    if (cell.volume) out.put8(static_cast<uint8_t>(cell.volume - 1));  // cells hold volume + 1
    if (cell.effect) {
        out.put8(cell.effect);
        out.put8(cell.parameter);
    }
}

// Writes the packed rows of one pattern after its 16-bit length; always 64 rows.
void writePattern(const SongHeader& song, OutputBuffer& out, unsigned pattern, unsigned channels,
                  const TranslateContext& tctx) {
    const uint32_t start = out.outputSize();
    out.put16(0);  // length, patched below

    // One cursor per channel keeps the rebuild linear in the track length.
    std::array<TrackCursor, MAX_CHANNELS> cursors{};
    for (unsigned c = 0; c < channels; ++c) cursors[c] = patternCursor(song, pattern, c);

    for (uint32_t r = 0; r < ROWS; ++r) {
        for (unsigned c = 0; c < channels; ++c) {
            EventCell cell;
            translateEvent(cell, cursors[c].at(r), tctx);
            packCell(out, c, cell);
        }
        out.put8(0);  // end of row
    }
    // At most 64 rows x 32 cells x 6 bytes: the length always fits 16 bits.
    out.patch16(start, static_cast<uint16_t>(out.outputSize() - start - 2));
}

}  // namespace

void writeS3m(WriteContext& ctx) {
    const SongHeader& song = ctx.song;
    OutputBuffer& out = ctx.out;
    const S3mCounts counts = countsOf(song);
    if (song.channels > counts.channels)
        ctx.diag.note("S3M holds 32 channels; %u more dropped", song.channels - counts.channels);

    const ChannelSettings settings = channelSettings(song, counts.channels);
    if (settings.left > 8 || settings.right > 8)
        ctx.diag.note("S3M has 8 channel codes a side; %u left and %u right channels share codes",
                      settings.left > 8 ? settings.left - 8 : 0, settings.right > 8 ? settings.right - 8 : 0);
    std::array<uint8_t, HEADER_SIZE> header{};
    buildHeader(song, counts, settings, header.data());
    out.appendOutput(header.data(), header.size());
    out.appendOutput(song.orders.data(), counts.orders);

    const uint32_t tableAt = out.outputSize();
    out.skip(2 * (static_cast<size_t>(counts.samples) + counts.patterns));

    // The pan table covers all 32 slots whatever the number of channels.
    std::array<uint8_t, MAX_CHANNELS> pans{};
    for (unsigned c = 0; c < MAX_CHANNELS; ++c) pans[c] = static_cast<uint8_t>((song.channelPan[c] / 17) | PAN_VALID);
    out.appendOutput(pans.data(), pans.size());

    alignParagraph(out);
    const uint32_t firstSampleAt = out.outputSize();
    {
        std::array<uint8_t, SAMPLE_SIZE> scratch;
        for (unsigned i = 0; i < counts.samples; ++i) {
            out.patch16(tableAt + 2 * i, static_cast<uint16_t>(paragraphHere(out)));
            scratch.fill(0);
            buildSample(song, i, scratch.data());
            if (ctx.forPlayers && song.samples[i].length == 0) scratch[SMP_TYPE] = 0;
            out.appendOutput(scratch.data(), scratch.size());
        }
        if (ctx.forPlayers && std::any_of(song.samples.begin(), song.samples.begin() + counts.samples,
                                          [](const SampleRecord& s) { return s.length == 0; }))
            ctx.diag.note("S3M empty sample slots typed 0 for players (the converter writes 1)");
    }

    const TranslateContext tctx{targetOf(song.flags), &ctx.diag};
    for (unsigned p = 0; p < counts.patterns; ++p) {
        alignParagraph(out);
        out.patch16(tableAt + 2 * (counts.samples + p), static_cast<uint16_t>(paragraphHere(out)));
        writePattern(song, out, p, counts.channels, tctx);
    }

    for (unsigned i = 0; i < counts.samples; ++i) {
        const uint32_t headerAt = firstSampleAt + static_cast<uint32_t>(SAMPLE_SIZE) * i;
        alignParagraph(out);
        const uint32_t pointer = paragraphHere(out);
        out.patch8(headerAt + SMP_POINTER_HIGH, static_cast<uint8_t>(pointer >> 16));
        out.patch16(headerAt + SMP_POINTER_LOW, static_cast<uint16_t>(pointer));
        out.writeSamplePcm(song.samples[i], PCM_UNSIGNED);
    }
}

}  // namespace deqaz
