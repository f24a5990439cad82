// MTM reader: MultiTracker modules into the module model (the layout: mtm_layout.hpp).
//
// The module keeps MTM's own tracks: track t of the file is track t of the module and track 0
// is the empty track, and the pattern track lists are copied, so the writer stores the same
// tracks again. The comment's lines become the song message, each line ended by a carriage
// return (the writer splits the message there and pads each line to 40 bytes).
//
// What does not survive a round trip (reported as warnings): track-list entries past the channel
// count, finetune bits above the low nibble, pan positions above 15, comment text after a zero
// byte within its line, a last comment line shorter than 40 bytes (written padded), more than
// 32 channels or 128 orders, beats per track (always written as 0).
#include <algorithm>
#include <array>
#include <cstring>

#include "common/endian.hpp"
#include "formats/mtm/mtm_layout.hpp"
#include "readers/module_reader.hpp"

namespace deqaz {

namespace {

using namespace mtm;

ReadResult fail(const char* why) {
    ReadResult r;
    r.error = why;
    return r;
}

// One stored track: 64 rows of note, instrument and effect.
std::vector<uint8_t> readTrack(const uint8_t* p) {
    std::vector<TrackRow> rows(ROWS);
    for (unsigned r = 0; r < ROWS; ++r, p += 3) {
        const uint8_t noteField = p[0] >> 2;
        const uint8_t instrument = static_cast<uint8_t>(((p[0] & 3) << 4) | (p[1] >> 4));
        const uint8_t effect = p[1] & 0x0F;
        TrackRow& row = rows[r];
        if (noteField) row.push_back({CMD_NOTE, static_cast<uint8_t>(noteField + NOTE_BIAS)});
        if (instrument) row.push_back({CMD_INSTRUMENT, static_cast<uint8_t>(instrument - 1)});
        if (effect || p[2]) row.push_back({static_cast<uint8_t>(effect + 3), p[2]});  // 0-F: commands 3-18
    }
    return encodeTrack(rows);
}

// The comment: each 40-byte line up to its first zero byte, ended by a carriage return.
std::string readComment(const uint8_t* p, size_t length, ReadWarnings& warnings) {
    std::string message;
    for (size_t at = 0; at < length; at += COMMENT_LINE) {
        const size_t width = std::min(COMMENT_LINE, length - at);
        const char* line = reinterpret_cast<const char*>(p + at);
        const size_t used = ::strnlen(line, width);
        if (std::any_of(line + used, line + width, [](char c) { return c != 0; }))
            warnings.add("MTM: comment text after a zero byte in its line dropped");
        if (width < COMMENT_LINE) warnings.add("MTM: short last comment line written padded to 40 bytes");
        std::string text(line, used);
        if (text.find('\r') != std::string::npos) {
            std::replace(text.begin(), text.end(), '\r', ' ');
            warnings.add("MTM: carriage returns inside comment lines turned into spaces");
        }
        message += text;
        message += '\r';
    }
    return message;
}

// The sample headers; `storedBytes` gets each sample's data size in bytes.
void readSampleHeaders(ByteReader& in, unsigned samples, SongHeader& song, std::vector<uint32_t>& storedBytes,
                       ReadWarnings& warnings) {
    song.samples.resize(samples);
    storedBytes.assign(samples, 0);
    for (unsigned i = 0; i < samples; ++i) {
        SampleRecord& s = song.samples[i];
        s.name = in.text(SMP_NAME_SIZE);  // then the fields from SMP_LENGTH to SMP_ATTRIBUTE, in order
        const uint32_t length = in.u32();
        storedBytes[i] = length;
        const uint32_t loopStart = in.u32();
        const uint32_t loopEnd = in.u32();
        const uint8_t finetune = in.u8();
        s.volume = in.u8();
        const uint8_t attribute = in.u8();
        const unsigned shift = (attribute & SMP_16BIT) ? 1 : 0;
        if (attribute & SMP_16BIT) s.flags |= SF_16BIT;
        if (finetune > 15) warnings.add("MTM: finetune bits above the low nibble dropped");
        s.frequency = static_cast<uint8_t>((finetune & 0x0F) << 4);
        s.pan = -1;
        s.length = length >> shift;
        s.loopStart = loopStart >> shift;
        s.loopEnd = loopEnd >> shift;
        if (loopEnd > loopStart + 2) s.flags |= SF_LOOP;
        if (shift && ((length | loopStart | loopEnd) & 1)) warnings.add("MTM: odd byte counts of 16-bit samples rounded down");
    }
}

// Tracks (0 is the empty track; the stored ones follow as 1, 2, ...; a track cut by the end of
// the file is read as far as it goes) and the pattern track lists (32 entries, of which the
// first `channels` are used). False when memory runs out; `cut` is set when the file ends early.
bool readTracksAndLists(const uint8_t* data, size_t size, size_t tracksAt, uint16_t storedTracks, unsigned patterns,
                        unsigned channels, SongHeader& song, bool& cut, ReadWarnings& warnings) {
    const size_t listsAt = tracksAt + size_t{storedTracks} * TRACK_SIZE;
    song.tracks.resize(size_t{storedTracks} + 1);
    const uint8_t emptyTrack = 0;
    if (!song.tracks[0].dupBuffer(&emptyTrack, 1)) return false;
    for (unsigned t = 1; t <= storedTracks; ++t) {
        std::array<uint8_t, TRACK_SIZE> rows{};
        const size_t at = tracksAt + size_t{t - 1} * TRACK_SIZE;
        if (at < size) std::memcpy(rows.data(), data + at, std::min(TRACK_SIZE, size - at));
        if (at + TRACK_SIZE > size) cut = true;
        const std::vector<uint8_t> bytes = readTrack(rows.data());
        if (!song.tracks[t].dupBuffer(bytes.data(), bytes.size())) return false;
    }

    // Pattern track lists: 32 entries, of which the first `channels` are used.
    if (!song.patternRows.allocate(patterns) || !song.patternTracks.allocZeroed(size_t{patterns} * channels))
        return false;
    for (unsigned p = 0; p < patterns; ++p) {
        song.patternRows[p] = ROWS;
        for (unsigned c = 0; c < MAX_CHANNELS; ++c) {
            const size_t at = listsAt + size_t{p} * TRACK_LIST_SIZE + 2 * c;
            if (at + 2 > size) {
                cut = true;
                continue;
            }
            uint16_t t = rd16le(data + at);
            if (t > storedTracks) {
                warnings.add("MTM: track numbers past the stored tracks read as the empty track");
                t = 0;
            }
            if (c < channels)
                song.patternTracks[size_t{p} * channels + c] = t;
            else if (t)
                warnings.add("MTM: track-list entries past the channel count dropped");
        }
    }
    return true;
}

// The sample data, unsigned 8- or 16-bit, one sample after the other from `pos`; a sample the
// file cuts short keeps the frames present. False when memory runs out.
bool readSampleData(const uint8_t* data, size_t size, size_t pos, const std::vector<uint32_t>& storedBytes,
                    SongHeader& song, bool& cut, ReadWarnings& warnings) {
    for (size_t i = 0; i < storedBytes.size(); ++i) {
        SampleRecord& s = song.samples[i];
        const bool is16 = (s.flags & SF_16BIT) != 0;
        const size_t bytes = storedBytes[i];
        const size_t have = pos < size ? std::min(bytes, size - pos) : 0;
        cut |= have < bytes;  // judged on the stored bytes, a 16-bit sample's odd one included
        if (!readRawSample(data, size, pos, RawPcmLayout{.sixteenBit = is16, .isSigned = false}, s, cut)) return false;
        pos += have;
        if (fitLoops(s)) warnings.add("MTM: loop ends past the end of the sample cut");
    }
    return true;
}

struct Header {
    uint16_t storedTracks = 0;
    unsigned patterns = 0, orders = 0, samples = 0, channels = 0;
    uint16_t commentLength = 0;
};

// The header's counts, the channel count and order count cut to what MultiTracker holds, into
// `song` the name and the pans (positions 0-15).
Header readHeader(ByteReader& in, SongHeader& song, ReadWarnings& warnings) {
    Header h;
    in.seek(NAME);
    song.name = in.text(NAME_SIZE);
    h.storedTracks = in.u16();  // the fields from TRACK_COUNT to PANS, in order
    h.patterns = in.u8() + 1u;
    h.orders = in.u8() + 1u;
    h.commentLength = in.u16();
    h.samples = in.u8();
    in.u8();  // attribute
    const uint8_t beatsPerTrack = in.u8();
    h.channels = in.u8();
    if (h.channels > MAX_CHANNELS) {
        warnings.add("MTM: channel count above 32 cut to 32");
        h.channels = MAX_CHANNELS;
    }
    if (h.orders > ORDERS) {
        warnings.add("MTM: orders past 128 dropped");
        h.orders = ORDERS;
    }
    if (beatsPerTrack != 0 && beatsPerTrack != ROWS) warnings.add("MTM: beats per track other than 64 ignored");
    song.channels = static_cast<uint8_t>(h.channels);
    for (unsigned c = 0; c < MAX_CHANNELS; ++c) {
        const uint8_t pan = in.u8();
        if (pan > 15) warnings.add("MTM: pan positions above 15 cut to 15");
        song.channelPan[c] = static_cast<uint8_t>(std::min<unsigned>(pan, 15) * 17);
    }
    return h;
}

}  // namespace

ReadResult readMtm(const uint8_t* data, size_t size) {
    if (size < 4 || std::memcmp(data, "MTM", 3) != 0) return fail("not an MTM file: no \"MTM\" signature");
    if (size < HEADER_SIZE) return fail("MTM file truncated in its header");
    ReadWarnings warnings;
    ByteReader in(data, size);
    auto song = newSong(SH_ORIGIN_MTM, 0);
    song->channelPan.fill(128);
    const Header h = readHeader(in, *song, warnings);
    if (h.storedTracks == 0xFFFF) return fail("MTM file has too many tracks");

    // Sample headers; the data comes at the end of the file.
    const size_t samplesAt = HEADER_SIZE;
    const size_t ordersAt = samplesAt + h.samples * SAMPLE_SIZE;
    const size_t tracksAt = ordersAt + ORDERS;
    const size_t listsAt = tracksAt + size_t{h.storedTracks} * TRACK_SIZE;
    const size_t commentAt = listsAt + size_t{h.patterns} * TRACK_LIST_SIZE;
    const size_t dataAt = commentAt + h.commentLength;
    if (tracksAt > size) return fail("MTM file truncated in its sample headers or order table");

    std::vector<uint32_t> storedBytes;
    in.seek(samplesAt);
    readSampleHeaders(in, h.samples, *song, storedBytes, warnings);

    std::array<uint8_t, ORDERS> table{};
    std::memcpy(table.data(), data + ordersAt, ORDERS);
    if (!song->orders.dupBuffer(table.data(), h.orders)) return fail("Insufficient memory");
    song->orderCount = static_cast<uint16_t>(h.orders);
    song->hasOrders = true;

    bool cut = false;
    if (!readTracksAndLists(data, size, tracksAt, h.storedTracks, h.patterns, h.channels, *song, cut, warnings))
        return fail("Insufficient memory");
    song->trackCount = static_cast<uint16_t>(h.storedTracks + 1);
    song->patternCount = static_cast<uint16_t>(h.patterns);

    if (h.commentLength && commentAt < size)
        song->message = readComment(data + commentAt, std::min<size_t>(h.commentLength, size - commentAt), warnings);
    if (commentAt + h.commentLength > size) cut = true;

    if (!readSampleData(data, size, dataAt, storedBytes, *song, cut, warnings)) return fail("Insufficient memory");
    if (cut) warnings.add("MTM: file cut short; missing tracks, lists, comment or sample data read as empty");
    song->sampleCount = static_cast<uint16_t>(h.samples);

    return warnings.result(std::move(song));
}

}  // namespace deqaz
