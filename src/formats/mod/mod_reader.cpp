// MOD reader: Amiga ProTracker-family modules into the module model.
//
// File layout: 20-byte song name; 31 sample slots of 30 bytes (name, then big-endian words:
// length in words, finetune nibble, volume, loop start and loop length in words); song length,
// restart byte, 128-entry order table; a four-character signature at 1080 that names the
// channel count; the patterns, 64 rows of 4-byte cells per channel; the signed 8-bit sample data
// (or ModPlug's 4-bit ADPCM packing of it, marked "ADPCM", which is unpacked).
// The older 15-sample layout (Soundtracker) has no signature: 15 slots, the order table at 472
// and the patterns at 600.
//
// A cell holds the instrument split over two nibbles, a 12-bit Amiga period and an effect
// nibble with its parameter. Periods become notes: the writer turns note n back into the period
// floor(6848 * 2^((1 - n) / 12) + 0.5), so each period is read as the note whose period is
// nearest; periods from the ProTracker table that the formula misses by one come back off by one.
//
// The signatures read: M.K., M!K!, M&K!, N.T., FEST, Startrekker's FLT4 and EXO4 (4 channels),
// FLT8, FLTM, EXO8 and EXOM (8 channels stored as pairs of 4-channel patterns), CD61, CD81,
// OKTA, OCTA, xCHN, xxCH, xxCN, TDZx and Digital Tracker's FA04/FA06/FA08 (whose patterns start
// 4 bytes later). A "M.K." file whose size fits 8 channels exactly and 4 channels not at all is
// Mod's Grave's 8-channel layout.
//
// Soundtracker 2.6 and Ice Tracker ("MTN\0" or "IT10" at 1464) keep the 31 slots but store
// reusable 64-row tracks instead of patterns: after the slots come the song length, the track
// count and a 128 x 4 table naming the track each channel plays at each song position, the mark,
// the tracks from 1468 and then the sample data. They are read as players read them: position i
// plays pattern i, made of its four tracks, and finetunes are ignored.
//
// His Master's Noise ("FEST", "M&K!") is read as libxmp reads it: a finetune byte counts -1/16
// semitone, half ProTracker's step; effects 7 (HMN's mega-arpeggio), 8, 9 and E are dropped; a
// "Mupp" slot is a synth sound whose waveforms fill the pattern its fifth name byte names, which
// is cleared where no order of the song plays it (its bytes would be taken for cells).
//
// Chiptracker ("KRIS" at 952) also stores tracks: a 22-byte title before the 31 slots, the song
// length and restart byte after the mark, a 128 x 4 table of two-byte entries (the track, a
// transposition) from 958, then from 1984 as many tracks as the highest the song names, cells of
// a note index times two (0 or 0xA8 for none), the instrument, the effect nibble and its
// parameter. As libxmp reads it: position i plays pattern i, transpositions are ignored, and a
// slot's loop start counts bytes.
//
// What does not survive a round trip (each is reported as a warning): the signature (the writer
// chooses it from the channel count, "N.T." for a 15-sample module), finetune bits above the
// low nibble, a restart byte of 0 (written as 127), orders past the song length and the
// patterns only they name, periods off the formula, sample data past the end of the file; of
// Soundtracker 2.6 and Ice Tracker modules, the track layout (written as a 4-channel MOD),
// speed commands with both nibbles set (Ice Tracker's alternating speeds) and samples of 4
// bytes or less, which players do not load; of Chiptracker modules, the track layout, the
// transpositions, notes past B-9, the high nibble of the effect byte and odd loop starts; of His
// Master's Noise modules, synth sounds (read as plain samples), finetunes between ProTracker's
// steps (rounded toward zero) and the effects above.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

#include "common/endian.hpp"
#include "formats/mod/mod_layout.hpp"
#include "readers/module_reader.hpp"

namespace deqaz {

namespace {

using namespace mod;

constexpr unsigned HIGHEST_NOTE = 120;  // B-9; smaller periods all read as it

struct Layout {
    unsigned samples = 31;
    unsigned channels = 4;
    size_t headerSize = HEADER_SIZE;  // where the patterns start
    bool flt8 = false;
    bool hmn = false;
    bool modsGrave = false;  // "M.K." that may hold 8 channels
    bool noteTracker = false;  // "N.T.": 15 samples when the last 16 slots are empty
};

bool digit(uint8_t c) { return c >= '0' && c <= '9'; }

// The layout a signature stands for, or false for none known.
bool signatureLayout(const uint8_t* s, Layout& l) {
    auto is = [&](const char* text) { return std::memcmp(s, text, 4) == 0; };
    if (is("M.K.") || is("M!K!")) {
        l.modsGrave = is("M.K.");
        return true;
    }
    if (is("M&K!") || is("FEST")) {
        l.hmn = true;
        return true;
    }
    if (is("N.T.")) {
        l.noteTracker = true;
        return true;
    }
    if (is("FLT4") || is("EXO4")) return true;
    if (is("FLT8") || is("EXO8") || is("FLTM") || is("EXOM")) {
        l.channels = 8;
        l.flt8 = true;
        return true;
    }
    if (is("CD81") || is("OKTA") || is("OCTA")) {
        l.channels = 8;
        return true;
    }
    if (is("CD61")) {
        l.channels = 6;
        return true;
    }
    if (s[0] == 'F' && s[1] == 'A' && s[2] == '0' && (s[3] == '4' || s[3] == '6' || s[3] == '8')) {
        l.channels = static_cast<unsigned>(s[3] - '0');
        l.headerSize = 1088;
        return true;
    }
    if (s[0] >= '1' && s[0] <= '9' && std::memcmp(s + 1, "CHN", 3) == 0) {
        l.channels = static_cast<unsigned>(s[0] - '0');
        return true;
    }
    if (std::memcmp(s, "TDZ", 3) == 0 && s[3] >= '1' && s[3] <= '9') {
        l.channels = static_cast<unsigned>(s[3] - '0');
        return true;
    }
    if (digit(s[0]) && digit(s[1]) && s[2] == 'C' && (s[3] == 'H' || s[3] == 'N')) {
        l.channels = static_cast<unsigned>((s[0] - '0') * 10 + (s[1] - '0'));
        return l.channels > 0;
    }
    return false;
}

struct Slot {
    std::string name;
    uint32_t lengthWords = 0;
    uint8_t finetune = 0;
    uint8_t volume = 0;
    uint32_t loopStartWords = 0;
    uint32_t loopLengthWords = 0;
};

Slot readSlot(ByteReader& in) {
    Slot s;
    s.name = in.text(22);
    s.lengthWords = in.u16be();
    s.finetune = in.u8();
    s.volume = in.u8();
    s.loopStartWords = in.u16be();
    s.loopLengthWords = in.u16be();
    return s;
}

// A headerless file is taken for a 15-sample Soundtracker module only when every field looks
// like one: a song length of 1 to 128, orders below 128, volumes up to 64, finetunes of 0 to 15,
// sample lengths of at most 64 KiB, room for the patterns, and cells with plausible periods
// and instrument numbers.
bool plausibleSoundtracker(const uint8_t* data, size_t size, const std::array<Slot, 31>& slots) {
    if (size < 600 + ROWS * 4 * 4) return false;
    const uint8_t length = data[470];
    if (length == 0 || length > ORDERS) return false;
    unsigned maxPattern = 0;
    for (unsigned i = 0; i < ORDERS; ++i) {
        if (data[472 + i] >= ORDERS) return false;
        if (i < length) maxPattern = std::max<unsigned>(maxPattern, data[472 + i]);
    }
    for (unsigned i = 0; i < 15; ++i) {
        const Slot& s = slots[i];
        if (s.volume > 64 || s.finetune > 15 || s.lengthWords > 32768) return false;
    }
    const size_t patternBytes = (size_t{maxPattern} + 1) * ROWS * 4 * 4;
    if (600 + patternBytes > size) return false;
    size_t odd = 0;
    for (size_t at = 600; at < 600 + patternBytes; at += 4) {
        const unsigned period = ((data[at] & 0x0F) << 8) | data[at + 1];
        const unsigned instrument = (data[at] & 0xF0) | (data[at + 2] >> 4);
        if ((period && (period < 28 || period > 1712)) || instrument > 15) ++odd;
    }
    return odd * 100 <= patternBytes / 4;  // allow a stray cell in a hundred
}

// Nearest note for each 12-bit period, built once.
const std::array<uint8_t, 4096>& periodNotes() {
    static const std::array<uint8_t, 4096> table = [] {
        std::array<uint32_t, HIGHEST_NOTE + 1> period{};
        for (unsigned n = 1; n <= HIGHEST_NOTE; ++n)
            period[n] = static_cast<uint32_t>(6848.0 * std::pow(2.0, (1 - static_cast<int>(n)) * 0.08333333333333333) + 0.5);
        std::array<uint8_t, 4096> t{};
        unsigned n = 1;  // periods fall as notes rise: walk both together
        for (unsigned p = 4095; p >= 1; --p) {
            while (n < HIGHEST_NOTE && period[n + 1] >= p) ++n;
            // p lies between period[n + 1] (below) and period[n] (at or above), or past an end.
            unsigned best = n;
            if (n < HIGHEST_NOTE && p - period[n + 1] < (period[n] > p ? period[n] - p : p - period[n])) best = n + 1;
            t[p] = static_cast<uint8_t>(best);
        }
        return t;
    }();
    return table;
}

uint8_t noteOfPeriod(unsigned period) { return periodNotes()[period & 0x0FFF]; }

ReadResult fail(const char* why) {
    ReadResult r;
    r.error = why;
    return r;
}

// ModPlug's ADPCM packing in a MOD: "ADPCM", then the delta table and the nibbles.
constexpr size_t ADPCM_MARK = 5;

// The commands of one cell: the note (0-based, if any), the instrument (1-based, 0 for none),
// effect 0-F as commands 3-18.
void appendCell(TrackRow& row, std::optional<uint8_t> note, uint8_t instrument, uint8_t effect, uint8_t param) {
    if (note) row.push_back({CMD_NOTE, *note});
    if (instrument) row.push_back({CMD_INSTRUMENT, static_cast<uint8_t>(instrument - 1)});
    if (effect || param) row.push_back({static_cast<uint8_t>(effect + 3), param});
}

// A 4-byte ProTracker cell: the instrument split over two nibbles, a 12-bit period, the effect.
void decodeCell(const uint8_t* cell, TrackRow& row) {
    const unsigned period = ((cell[0] & 0x0F) << 8) | cell[1];
    std::optional<uint8_t> note;
    if (period) note = static_cast<uint8_t>(noteOfPeriod(period) - 1);
    appendCell(row, note, static_cast<uint8_t>((cell[0] & 0xF0) | (cell[2] >> 4)), cell[2] & 0x0F, cell[3]);
}

// The samples of the slots: signed 8-bit data (or ModPlug's ADPCM packing), one after the other
// from `pos`. As libxmp reads a file that ends early: a raw sample it cuts keeps the data present
// (its loop fitted to it), one that starts past the end keeps its stated length as silence. False
// when memory runs out.
bool readSamples(const uint8_t* data, size_t size, size_t pos, const std::array<Slot, 31>& slots, unsigned count,
                 SongHeader& song, ReadWarnings& warnings, bool loopStartInBytes = false) {
    song.samples.resize(count);
    bool cut = false;
    for (unsigned i = 0; i < count; ++i) {
        const Slot& slot = slots[i];
        SampleRecord& s = song.samples[i];
        s.name = slot.name;
        if (slot.finetune > 15) warnings.add("MOD: finetune bits above the low nibble dropped");
        s.frequency = static_cast<uint8_t>(((slot.finetune & 0x0F) << 4) ^ 0x80);
        s.volume = slot.volume;
        s.pan = -1;
        s.length = slot.lengthWords * 2;
        s.loopStart = loopStartInBytes ? slot.loopStartWords : slot.loopStartWords * 2;
        s.loopEnd = s.loopStart + slot.loopLengthWords * 2;
        if (slot.loopLengthWords > 1) s.flags |= SF_LOOP;
        if (s.length && pos + ADPCM_MARK + ADPCM_TABLE <= size && std::memcmp(data + pos, "ADPCM", ADPCM_MARK) == 0) {
            if (!readAdpcmSample(data, size, pos + ADPCM_MARK, s, cut)) return false;
            pos = std::min(size, pos + ADPCM_MARK + ADPCM_TABLE + (size_t{s.length} + 1) / 2);
        } else {
            if (!readRawSample(data, size, pos, RawPcmLayout{.keepLength = pos >= size}, s, cut)) return false;
            pos += pos < size ? std::min<size_t>(s.length, size - pos) : 0;
        }
        if (fitLoops(s)) warnings.add("MOD: loop ends past the end of the sample cut");
    }
    if (cut) warnings.add("MOD: sample data cut short by the end of the file; a sample with none left is silence");
    if (pos < size) warnings.add("MOD: " + std::to_string(size - pos) + " bytes after the sample data ignored");
    song.sampleCount = static_cast<uint16_t>(count);
    return true;
}

// A song of `channels` channels with the Amiga's defaults: speed 6, tempo 125, pans L R R L.
std::unique_ptr<SongHeader> amigaSong(const uint8_t* data, unsigned channels) {
    auto song = newSong(SH_ORIGIN_MOD, channels);
    song->name = std::string(reinterpret_cast<const char*>(data), ::strnlen(reinterpret_cast<const char*>(data), 20));
    for (unsigned c = 0; c < 64; ++c) song->channelPan[c] = ((c & 3) == 0 || (c & 3) == 3) ? 0 : 255;
    return song;
}

// A song that stores tracks, not patterns: position i plays pattern i, made of the four tracks
// `track(p, c)` points to (64 cells of 4 bytes), each cell decoded by `decode`. Null when memory
// runs out.
template <class Track, class Decode>
std::unique_ptr<SongHeader> trackedSong(const uint8_t* data, unsigned length, Track track, Decode decode) {
    auto song = amigaSong(data, 4);
    std::array<uint8_t, ORDERS> orders;
    for (unsigned i = 0; i < ORDERS; ++i) orders[i] = static_cast<uint8_t>(i);
    if (!song->orders.dupBuffer(orders.data(), length)) return nullptr;
    song->orderCount = static_cast<uint16_t>(length);
    song->hasOrders = true;
    PatternBuilder builder(4);
    for (unsigned p = 0; p < length; ++p) {
        builder.beginPattern(ROWS);
        for (unsigned c = 0; c < 4; ++c)
            for (unsigned r = 0; r < ROWS; ++r) decode(track(p, c) + size_t{r} * CELL_SIZE, builder.cell(r, c));
    }
    return builder.finish(*song) ? std::move(song) : nullptr;
}

constexpr size_t ICE_TRACKS_AT = 1468;

// Soundtracker 2.6 and Ice Tracker: position i plays pattern i, the four tracks its table row
// names.
ReadResult readIce(const uint8_t* data, size_t size) {
    ReadWarnings warnings;
    warnings.add("MOD: Soundtracker 2.6 / Ice Tracker tracks written back as a 4-channel MOD");
    ByteReader in(data, size);
    std::array<Slot, 31> slots;
    in.seek(20);
    for (Slot& slot : slots) slot = readSlot(in);
    const unsigned length = data[950], tracks = data[951];
    const uint8_t* table = data + 952;
    if (length == 0 || length > ORDERS) return fail("ICE Tracker module has no song positions or more than 128");
    if (std::any_of(table, table + length * 4, [&](uint8_t t) { return t >= tracks; }))
        return fail("ICE Tracker module names a track it does not hold");
    if (ICE_TRACKS_AT + size_t{tracks} * ROWS * 4 > size) return fail("ICE Tracker module ends inside its tracks");

    bool swing = false;
    auto track = [&](unsigned p, unsigned c) { return data + ICE_TRACKS_AT + size_t{table[p * 4 + c]} * ROWS * CELL_SIZE; };
    auto song = trackedSong(data, length, track, [&](const uint8_t* cell, TrackRow& row) {
        swing |= (cell[2] & 0x0F) == 0x0F && (cell[3] >> 4) && (cell[3] & 0x0F);
        decodeCell(cell, row);
    });
    if (!song) return fail("Insufficient memory");
    if (swing) warnings.add("MOD: Ice Tracker's alternating speeds (F with both nibbles) read as plain F commands");

    // Players ignore the finetunes and do not load samples of 4 bytes or less.
    bool tiny = false;
    for (Slot& slot : slots) {
        slot.finetune = 0;
        if (slot.lengthWords > 0 && slot.lengthWords <= 2) slot.lengthWords = 0, tiny = true;
    }
    if (tiny) warnings.add("MOD: samples of 4 bytes or less dropped, as players do");
    if (!readSamples(data, size, ICE_TRACKS_AT + size_t{tracks} * ROWS * 4, slots, 31, *song, warnings))
        return fail("Insufficient memory");
    return warnings.result(std::move(song));
}

// How many patterns the song plays (up to the highest named within the song length) and how many
// the file stores. ProTracker counts them over the whole order table, some trackers over the song
// only: the count whose layout matches the file size wins, else the larger one that fits. A
// "M.K." file whose size fits 8 channels and not 4 is Mod's Grave's.
struct PatternSpan {
    unsigned patterns, stored;
};

PatternSpan patternSpan(size_t size, const std::array<Slot, 31>& slots, const std::array<uint8_t, ORDERS>& orders,
                        unsigned songLength, Layout& layout, ReadWarnings& warnings) {
    unsigned maxAll = 0;
    unsigned maxUsed = 0;
    for (unsigned i = 0; i < ORDERS; ++i) {
        maxAll = std::max<unsigned>(maxAll, orders[i]);
        if (i < songLength) maxUsed = std::max<unsigned>(maxUsed, orders[i]);
    }
    uint64_t sampleBytes = 0;
    for (unsigned i = 0; i < layout.samples; ++i) sampleBytes += uint64_t{slots[i].lengthWords} * 2;
    auto fileSizeFor = [&](unsigned patterns, unsigned channels) {
        return layout.headerSize + uint64_t{patterns} * ROWS * channels * 4 + sampleBytes;
    };
    if (layout.modsGrave && fileSizeFor(maxAll + 1, 4) != size && fileSizeFor(maxUsed + 1, 4) != size &&
        (fileSizeFor(maxAll + 1, 8) == size || fileSizeFor(maxUsed + 1, 8) == size)) {
        layout.channels = 8;
        warnings.add("MOD: \"M.K.\" file with 8 channels (Mod's Grave); written as CD81");
    }
    unsigned stored = maxAll + 1;
    if (fileSizeFor(stored, layout.channels) != size &&
        (fileSizeFor(maxUsed + 1, layout.channels) == size || fileSizeFor(stored, layout.channels) - sampleBytes > size))
        stored = maxUsed + 1;
    return {maxUsed + 1, stored};
}

// His Master's Noise: the waveform patterns to clear, and whether effects were dropped.
struct HmnRules {
    std::array<bool, 256> waveforms{};  // patterns no order plays that hold waveforms
    bool droppedEffects = false;
};

void dropHmnEffects(TrackRow& row, HmnRules& hmn) {
    const auto before = row.size();
    std::erase_if(row, [](const TrackCommand& c) {
        return c.command == 7 + 3 || c.command == 8 + 3 || c.command == 9 + 3 || c.command == 0xE + 3;  // effects 7, 8, 9, E
    });
    hmn.droppedEffects |= row.size() != before;
}

// The ProTracker finetune nibble nearest below (toward zero) an HMN finetune byte; `exact` is
// cleared when it lies between ProTracker's steps or past them.
uint8_t hmnFinetune(uint8_t byte, bool& exact) {
    const int fine = -static_cast<int8_t>(static_cast<uint8_t>(byte << 3));  // 1/128 semitone
    const int steps = std::clamp(fine / 16, -8, 7);
    exact &= steps * 16 == fine;
    return static_cast<uint8_t>(steps & 0x0F);
}

// His Master's Noise's slots made ProTracker's: finetunes in ProTracker's steps, and the waveform
// patterns of its synth sounds that no order of the song plays.
HmnRules hmnRules(const uint8_t* data, std::array<Slot, 31>& slots, const std::array<uint8_t, ORDERS>& orders,
                  unsigned songLength, ReadWarnings& warnings) {
    HmnRules hmn;
    bool exact = true, synth = false;
    for (unsigned i = 0; i < SLOTS; ++i) {
        slots[i].finetune = hmnFinetune(slots[i].finetune, exact);
        const uint8_t* name = data + 20 + SLOT_SIZE * i;
        if (std::memcmp(name, "Mupp", 4) == 0) hmn.waveforms[name[4]] = synth = true;
    }
    if (synth) warnings.add("MOD: His Master's Noise synth sounds read as plain samples");
    for (unsigned i = 0; i < songLength; ++i) hmn.waveforms[orders[i]] = false;
    if (!exact) warnings.add("MOD: His Master's Noise finetunes between ProTracker's steps rounded toward zero");
    if (std::count(hmn.waveforms.begin(), hmn.waveforms.end(), true))
        warnings.add("MOD: His Master's Noise synth waveforms in patterns no order plays cleared");
    return hmn;
}

// The cells of the first `patterns` patterns. FLT8 stores each pattern as two 4-channel halves,
// one after the other.
void readCells(const uint8_t* data, const Layout& layout, unsigned patterns, PatternBuilder& builder, HmnRules* hmn) {
    const unsigned channels = layout.channels;
    const size_t patternSize = size_t{ROWS} * channels * 4;
    const size_t rowBytes = size_t{channels} * 4;
    for (unsigned p = 0; p < patterns; ++p) {
        builder.beginPattern(ROWS);
        if (hmn && hmn->waveforms[p]) continue;
        const uint8_t* base = data + layout.headerSize + size_t{p} * patternSize;
        for (unsigned r = 0; r < ROWS; ++r)
            for (unsigned c = 0; c < channels; ++c) {
                const uint8_t* cell = layout.flt8 ? base + (c / 4) * (ROWS * 16) + r * 16 + (c % 4) * 4
                                                  : base + r * rowBytes + c * 4;
                decodeCell(cell, builder.cell(r, c));
                if (hmn) dropHmnEffects(builder.cell(r, c), *hmn);
            }
    }
}

constexpr size_t CHIP_TITLE = 22, CHIP_TABLE_AT = 958, CHIP_TRACKS_AT = 1984;
constexpr uint8_t CHIP_NO_NOTE = 0xA8;

// Chiptracker: position i plays pattern i, the four tracks its table row names.
ReadResult readChip(const uint8_t* data, size_t size) {
    if (size < CHIP_TRACKS_AT) return fail("Chiptracker module truncated in its header");
    ReadWarnings warnings;
    warnings.add("MOD: Chiptracker tracks written back as a 4-channel MOD");
    ByteReader in(data, size);
    std::array<Slot, 31> slots;
    in.seek(CHIP_TITLE);
    for (Slot& slot : slots) slot = readSlot(in);
    const unsigned length = data[956];
    if (length == 0 || length > ORDERS) return fail("Chiptracker module has no song positions or more than 128");
    const uint8_t* table = data + CHIP_TABLE_AT;  // pairs: track, transposition
    unsigned tracks = 0;
    bool transposed = false;
    for (unsigned k = 0; k < length * 4; ++k) {
        tracks = std::max(tracks, table[2 * k] + 1u);
        transposed |= table[2 * k + 1] != 0;
    }
    if (transposed) warnings.add("MOD: Chiptracker track transpositions ignored, as libxmp plays them");
    if (CHIP_TRACKS_AT + size_t{tracks} * ROWS * 4 > size) return fail("Chiptracker module ends inside its tracks");

    bool lost = false;
    auto track = [&](unsigned p, unsigned c) {
        return data + CHIP_TRACKS_AT + size_t{table[2 * (p * 4 + c)]} * ROWS * CELL_SIZE;
    };
    auto song = trackedSong(data, length, track, [&](const uint8_t* e, TrackRow& row) {
        std::optional<uint8_t> note;
        if (e[0] && e[0] != CHIP_NO_NOTE) note = static_cast<uint8_t>(e[0] / 2);
        lost |= (note && *note >= HIGHEST_NOTE) || (e[2] >> 4) != 0;
        if (note >= HIGHEST_NOTE) note.reset();
        appendCell(row, note, e[1], e[2] & 0x0F, e[3]);
    });
    if (!song) return fail("Insufficient memory");
    song->restartPos = data[957];
    if (lost) warnings.add("MOD: Chiptracker notes past B-9 and effect bytes' high nibbles dropped");
    // The slots' loop starts count bytes here; a MOD counts words.
    if (std::any_of(slots.begin(), slots.end(), [](const Slot& s) { return s.loopStartWords & 1; }))
        warnings.add("MOD: Chiptracker loop starts at odd bytes written back a byte earlier");
    if (!readSamples(data, size, CHIP_TRACKS_AT + size_t{tracks} * ROWS * 4, slots, 31, *song, warnings, true))
        return fail("Insufficient memory");
    return warnings.result(std::move(song));
}

// The sample slots, 31 after a signature, else 15 of a file that looks like Soundtracker's (whose
// layout is then set); false for neither.
bool readSlots(const uint8_t* data, size_t size, bool signed31, Layout& layout, std::array<Slot, 31>& slots) {
    ByteReader in(data, size);
    in.seek(20);
    for (unsigned i = 0; i < (signed31 ? 31 : 15); ++i) slots[i] = readSlot(in);
    if (!signed31) {
        if (!plausibleSoundtracker(data, size, slots)) return false;
        layout.samples = 15;
        layout.headerSize = 600;
    } else if (layout.noteTracker &&
               std::all_of(slots.begin() + 15, slots.end(), [](const Slot& s) { return s.lengthWords == 0; })) {
        layout.samples = 15;
    }
    return true;
}

}  // namespace

ReadResult readMod(const uint8_t* data, size_t size) {
    ReadWarnings warnings;
    Layout layout;
    std::array<Slot, 31> slots;
    const bool signed31 = size >= HEADER_SIZE && signatureLayout(data + SIGNATURE_AT, layout);
    auto markAt = [&](size_t at, const char* mark) { return !signed31 && size >= at + 4 && std::memcmp(data + at, mark, 4) == 0; };
    if (markAt(1464, "MTN") || markAt(1464, "IT10")) return readIce(data, size);
    if (markAt(952, "KRIS")) return readChip(data, size);
    if (!readSlots(data, size, signed31, layout, slots)) {
        ReadResult other = fail("not a MOD file: no known signature and not a 15-sample module");
        other.otherFormat = true;
        return other;
    }
    const size_t tableAt = layout.samples == 15 && !signed31 ? 470 : 950;
    unsigned songLength = data[tableAt];
    const uint8_t restart = data[tableAt + 1];
    std::array<uint8_t, ORDERS> orders;
    std::memcpy(orders.data(), data + tableAt + 2, ORDERS);
    if (songLength == 0) return fail("MOD file has an empty order list");
    if (songLength > ORDERS) {
        warnings.add("MOD: song length above 128 cut to 128");
        songLength = ORDERS;
    }
    if (layout.flt8)
        for (uint8_t& o : orders) o = static_cast<uint8_t>(o / 2);

    const PatternSpan span = patternSpan(size, slots, orders, songLength, layout, warnings);
    const size_t patternSize = size_t{ROWS} * layout.channels * 4;  // FLT8: two 4-channel halves
    if (layout.headerSize + uint64_t{span.patterns} * patternSize > size) return fail("MOD file ends inside its patterns");
    if (span.stored > span.patterns) warnings.add("MOD: patterns named only past the song length dropped");

    auto song = amigaSong(data, layout.channels);
    song->restartPos = restart == 0x7F ? 0 : restart;
    if (restart == 0) warnings.add("MOD: restart byte 0 written back as 127");
    if (!song->orders.dupBuffer(orders.data(), songLength)) return fail("Insufficient memory");
    song->orderCount = static_cast<uint16_t>(songLength);
    song->hasOrders = true;
    HmnRules hmn;
    if (layout.hmn) hmn = hmnRules(data, slots, orders, songLength, warnings);

    PatternBuilder builder(layout.channels);
    readCells(data, layout, span.patterns, builder, layout.hmn ? &hmn : nullptr);
    if (hmn.droppedEffects)
        warnings.add("MOD: His Master's Noise effects 7, 8, 9 and E dropped (libxmp plays 7 as its mega-arpeggio)");
    if (!builder.finish(*song)) return fail("Insufficient memory");

    // Samples: after the last stored pattern.
    size_t pos = layout.headerSize + size_t{span.stored} * patternSize;
    if (pos > size) pos = layout.headerSize + size_t{span.patterns} * patternSize;
    if (!readSamples(data, size, pos, slots, layout.samples, *song, warnings)) return fail("Insufficient memory");

    return warnings.result(std::move(song));
}

}  // namespace deqaz
