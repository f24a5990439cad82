#include "support/qaz_fixtures.hpp"

#include <gtest/gtest.h>

#include <tuple>
#include <type_traits>

#include "container/loader.hpp"
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

void expectSameModule(const SongHeader& e, const SongHeader& a) {
    EXPECT_EQ(storedHeader(e), storedHeader(a));
    EXPECT_EQ(e.name, a.name);
    EXPECT_EQ(e.message, a.message);
    EXPECT_EQ(vec(e.orders), vec(a.orders));
    EXPECT_EQ(vec(e.patternTracks), vec(a.patternTracks));
    EXPECT_EQ(vec(e.patternRows), vec(a.patternRows));
    ASSERT_EQ(e.tracks.size(), a.tracks.size());
    for (size_t t = 0; t < e.tracks.size(); ++t) EXPECT_EQ(vec(e.tracks[t]), vec(a.tracks[t])) << "track " << t;
    EXPECT_TRUE(e.instruments == a.instruments);
    ASSERT_EQ(e.samples.size(), a.samples.size());
    for (size_t i = 0; i < e.samples.size(); ++i) {
        EXPECT_EQ(sampleFields(e.samples[i]), sampleFields(a.samples[i])) << "sample " << i;
        for (int c = 0; c < 2; ++c)
            EXPECT_TRUE(vec(e.samples[i].pcm[c]) == vec(a.samples[i].pcm[c])) << "sample " << i << " channel " << c;
    }
    EXPECT_EQ(vec(e.channelFx), vec(a.channelFx));
    for (int k = 0; k < MAX_CHUNK_SLOTS; ++k) {
        EXPECT_EQ(e.fxSlots[k].present, a.fxSlots[k].present) << "slot " << k;
        EXPECT_EQ(vec(e.fxSlots[k].data), vec(a.fxSlots[k].data)) << "slot " << k;
    }
}

}  // namespace deqaz::test
