#include "support/qaz_fixtures.hpp"

#include <gtest/gtest.h>

#include <tuple>
#include <type_traits>

#include "container/loader.hpp"
#include "container/track.hpp"
#include "support/module_builder.hpp"

namespace deqaz::test {

namespace {

template <class Array>
auto vec(const Array& a) {
    return std::vector<std::remove_cvref_t<decltype(*a.begin())>>(a.begin(), a.end());
}

std::vector<uint8_t> storedHeader(const SongHeader& s) {
    std::vector<uint8_t> b(SONG_HEADER_STORED_SIZE);
    storeSongHeader(s, b.data());
    return b;
}

auto sampleFields(const SampleRecord& s) {
    return std::tie(s.frequency, s.relativeNote, s.volume, s.pan, s.length, s.loopStart, s.loopEnd, s.flags,
                    s.vibratoType, s.vibratoSweep, s.vibratoDepth, s.vibratoSpeed, s.globalVolume, s.sustainStart,
                    s.sustainEnd, s.codecParam, s.headerSource, s.name, s.fileName);
}

}  // namespace

Loaded loadQaz(const uint8_t* data, size_t size) {
    InputStream in{data, static_cast<uint32_t>(size), 0};
    MessageCapture capture;
    Loaded r;
    r.song = loadModule(in, capture.diag);
    r.error = capture.diag.errorText;
    EXPECT_EQ(in.inputData, data);  // the stream describes the whole file again
    EXPECT_EQ(in.inputSize, size);
    return r;
}

std::vector<TrackCommand> cellCommands(const SongHeader& song, unsigned pattern, unsigned row, unsigned channel) {
    std::vector<TrackCommand> out;
    const uint16_t t = song.trackOf(pattern, channel);
    if (t >= song.tracks.size()) return out;
    const TrackGroup g = cellAt(song.tracks[t], row);
    for (unsigned k = 0; g && k < g.pairCount() && g.bytes[1 + 2 * k] != 0; ++k)
        out.push_back({g.bytes[1 + 2 * k], g.bytes[2 + 2 * k]});
    return out;
}

std::string moduleDifference(const SongHeader& a, const SongHeader& b) {
    if (storedHeader(a) != storedHeader(b) || a.name != b.name || a.message != b.message) return "song header";
    if (vec(a.orders) != vec(b.orders)) return "orders";
    if (vec(a.patternTracks) != vec(b.patternTracks) || vec(a.patternRows) != vec(b.patternRows)) return "pattern tables";
    if (a.tracks.size() != b.tracks.size()) return "track count";
    for (size_t t = 0; t < a.tracks.size(); ++t)
        if (vec(a.tracks[t]) != vec(b.tracks[t])) return "track " + std::to_string(t);
    if (a.instruments != b.instruments) return "instruments";
    if (a.samples.size() != b.samples.size()) return "sample count";
    for (size_t i = 0; i < a.samples.size(); ++i)
        if (sampleFields(a.samples[i]) != sampleFields(b.samples[i]) || vec(a.samples[i].pcm[0]) != vec(b.samples[i].pcm[0]) ||
            vec(a.samples[i].pcm[1]) != vec(b.samples[i].pcm[1]))
            return "sample " + std::to_string(i);
    for (int k = 0; k < MAX_CHUNK_SLOTS; ++k)
        if (a.fxSlots[k].present != b.fxSlots[k].present || vec(a.fxSlots[k].data) != vec(b.fxSlots[k].data))
            return "extension slot " + std::to_string(k);
    return vec(a.channelFx) != vec(b.channelFx) ? "channel table" : "";
}

}  // namespace deqaz::test
