// XM reader: a FastTracker 2 Extended Module (versions 1.02 to 1.04) into the module model.
//
// File layout (1.04): a 60-byte preamble ("Extended Module: ", song name, 0x1A, tracker name,
// version), then the song header counted from its own size field at offset 60 (song length,
// restart, channels, patterns, instruments, flags, speed, tempo, order table); the patterns,
// each a header of its own length and packed cells; the instruments, each a header of its own
// length, the 40-byte headers of its samples and then their delta-coded data; finally ModPlug's
// trailing chunks ("text", "MIDI", "FXnn", "CHFX", ...). Versions 1.02 and 1.03 put the
// instruments (with their sample headers) before the patterns and the data of every sample
// after them; 1.02's pattern header holds its row count less one in a byte (8 bytes, not 9).
//
// The module holds what the XM writer writes back. Cells become track commands in the order
// note, instrument, volume column, effect column, so that the effect translation rebuilds both
// columns: it gives the volume column to the first command that wants it. One move is
// unavoidable: an effect C (set volume), or an effect 3 or 8 whose parameter has a zero low
// nibble, in a cell whose volume column is empty comes back in the volume column (C xx as
// 0x10 + xx, 3 x0 as 0xFx, 8 x0 as 0xCx) — the same command with the same meaning.
//
// What does not survive a round trip (each is reported as a warning):
// - a tracker name other than FastTracker's two spellings, header flags other than linear
//   slides, speed or tempo above 255, patterns past 256 and instruments past 255 (no order or
//   sample can name them), a song length longer than the header's order table, the order table
//   past the song length;
// - effects XM players do not know (I, M, O, Q, S, U, V, Y and above Z), X with a sub-command
//   other than 1 or 2 and no bit 4 or 5 set (X0x, X4x, X8x, XCx), volume-column bytes
//   0x01-0x0F, notes above key-off;
// - an effect C above 0x40 that moves into an empty volume column, which is written as 0x50
//   (C40, the value FastTracker plays it at);
// - the key map of an instrument with one sample (the writer maps every key to it), instrument
//   header bytes past the 248 the writer writes, the instrument type byte, a MIDI program or
//   bend range above 255, a sample header size other than 40, loop type 3 (read as ping-pong),
//   odd byte counts of 16-bit samples, ModPlug's ADPCM coding (written back as plain PCM);
// - the layout of versions 1.02 and 1.03 (written back as 1.04);
// - a stereo sample's loop: ModPlug counts it over both channels while the writer counts one
//   channel's frames, so it is kept as the file gives it only while it lies within one channel;
// - sample data cut off by the end of the file (the sample is shortened to the data present);
// - MIDI macro texts other than the default globals and the "F0F0xxz"/"F0F0xxxx" forms the
//   writer rebuilds; trailing chunks other than text, MIDI, FX00-FX19 and CHFX (pattern and
//   channel names, OpenMPT's extended properties).
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "common/endian.hpp"
#include "formats/midi_config.hpp"
#include "formats/xm/xm_layout.hpp"
#include "readers/module_reader.hpp"

namespace deqaz {

namespace {

using namespace xm;

constexpr size_t XM_SONG_FIELDS = 20;  // header-size field to the order table


std::string effectName(unsigned effect, unsigned param) {
    char text[8];
    const char letter = effect < 10 ? static_cast<char>('0' + effect)
                        : effect < 36 ? static_cast<char>('A' + effect - 10)
                                      : '?';
    std::snprintf(text, sizeof text, "%c%02X", letter, param);
    return text;
}

// The command that a volume-column byte comes back from. The slide commands pick their nibble
// by direction (a non-zero low nibble is "down"), so the three bytes 0x60, 0x80 and 0xD0 — a
// slide by nothing — have no slide command of their own; they are kept through the command that
// sets the volume column to parameter + 66.
bool volumeCommand(uint8_t v, TrackCommand& out) {
    const uint8_t x = v & 0x0F;
    switch (v >> 4) {
        case 0x0: return false;  // 0x01-0x0F: nothing FastTracker plays
        case 0x1: case 0x2: case 0x3: case 0x4: case 0x5:
            out = {CMD_SET_VOLUME, static_cast<uint8_t>(v - 0x10)};
            return true;
        case 0x6:
            out = x ? TrackCommand{CMD_VOLUME_COLUMN_SLIDE, x} : TrackCommand{CMD_IT_VOLUME_COLUMN_SLIDE, 0x60 - 66};
            return true;
        case 0x7: out = {CMD_VOLUME_COLUMN_SLIDE, static_cast<uint8_t>(x << 4)}; return true;
        case 0x8:
            out = x ? TrackCommand{CMD_VOLUME_COLUMN_FINE_SLIDE, x} : TrackCommand{CMD_IT_VOLUME_COLUMN_SLIDE, 0x80 - 66};
            return true;
        case 0x9: out = {CMD_VOLUME_COLUMN_FINE_SLIDE, static_cast<uint8_t>(x << 4)}; return true;
        case 0xA: out = {CMD_VOLUME_COLUMN_VIBRATO_SPEED, x}; return true;
        case 0xB: out = {CMD_VOLUME_COLUMN_VIBRATO_DEPTH, x}; return true;
        case 0xC: out = {CMD_SET_PAN, static_cast<uint8_t>(x << 4)}; return true;
        case 0xD:
            out = x ? TrackCommand{CMD_VOLUME_COLUMN_PAN_SLIDE, x} : TrackCommand{CMD_IT_VOLUME_COLUMN_SLIDE, 0xD0 - 66};
            return true;
        case 0xE: out = {CMD_VOLUME_COLUMN_PAN_SLIDE, static_cast<uint8_t>(x << 4)}; return true;
        default: out = {CMD_TONE_PORTA, static_cast<uint8_t>(x << 4)}; return true;  // 0xF
    }
}

// The command an effect-column entry comes back from: 0 to F are commands 3 to 18; the letters
// have their own numbers. J and N, which FastTracker ignores, are kept through the IT-side
// commands that the translation turns into the same numbers.
bool effectCommand(uint8_t effect, uint8_t param, TrackCommand& out) {
    if (effect <= 0x0F) {
        out = {static_cast<uint8_t>(effect + 3), param};
        return true;
    }
    uint8_t command = 0;
    switch (effect) {
        case 16: command = 22; break;  // G set global volume
        case 17: command = 23; break;  // H global volume slide
        case 19: command = 43; break;  // J
        case 20: command = 24; break;  // K key off
        case 21: command = 25; break;  // L set envelope position
        case 23: command = 45; break;  // N
        case 25: command = 26; break;  // P panning slide
        case 27: command = 28; break;  // R multi retrigger
        case 29: command = 19; break;  // T tremor
        case 32: command = 51; break;  // W
        case 35: command = 47; break;  // Z MIDI macro
        case 33:  // X: the two commands put back bit 4 (X1) or bit 5 (X2) of the parameter
            if ((param >> 4) == 1 || (param >> 4) == 2) {
                out = {static_cast<uint8_t>((param >> 4) == 1 ? 29 : 30), static_cast<uint8_t>(param & 0x0F)};
                return true;
            }
            if (param & 0x10) command = 29;
            else if (param & 0x20) command = 30;
            break;
        default: break;
    }
    if (!command) return false;
    out = {command, param};
    return true;
}

struct XmCell {
    uint8_t note = 0, instrument = 0, volume = 0, effect = 0, param = 0;
};

void cellCommands(const XmCell& c, TrackRow& row, ReadWarnings& warnings) {
    if (c.note >= 1 && c.note <= 96)
        row.push_back({CMD_NOTE, static_cast<uint8_t>(c.note - 1)});
    else if (c.note == KEY_OFF)
        row.push_back({CMD_NOTE, 0xFF});
    else if (c.note)
        warnings.add("XM: notes above key-off dropped");
    if (c.instrument) row.push_back({CMD_INSTRUMENT, static_cast<uint8_t>(c.instrument - 1)});
    TrackCommand command;
    if (c.volume) {
        if (volumeCommand(c.volume, command))
            row.push_back(command);
        else
            warnings.add("XM: volume-column bytes 0x01-0x0F dropped");
    }
    if (c.effect == 0 && c.param == 0) return;
    if (!effectCommand(c.effect, c.param, command)) {
        warnings.add("XM: effect " + effectName(c.effect, c.param) + " has no counterpart; dropped");
        return;
    }
    // FastTracker plays a set-volume above 64 at 64; in an empty volume column the value would
    // otherwise become another command.
    if (c.effect == 0x0C && !c.volume && c.param > 0x40) {
        command.parameter = 0x40;
        warnings.add("XM: effect C above 0x40 written as C40");
    }
    row.push_back(command);
}

// One pattern's packed cells: a byte with bit 7 set announces which of the five fields follow;
// any other byte is a note followed by the other four fields.
void readPattern(const uint8_t* data, size_t size, unsigned rows, unsigned channels, PatternBuilder& builder,
                 ReadWarnings& warnings) {
    size_t pos = 0;
    bool shortData = false;
    auto next = [&]() -> uint8_t {
        if (pos < size) return data[pos++];
        shortData = true;
        return 0;
    };
    for (unsigned r = 0; r < rows && pos < size; ++r) {
        for (unsigned ch = 0; ch < channels && pos < size; ++ch) {
            XmCell c;
            const uint8_t first = next();
            if (first & 0x80) {
                if (first & 0x01) c.note = next();
                if (first & 0x02) c.instrument = next();
                if (first & 0x04) c.volume = next();
                if (first & 0x08) c.effect = next();
                if (first & 0x10) c.param = next();
            } else {
                c.note = first;
                c.instrument = next();
                c.volume = next();
                c.effect = next();
                c.param = next();
            }
            cellCommands(c, builder.cell(r, ch), warnings);
        }
    }
    if (shortData) warnings.add("XM: a pattern's packed data ends inside a cell");
}

// ModPlug's chunks after the last instrument: a 4-byte id, a 32-bit length and the data.
void readTrailingChunks(ByteReader& in, SongHeader& song, ReadWarnings& warnings) {
    while (in.has(8)) {
        const size_t at = in.pos();
        char id[5] = {};
        in.bytes(id, 4);
        const std::string tag(id);
        if (tag == "XTPM" || tag == "STPM") {  // OpenMPT's properties: no length to skip by
            warnings.add("XM: OpenMPT extended properties dropped");
            return;
        }
        const bool known = tag == "text" || tag == "MIDI" || tag == "CHFX" || tag == "PNAM" || tag == "CNAM" ||
                           (tag.size() == 4 && tag[0] == 'F' && tag[1] == 'X' && std::isdigit(static_cast<unsigned char>(tag[2])) &&
                            std::isdigit(static_cast<unsigned char>(tag[3])));
        if (!known) {
            in.seek(at);
            break;
        }
        uint32_t length = in.u32();
        const size_t available = in.size() - in.pos();
        if (length > available) {
            warnings.add("XM: chunk \"" + tag + "\" runs past the end of the file; cut");
            length = static_cast<uint32_t>(available);
        }
        const uint8_t* data = in.at(in.pos());
        in.seek(in.pos() + length);
        if (tag == "text") {
            song.message.assign(reinterpret_cast<const char*>(data), ::strnlen(reinterpret_cast<const char*>(data), length));
        } else if (tag == "MIDI") {
            if (const unsigned lost = midi::readConfig(data, length, song))
                warnings.add("XM: MIDI macros the container cannot hold dropped", lost);
        } else if (tag == "CHFX") {
            if (!song.channelFx.allocZeroed(size_t{song.channels} * 4)) return;
            std::memcpy(song.channelFx.data(), data, std::min<size_t>(length, song.channelFx.size()));
            if (length != song.channelFx.size()) warnings.add("XM: channel plugin table resized to the channel count");
            song.flags |= SH_EXTRA_CHUNKS;
        } else if (tag[0] == 'F') {
            const unsigned k = static_cast<unsigned>((tag[2] - '0') * 10 + (tag[3] - '0'));
            if (k >= MAX_CHUNK_SLOTS) {
                warnings.add("XM: plugin chunks FX20 and above dropped");
                continue;
            }
            ChunkSlot& slot = song.fxSlots[k];
            if (!slot.data.dupBuffer(data, length)) return;
            slot.size = length;
            slot.present = true;
            song.flags |= SH_EXTRA_CHUNKS;
        } else {
            warnings.add("XM: pattern and channel names dropped");
        }
    }
    if (in.pos() < in.size()) warnings.add("XM: " + std::to_string(in.size() - in.pos()) + " bytes after the last chunk ignored");
}

struct SampleHeader {
    uint32_t length = 0;  // bytes
    uint32_t loopStart = 0;
    uint32_t loopLength = 0;
    uint8_t volume = 0;
    int8_t finetune = 0;
    uint8_t type = 0;
    uint8_t pan = 0;
    int8_t relativeNote = 0;
    uint8_t reserved = 0;
    std::string name;
};

SampleHeader readSampleHeader(ByteReader& in) {
    SampleHeader h;
    h.length = in.u32();
    h.loopStart = in.u32();
    h.loopLength = in.u32();
    h.volume = in.u8();
    h.finetune = static_cast<int8_t>(in.u8());
    h.type = in.u8();
    h.pan = in.u8();
    h.relativeNote = static_cast<int8_t>(in.u8());
    h.reserved = in.u8();
    h.name = in.text(22);
    return h;
}

// Bytes of stored data a sample header announces.
uint64_t storedBytes(const SampleHeader& h) {
    if (h.reserved == ADPCM && !(h.type & 0x10)) return 16 + (uint64_t{h.length} + 1) / 2;
    return h.length;
}

SampleRecord sampleRecord(const SampleHeader& h, unsigned instrument, ReadWarnings& warnings) {
    SampleRecord s;
    s.frequency = static_cast<uint8_t>(h.finetune + 128);
    s.relativeNote = h.relativeNote;
    s.volume = h.volume;
    s.pan = h.pan;
    s.globalVolume = static_cast<uint8_t>(instrument);
    s.name = h.name;
    const bool is16 = (h.type & 0x10) != 0;
    const bool stereo = (h.type & 0x20) != 0;
    if (is16) s.flags |= SF_16BIT;
    if (stereo) s.flags |= SF_STEREO;
    switch (h.type & 3) {
        case 1: s.flags |= SF_LOOP; break;
        case 2: s.flags |= SF_LOOP | SF_PINGPONG; break;
        case 3:
            s.flags |= SF_LOOP | SF_PINGPONG;
            warnings.add("XM: loop type 3 read as ping-pong");
            break;
        default: break;
    }
    const unsigned shift = is16 ? 1 : 0;
    s.length = h.length >> (shift + (stereo ? 1 : 0));
    s.loopStart = h.loopStart >> shift;
    s.loopEnd = static_cast<uint32_t>(std::min<uint64_t>((uint64_t{h.loopStart} + h.loopLength) >> shift, 0xFFFFFFFFu));
    if (is16 && ((h.length | h.loopStart | h.loopLength) & 1)) warnings.add("XM: odd byte counts of 16-bit samples rounded down");
    return s;
}

// Fills a sample's PCM from its stored data; data cut short by the end of the file shortens the
// sample to the frames present. False only when memory runs out.
bool readSampleData(ByteReader& in, const SampleHeader& h, SampleRecord& s, ReadWarnings& warnings) {
    const uint64_t want = storedBytes(h);
    const size_t have = static_cast<size_t>(std::min<uint64_t>(want, in.size() - std::min(in.pos(), in.size())));
    const uint8_t* p = in.at(in.pos());
    in.seek(in.pos() + have);
    const bool is16 = (s.flags & SF_16BIT) != 0;
    const size_t bytesPerFrame = is16 ? 2 : 1;
    const bool adpcm = h.reserved == ADPCM && !is16 && !(s.flags & SF_STEREO);
    if (h.reserved == ADPCM && !adpcm) warnings.add("XM: ADPCM marker on a 16-bit or stereo sample ignored");
    if (have < want) {
        warnings.add("XM: sample data cut short by the end of the file");
        if (s.flags & SF_STEREO) {  // the right channel follows the left whole: keep the left
            s.flags &= static_cast<uint16_t>(~SF_STEREO);
            warnings.add("XM: stereo sample cut short kept as its left channel");
        }
        if (!adpcm) s.length = static_cast<uint32_t>(std::min<uint64_t>(have / bytesPerFrame, s.length));
    }
    if (adpcm) warnings.add("XM: ADPCM-coded samples written back as plain PCM");
    // The length now covers only data that is there: nothing is cut below.
    bool cut = false;
    if (!adpcm) {
        const RawPcmLayout layout{.sixteenBit = is16, .stereo = (s.flags & SF_STEREO) != 0, .delta = true};
        if (!readRawSample(p, have, 0, layout, s, cut)) return false;
    } else if (!readAdpcmSample(p, have, 0, s, cut)) {
        return false;
    }
    if (fitLoops(s)) warnings.add("XM: loop ends past the end of the sample cut");
    return true;
}

void readEnvelope(const uint8_t* h, size_t pointsAt, Envelope& env) {
    for (unsigned k = 0; k < ENVELOPE_POINTS; ++k) {
        env.points[k].tick = rd16le(h + pointsAt + 4 * k);
        env.points[k].value = rd16le(h + pointsAt + 4 * k + 2);
    }
}

// An instrument without samples: every key plays itself, on no sample.
InstrumentRecord emptyInstrument() {
    InstrumentRecord ins;
    for (unsigned k = 0; k < 120; ++k) ins.noteMap[k] = {static_cast<uint16_t>(k), 0xFFFF};
    return ins;
}

// A sample whose data comes after the patterns (versions 1.02 and 1.03).
struct DeferredData {
    size_t sample;
    SampleHeader header;
};

// One instrument with its samples, appended to the song. Their data follows the sample headers,
// or, with `deferred`, is read later in the order listed there. Returns false when memory runs
// out; a header that runs past the end of the file sets `ended`.
bool readInstrument(ByteReader& in, unsigned number, SongHeader& song, ReadWarnings& warnings, bool& ended,
                    std::vector<DeferredData>* deferred) {
    const size_t start = in.pos();
    std::array<uint8_t, INSTRUMENT_FULL> h{};
    const uint32_t headerSize = in.has(4) ? rd32le(in.at(start)) : 0;
    if (!in.has(INSTRUMENT_FIRST) || headerSize > in.size() - start) {
        warnings.add("XM: the file ends inside instrument " + std::to_string(number) + "; the rest are empty");
        song.instruments.push_back(emptyInstrument());
        ended = true;
        return true;
    }
    in.bytes(h.data(), std::min<size_t>({headerSize, h.size(), in.size() - start}));
    in.seek(start + std::max<size_t>(headerSize, INSTRUMENT_FIRST));

    InstrumentRecord ins = emptyInstrument();
    {
        const char* name = reinterpret_cast<const char*>(h.data() + 4);
        ins.name.assign(name, ::strnlen(name, 22));
    }
    unsigned samples = rd16le(h.data() + 27);

    if (samples > 0) {
        if (headerSize < INSTRUMENT_FULL) warnings.add("XM: short instrument headers read with zeros for the missing fields");
        const uint32_t sampleHeaderSize = rd32le(h.data() + 29);
        size_t step = SAMPLE_HEADER_SIZE;
        if (sampleHeaderSize != SAMPLE_HEADER_SIZE) {
            if (sampleHeaderSize > SAMPLE_HEADER_SIZE && sampleHeaderSize <= 256) step = sampleHeaderSize;
            warnings.add("XM: sample header size other than 40 written back as 40");
        }
        const size_t first = song.samples.size();
        if (first + samples > 0xFFFF) samples = static_cast<unsigned>(0xFFFF - first);
        if (samples > 1) {
            for (unsigned k = 0; k < KEYS; ++k)
                ins.noteMap[k].sample = static_cast<uint16_t>(std::min<size_t>(first + h[33 + k], 0xFFFE));
        } else {
            if (std::any_of(h.begin() + 33, h.begin() + 33 + KEYS, [](uint8_t v) { return v != 0; }))
                warnings.add("XM: key map of a one-sample instrument written as all zeros");
            for (unsigned k = 0; k < KEYS; ++k) ins.noteMap[k].sample = static_cast<uint16_t>(first);
        }
        readEnvelope(h.data(), 129, ins.volumeEnvelope);
        readEnvelope(h.data(), 177, ins.panningEnvelope);
        Envelope& vol = ins.volumeEnvelope;
        Envelope& pan = ins.panningEnvelope;
        vol.pointCount = h[225];
        pan.pointCount = h[226];
        vol.sustainStart = vol.sustainEnd = h[227];
        vol.loopStart = h[228];
        vol.loopEnd = h[229];
        pan.sustainStart = pan.sustainEnd = h[230];
        pan.loopStart = h[231];
        pan.loopEnd = h[232];
        vol.flags = h[233];
        pan.flags = h[234] & 0x7F;
        ins.vibratoType = h[235];
        ins.vibratoSweep = h[236];
        ins.vibratoDepth = h[237];
        ins.vibratoRate = h[238];
        ins.fadeout = rd16le(h.data() + 239);
        if (h[241]) ins.flags |= 0x1;
        ins.midiChannel = h[242];
        const uint16_t program = rd16le(h.data() + 243);
        const uint16_t bend = rd16le(h.data() + 245);
        if (program > 0xFF || bend > 0xFF) warnings.add("XM: MIDI program or bend range above 255 cut to a byte");
        ins.midiProgram = static_cast<uint8_t>(program);
        ins.midiBendRange = static_cast<uint8_t>(bend);
        if (h[247]) ins.flags |= 0x2;

        // The sample headers, then the data of each in the same order.
        std::vector<SampleHeader> headers;
        headers.reserve(samples);
        for (unsigned i = 0; i < samples; ++i) {
            const size_t at = in.pos();
            if (!in.has(SAMPLE_HEADER_SIZE)) {
                warnings.add("XM: the file ends inside the sample headers; the rest is lost");
                ended = true;
                break;
            }
            headers.push_back(readSampleHeader(in));
            in.seek(at + step);
        }
        for (const SampleHeader& sh : headers) {
            song.samples.push_back(sampleRecord(sh, number, warnings));
            if (deferred) deferred->push_back({song.samples.size() - 1, sh});
            else if (!readSampleData(in, sh, song.samples.back(), warnings)) return false;
        }
        if (headers.empty()) {  // no sample arrived: the key map names none
            for (auto& e : ins.noteMap) e.sample = 0xFFFF;
        }
    }
    song.instruments.push_back(std::move(ins));
    return true;
}

ReadResult fail(const char* why) {
    ReadResult r;
    r.error = why;
    return r;
}

bool isXmSignature(const uint8_t* data, size_t size) {
    static const char sig[] = "extended module: ";
    if (size < 17) return false;
    for (size_t i = 0; i < 17; ++i)
        if (std::tolower(data[i]) != sig[i]) return false;
    return true;
}

// The patterns from `pos` into the song's tracks, `pos` moved past them; `ended` set when the file
// ends inside them (the rest are empty). 1.02's pattern header holds the row count less one in a
// byte. False when memory runs out.
bool readPatterns(const uint8_t* data, size_t size, size_t& pos, bool& ended, unsigned patterns, unsigned channels,
                  bool version102, SongHeader& song, ReadWarnings& warnings) {
    const size_t patternHeader = version102 ? 8 : 9;
    PatternBuilder builder(channels);
    const unsigned keptPatterns = std::min<unsigned>(patterns, MAX_PATTERNS);
    for (unsigned p = 0; p < patterns; ++p) {
        if (ended || size - pos < patternHeader) {
            if (!ended) warnings.add("XM: the file ends inside the patterns; the rest are empty");
            ended = true;
            if (p < keptPatterns) builder.beginPattern(64);
            continue;
        }
        const uint32_t length = rd32le(data + pos);
        unsigned rows = version102 ? data[pos + 5] + 1u : rd16le(data + pos + 5);
        const uint16_t packed = rd16le(data + pos + patternHeader - 2);
        if (data[pos + 4] != 0) warnings.add("XM: unknown pattern packing type ignored");
        if (rows > MAX_ROWS) {
            warnings.add("XM: patterns longer than 1024 rows cut");
            rows = MAX_ROWS;
        }
        const size_t dataAt = pos + std::max<size_t>(length, patternHeader);
        if (p < keptPatterns) {
            builder.beginPattern(rows);
            if (dataAt < size) readPattern(data + dataAt, std::min<size_t>(packed, size - dataAt), rows, channels, builder, warnings);
        }
        if (dataAt > size || size - dataAt < packed) {
            warnings.add("XM: the file ends inside the patterns; the rest are empty");
            ended = true;
            continue;
        }
        pos = dataAt + packed;
    }
    return builder.finish(song);
}

// The counts the song header gives for what follows it.
struct XmCounts {
    uint16_t version = 0, channels = 0, patterns = 0, instruments = 0;
    uint32_t headerSize = 0;
};

// The song header: version, name, tracker name, counts, flags, speed, tempo and the order table.
// "" when it reads, else why not.
std::string readSongHeader(const uint8_t* data, size_t size, SongHeader& song, XmCounts& counts, ReadWarnings& warnings) {
    ByteReader in(data, size);
    counts.version = rd16le(data + 58);
    if (counts.version < OLDEST_VERSION || counts.version > VERSION) {
        char text[80];
        std::snprintf(text, sizeof text, "XM version %x.%02x is not supported (only 1.02 to 1.04)", counts.version >> 8,
                      counts.version & 0xFF);
        return text;
    }
    if (counts.version < VERSION) warnings.add("XM: the layout of versions 1.02 and 1.03 written back as 1.04's");

    in.seek(17);
    song.name = in.text(20);
    if (std::memcmp(data + 38, "FastTracker v 2.00  ", 20) == 0)
        song.flags |= SH_XM_ALT_TRACKER_NAME;
    else if (std::memcmp(data + 38, "FastTracker v2.00   ", 20) != 0)
        warnings.add("XM: tracker name written back as FastTracker's");

    in.seek(60);
    counts.headerSize = in.u32();
    const uint16_t songLength = in.u16();
    const uint16_t restart = in.u16();
    counts.channels = in.u16();
    counts.patterns = in.u16();
    counts.instruments = in.u16();
    const uint16_t flags = in.u16();
    const uint16_t speed = in.u16();
    const uint16_t tempo = in.u16();
    if (counts.headerSize < XM_SONG_FIELDS) return "XM header size too small for its fields";
    if (counts.channels > 255) return "XM file has more than 255 channels";
    if (counts.patterns > MAX_PATTERNS) warnings.add("XM: patterns past 256 cannot be played and were dropped");
    if (counts.instruments > MAX_INSTRUMENTS) {
        warnings.add("XM: instruments past 255 dropped");
        counts.instruments = MAX_INSTRUMENTS;
    }

    song.channels = static_cast<uint8_t>(counts.channels);
    song.restartPos = restart;
    if (flags & 1) song.flags |= SH_LINEAR_SLIDES;
    if (flags & ~1u) warnings.add("XM: header flags other than linear slides dropped");
    if (speed > 255 || tempo > 255) warnings.add("XM: speed or tempo above 255 cut to 255");
    song.initialSpeed = static_cast<uint8_t>(std::min<uint16_t>(speed, 255));
    song.initialTempo = static_cast<uint8_t>(std::min<uint16_t>(tempo, 255));
    song.globalVolume = 64;
    song.channelVolume.fill(64);
    song.channelPan.fill(128);

    // The order table: the song length's worth, as far as the header holds it.
    const size_t tableRoom = std::min<size_t>(counts.headerSize - XM_SONG_FIELDS, MAX_ORDERS);
    const size_t orders = std::min<size_t>(songLength, tableRoom);
    if (orders < songLength) warnings.add("XM: song length beyond the header's order table cut");
    std::array<uint8_t, MAX_ORDERS> table{};
    in.seek(80);
    in.bytes(table.data(), orders);
    if (!song.orders.dupBuffer(table.data(), orders)) return "Insufficient memory";
    song.orderCount = static_cast<uint16_t>(orders);
    song.hasOrders = true;
    return "";
}

}  // namespace

ReadResult readXm(const uint8_t* data, size_t size) {
    if (!isXmSignature(data, size)) return fail("not an XM file: no \"Extended Module: \" signature");
    if (size < PREAMBLE_SIZE + XM_SONG_FIELDS) return fail("XM file truncated in its header");
    ReadWarnings warnings;
    auto song = std::make_unique<SongHeader>();
    XmCounts counts;
    if (const std::string why = readSongHeader(data, size, *song, counts, warnings); !why.empty()) return fail(why.c_str());
    const bool oldLayout = counts.version < VERSION;
    ByteReader in(data, size);

    size_t pos = PREAMBLE_SIZE + size_t{counts.headerSize};
    bool ended = pos > size;
    if (ended) warnings.add("XM: the file ends inside its header; the rest is empty");

    // Instruments and their samples; those the file has no room for are empty. The old layout
    // reads the samples' data after the patterns.
    std::vector<DeferredData> deferred;
    auto readInstruments = [&] {
        in.seek(pos);
        for (unsigned i = 0; i < counts.instruments; ++i) {
            if (ended) {
                song->instruments.push_back(emptyInstrument());
                continue;
            }
            if (!readInstrument(in, i + 1, *song, warnings, ended, oldLayout ? &deferred : nullptr)) return false;
        }
        pos = in.pos();
        return true;
    };
    if (oldLayout && !readInstruments()) return fail("Insufficient memory");
    if (!readPatterns(data, size, pos, ended, counts.patterns, counts.channels, counts.version == OLDEST_VERSION, *song,
                      warnings))
        return fail("Insufficient memory");
    if (!oldLayout && !readInstruments()) return fail("Insufficient memory");
    in.seek(pos);
    for (const DeferredData& d : deferred)
        if (!readSampleData(in, d.header, song->samples[d.sample], warnings)) return fail("Insufficient memory");
    song->instrumentCount = static_cast<uint16_t>(song->instruments.size());
    song->sampleCount = static_cast<uint16_t>(song->samples.size());

    if (!ended) readTrailingChunks(in, *song, warnings);

    return warnings.result(std::move(song));
}

}  // namespace deqaz
