#include "support/module_builder.hpp"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "support/temp_dir.hpp"

namespace deqaz::test {

SongHeader makeSong(uint32_t flags, unsigned channels) {
    SongHeader song;
    song.flags = flags;
    song.channels = static_cast<uint8_t>(channels);
    song.initialSpeed = 6;
    song.initialTempo = 125;
    song.globalVolume = 128;
    song.separation = 128;
    song.channelVolume.fill(64);
    song.channelPan.fill(128);
    song.hasOrders = true;
    return song;
}

SongHeader makeOnePatternSong(uint32_t flags, unsigned channels) {
    SongHeader song = makeSong(flags, channels);
    addPattern(song, 64, std::vector<uint16_t>(channels, addTrackBytes(song, {0})));
    setOrders(song, {0});
    return song;
}

uint16_t addTrackBytes(SongHeader& song, const std::vector<uint8_t>& bytes) {
    Track track;
    if (!track.dupBuffer(bytes.data(), bytes.size())) throw std::bad_alloc();
    song.tracks.push_back(std::move(track));
    song.trackCount = static_cast<uint16_t>(song.tracks.size());
    return static_cast<uint16_t>(song.tracks.size() - 1);
}

uint16_t addTrackRows(SongHeader& song, const std::vector<TrackRow>& rows) {
    return addTrackBytes(song, encodeTrack(rows));
}

namespace {

template <class T>
void appendTo(HeapArray<T>& array, const std::vector<T>& extra) {
    std::vector<T> all(array.begin(), array.end());
    all.insert(all.end(), extra.begin(), extra.end());
    if (!array.dupBuffer(all.data(), all.size())) throw std::bad_alloc();
}

}  // namespace

unsigned addPattern(SongHeader& song, uint16_t rows, const std::vector<uint16_t>& tracks) {
    if (tracks.size() != song.channels) throw std::invalid_argument("one track per channel");
    appendTo(song.patternTracks, tracks);
    appendTo(song.patternRows, std::vector<uint16_t>{rows});
    song.patternCount = static_cast<uint16_t>(song.patternRows.size());
    return song.patternCount - 1u;
}

unsigned addPattern(SongHeader& song, const PatternGrid& grid) {
    if (grid.channels() != song.channels) throw std::invalid_argument("grid width must match channels");
    std::vector<uint16_t> tracks;
    for (unsigned c = 0; c < grid.channels(); ++c) {
        std::vector<TrackRow> rows;
        for (unsigned r = 0; r < grid.rows(); ++r) rows.push_back(grid.at(r, c));
        tracks.push_back(addTrackRows(song, rows));
    }
    return addPattern(song, static_cast<uint16_t>(grid.rows()), tracks);
}

void setOrders(SongHeader& song, const std::vector<uint8_t>& orders) {
    if (!song.orders.dupBuffer(orders.data(), orders.size())) throw std::bad_alloc();
    song.orderCount = static_cast<uint16_t>(orders.size());
    song.hasOrders = true;
}

void fillPcm(SampleRecord& smp, uint32_t seed) {
    const int channels = (smp.flags & SF_STEREO) ? 2 : 1;
    uint32_t x = seed * 2654435761u + 1;
    for (int c = 0; c < channels; ++c) {
        if (!smp.pcm[c].allocate(smp.length)) throw std::bad_alloc();
        int32_t v = 0;
        for (uint32_t k = 0; k < smp.length; ++k) {
            x = x * 1103515245u + 12345u;
            v = std::clamp<int32_t>(v + static_cast<int32_t>((x >> 16) % 2001) - 1000, -32768, 32767);
            const auto point = static_cast<int16_t>(v);
            smp.pcm[c][k] = (smp.flags & SF_16BIT) ? point : static_cast<int16_t>(point & 0xFF00);
        }
    }
}

SampleRecord& addSample(SongHeader& song, uint16_t flags, uint32_t length, unsigned seed) {
    SampleRecord& smp = song.samples.emplace_back();
    smp.flags = flags;
    smp.length = length;
    smp.frequency = 8363;
    smp.volume = 64;
    smp.globalVolume = 64;
    song.sampleCount = static_cast<uint16_t>(song.samples.size());
    if (length) fillPcm(smp, seed);
    return smp;
}

SampleRecord& addLoopedSample(SongHeader& song, uint16_t flags, uint32_t length, uint32_t loopStart, uint32_t loopEnd,
                              unsigned seed) {
    SampleRecord& smp = addSample(song, flags | SF_LOOP, length, seed);
    smp.loopStart = loopStart;
    smp.loopEnd = loopEnd;
    return smp;
}

InstrumentRecord& addInstrument(SongHeader& song) {
    InstrumentRecord& ins = song.instruments.emplace_back();
    for (unsigned i = 0; i < ins.noteMap.size(); ++i) ins.noteMap[i] = {static_cast<uint16_t>(i), 0xFFFF};
    ins.globalVolume = 128;
    song.instrumentCount = static_cast<uint16_t>(song.instruments.size());
    return ins;
}

MessageCapture::MessageCapture(int silentCount) {
    diag.silentCount = silentCount;
    diag.err = std::tmpfile();
    if (!diag.err) throw std::runtime_error("tmpfile");
}

MessageCapture::~MessageCapture() { std::fclose(diag.err); }

std::string MessageCapture::text() const { return readStream(diag.err); }

WriteResult runWriteModule(const SongHeader& song, int silentCount) {
    MessageCapture capture(silentCount);
    OutputBuffer out;
    WriteResult result;
    result.failed = !writeModule(song, out, capture.diag);
    if (out.outputSize()) result.bytes.assign(out.outputData(), out.outputData() + out.outputSize());
    result.messages = capture.text();
    result.notes = capture.diag.notes;
    return result;
}

}  // namespace deqaz::test
