// S3M reader: a Scream Tracker 3 module into the module model, the inverse of the S3M writer
// (the layout: s3m_layout.hpp).
//
// Choices that make read -> write -> read a fixpoint:
// - Channels: the enabled ones (setting below 16: left 0-7, right 8-15), in file order, become
//   channels 0, 1, 2 ...; the writer numbers them again from their pans, so cells of other
//   channels (disabled, muted or AdLib) are dropped (warned when they hold anything).
// - Channel pan: a pan-table nibble n becomes n * 17, which the writer's pan / 17 gives back;
//   without a table, the side's default (3 left, 12 right). A mono song (master volume without
//   0x80) must stay mono: the writer sets the stereo bit when a channel pans right, so right
//   pans become 7 * 17, the centre-left value (mono ignores pans anyway).
// - Order list kept as stored, markers 0xFE and 0xFF included.
// - Cells become commands in the order note, instrument, volume, effect; the effect letters
//   are IT's (see the IT reader), and for the S3M target the translation keeps G, H and X in the
//   effect column, so nothing moves between columns.
//
// What cannot survive a round trip:
// - header: the master volume (written as 48, plus the stereo bit), the ultra-click and
//   special-data fields, header flags other than 0x10 and 0x40 (ST2 vibrato and tempo and Amiga
//   slides are warned), the tracker version (0x1300 or 0x1301 by the ST3.00-slides flag), the
//   channel settings' numbering (renumbered from the pans), the sample format (written
//   unsigned);
// - AdLib instruments (read as empty samples, warned) and their channels; ModPlug's ADPCM
//   sample packing (read as PCM; other packings are warned and dropped);
// - cells: a note/instrument pair that holds neither, a note byte whose semitone nibble is above
//   11 (read as octave * 12 + semitone, so it comes back as a note of the next octave), a volume
//   byte of 255, effects outside A-Z (warned), a parameter without an effect; a channel named
//   twice in one row keeps its later cell.
#include <algorithm>
#include <array>
#include <cstring>

#include "common/endian.hpp"
#include "formats/s3m/s3m_layout.hpp"
#include "readers/module_reader.hpp"

namespace deqaz {

namespace {

using namespace s3m;

constexpr uint8_t PAN_NIBBLE_LEFT = 3;
constexpr uint8_t PAN_NIBBLE_RIGHT = 12;
constexpr uint8_t PAN_NIBBLE_MONO = 7;  // the highest nibble the writer still counts as left

ReadResult fail(const char* why) {
    ReadResult r;
    r.error = why;
    return r;
}

uint8_t panFromNibble(unsigned nibble) { return static_cast<uint8_t>(nibble * 17); }

struct CellLosses {
    unsigned droppedChannels = 0;
    unsigned volumes255 = 0;
    unsigned unknownEffects = 0;
};

// Reads one sample header and its data into `smp`.
bool readSample(const uint8_t* data, size_t size, size_t at, bool signedData, SampleRecord& smp, ReadWarnings& warnings) {
    ByteReader in(data, size);
    in.seek(at);
    const uint8_t type = in.u8();
    smp.fileName = in.text(12);
    const uint32_t paragraph = (static_cast<uint32_t>(in.u8()) << 16) | in.u16();  // SMP_POINTER_HIGH, _LOW
    const uint32_t length = in.u32();
    smp.loopStart = in.u32();
    smp.loopEnd = in.u32();
    smp.volume = in.u8();
    in.u8();
    const uint8_t packing = in.u8();
    const uint8_t flags = in.u8();
    smp.frequency = in.u32();
    in.seek(at + SMP_NAME);
    smp.name = in.text(SMP_NAME_SIZE);
    if (flags & SMP_LOOP) smp.flags |= SF_LOOP;
    if (flags & SMP_STEREO) smp.flags |= SF_STEREO;
    if (flags & SMP_16BIT) smp.flags |= SF_16BIT;

    if (type > SMP_TYPE_SAMPLE) {
        warnings.add("S3M: AdLib instruments cannot be kept; read as empty samples");
        smp.flags = 0;
        smp.loopStart = smp.loopEnd = 0;
        return true;
    }
    // A slot without a length is empty; a type-0 ("empty") slot with one is read, as libxmp reads it.
    if (length == 0) return true;
    const bool adpcm = packing == SMP_PACKING_ADPCM && !(smp.flags & (SF_16BIT | SF_STEREO));
    if (packing != 0 && !adpcm) {
        warnings.add("S3M: packed sample data other than ModPlug's 8-bit ADPCM is not supported; dropped");
        return true;
    }
    smp.length = length;
    if (adpcm) {
        bool cut = false;
        if (!readAdpcmSample(data, size, size_t{paragraph} * PARAGRAPH, smp, cut)) return false;
        if (cut) warnings.add("S3M: ADPCM sample data cut short by the end of the file");
        fitLoops(smp);
        return true;
    }
    RawPcmLayout layout;
    layout.sixteenBit = (smp.flags & SF_16BIT) != 0;
    layout.stereo = (smp.flags & SF_STEREO) != 0;
    layout.isSigned = signedData;
    bool truncated = false;
    if (!readRawSample(data, size, size_t{paragraph} * PARAGRAPH, layout, smp, truncated)) return false;
    if (truncated) warnings.add("S3M: sample data cut short by the end of the file");
    fitLoops(smp);
    return true;
}

// Unpacks one pattern into the builder.
void readPattern(const uint8_t* data, size_t size, size_t at, const std::array<int, CHANNEL_SLOTS>& channelOf,
                 PatternBuilder& builder, CellLosses& losses, ReadWarnings& warnings) {
    builder.beginPattern(ROWS);
    if (at == 0) return;
    if (at > size || size - at < 2) {
        warnings.add("S3M: a pattern lies past the end of the file; read as empty");
        return;
    }
    ByteReader in(data, size);
    in.seek(at + 2);
    for (unsigned r = 0; r < ROWS; ++r) {
        for (;;) {
            if (!in.has(1)) {
                warnings.add("S3M: a pattern's packed data ends early; the rest is empty");
                return;
            }
            const uint8_t what = in.u8();
            if (what == 0) break;
            uint8_t note = NOTE_NONE, instrument = 0, volume = 0, effect = 0, parameter = 0;
            if (what & CELL_NOTE) {
                note = in.u8();
                instrument = in.u8();
            }
            if (what & CELL_VOLUME) volume = in.u8();
            if (what & CELL_EFFECT) {
                effect = in.u8();
                parameter = in.u8();
            }
            if (in.overrun()) {
                warnings.add("S3M: a pattern's packed data ends early; the rest is empty");
                return;
            }
            TrackRow cell;
            if (note == NOTE_OFF)
                cell.push_back({CMD_NOTE, NOTE_OFF});
            else if (note != NOTE_NONE)
                cell.push_back({CMD_NOTE, static_cast<uint8_t>((note >> 4) * 12 + (note & 0x0F))});
            if (instrument != 0) cell.push_back({CMD_INSTRUMENT, static_cast<uint8_t>(instrument - 1)});
            if (what & CELL_VOLUME) {
                if (volume != 0xFF)
                    cell.push_back({CMD_SET_VOLUME, volume});
                else
                    ++losses.volumes255;
            }
            if ((what & CELL_EFFECT) && effect != 0 && !appendItEffect(cell, effect, parameter)) ++losses.unknownEffects;
            if (cell.empty()) continue;
            const int ch = channelOf[what & CELL_CHANNEL];
            if (ch < 0) {
                ++losses.droppedChannels;
                continue;
            }
            TrackRow& target = builder.cell(r, static_cast<unsigned>(ch));
            target = std::move(cell);  // a later cell of the same channel and row wins, as in play
        }
    }
}

// The enabled PCM channels in file order become the song's channels, with their pans; returns
// each slot's channel, or -1 for a slot that is dropped.
std::array<int, CHANNEL_SLOTS> readChannels(const uint8_t* data, size_t size, size_t panAt, SongHeader& song,
                                            ReadWarnings& warnings) {
    const bool stereo = (data[MASTER_VOLUME] & MASTER_STEREO) != 0;
    const bool panTable = data[PAN_TABLE_FLAG] == PAN_TABLE_PRESENT && size - panAt >= CHANNEL_SLOTS;
    std::array<int, CHANNEL_SLOTS> channelOf;
    channelOf.fill(-1);
    unsigned channels = 0;
    for (unsigned slot = 0; slot < CHANNEL_SLOTS; ++slot) {
        const uint8_t setting = data[CHANNEL_SETTINGS + slot];
        if (setting >= FIRST_ADLIB_SETTING) continue;
        channelOf[slot] = static_cast<int>(channels);
        unsigned nibble = setting < 8 ? PAN_NIBBLE_LEFT : PAN_NIBBLE_RIGHT;
        if (panTable && (data[panAt + slot] & PAN_VALID)) nibble = data[panAt + slot] & 0x0F;
        if (!stereo && nibble > PAN_NIBBLE_MONO) nibble = PAN_NIBBLE_MONO;
        song.channelPan[channels] = panFromNibble(nibble);
        song.channelVolume[channels] = 64;
        ++channels;
    }
    if (channels == 0) {
        // A song of AdLib channels only: one silent channel keeps the file playable.
        warnings.add("S3M: no sample channel enabled; one empty channel written");
        song.channelPan[0] = panFromNibble(PAN_NIBBLE_LEFT);
        song.channelVolume[0] = 64;
        channels = 1;
    }
    song.channels = static_cast<uint8_t>(channels);
    return channelOf;
}

// The samples whose header pointers start at `pointersAt`. False when memory runs out.
bool readSamples(const uint8_t* data, size_t size, size_t pointersAt, unsigned samples, bool signedData, SongHeader& song,
                 ReadWarnings& warnings) {
    song.samples.resize(samples);
    song.sampleCount = static_cast<uint16_t>(samples);
    for (unsigned i = 0; i < samples; ++i) {
        song.samples[i].globalVolume = 64;  // S3M has no sample global volume: full
        const size_t at = size_t{rd16le(data + pointersAt + 2 * i)} * PARAGRAPH;
        if (at == 0 || at > size || size - at < SAMPLE_SIZE)
            warnings.add("S3M: a missing or damaged sample header read as an empty sample");
        else if (!readSample(data, size, at, signedData, song.samples[i], warnings))
            return false;
    }
    return true;
}

}  // namespace

ReadResult readS3m(const uint8_t* data, size_t size) {
    if (size < HEADER_SIZE || std::memcmp(data + SIGNATURE, "SCRM", 4) != 0)
        return fail("not an S3M file: no \"SCRM\" signature");
    ByteReader in(data, size);
    const uint16_t orders = rd16le(data + ORDER_COUNT);
    const uint16_t samples = rd16le(data + SAMPLE_COUNT);
    const uint16_t patterns = rd16le(data + PATTERN_COUNT);
    const uint16_t flags = rd16le(data + FLAGS);
    const uint16_t tracker = rd16le(data + TRACKER);
    const uint16_t sampleFormat = rd16le(data + SAMPLE_FORMAT);
    const size_t pointersAt = HEADER_SIZE + orders;
    const size_t panAt = pointersAt + 2 * (size_t{samples} + patterns);
    if (panAt > size) return fail("S3M file truncated in its order list or pointer tables");

    ReadWarnings warnings;
    auto song = std::make_unique<SongHeader>();
    song->flags = SH_ORIGIN_S3M;
    if ((flags & FLAG_ST300_VOLSLIDES) || tracker == TRACKER_ST300) song->flags |= SH_S3M_ST300_VOLSLIDES;
    if (flags & FLAG_AMIGA_LIMITS) song->flags |= SH_S3M_AMIGA_LIMITS;
    if (flags & FLAGS_ST2) warnings.add("S3M: header flags for ST2 vibrato, ST2 tempo or Amiga slides dropped");
    if (sampleFormat != SAMPLES_SIGNED && sampleFormat != SAMPLES_UNSIGNED) warnings.add("S3M: unknown sample format read as unsigned");
    const bool signedData = sampleFormat == SAMPLES_SIGNED;

    in.seek(0);
    song->name = in.text(NAME_SIZE);
    song->globalVolume = data[GLOBAL_VOLUME];
    song->initialSpeed = data[INITIAL_SPEED];
    song->initialTempo = data[INITIAL_TEMPO];

    song->orderCount = orders;
    song->hasOrders = true;
    if (!song->orders.dupBuffer(data + HEADER_SIZE, orders)) return fail("Insufficient memory");

    const std::array<int, CHANNEL_SLOTS> channelOf = readChannels(data, size, panAt, *song, warnings);

    if (!readSamples(data, size, pointersAt, samples, signedData, *song, warnings)) return fail("Insufficient memory");

    // Patterns.
    PatternBuilder builder(song->channels);
    CellLosses losses;
    for (unsigned p = 0; p < patterns; ++p) {
        const size_t at = size_t{rd16le(data + pointersAt + 2 * (size_t{samples} + p))} * PARAGRAPH;
        readPattern(data, size, at, channelOf, builder, losses, warnings);
    }
    if (!builder.finish(*song)) return fail("S3M file has more distinct tracks than the container can hold");
    if (losses.droppedChannels) warnings.add("S3M: cells of disabled or AdLib channels dropped", losses.droppedChannels);
    if (losses.volumes255) warnings.add("S3M: volume byte 255 dropped", losses.volumes255);
    if (losses.unknownEffects) warnings.add("S3M: effects outside A-Z dropped", losses.unknownEffects);

    return warnings.result(std::move(song));
}

}  // namespace deqaz
