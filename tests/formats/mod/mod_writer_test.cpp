// MOD writer: the signature for every channel count, and channels past what MOD holds, byte by
// byte against values worked by hand.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

constexpr uint32_t MOD = SH_ORIGIN_MOD;
constexpr size_t HEADER = 1084;

struct ModFile : FileView {
    unsigned channels = 4;
    Bytes cell(unsigned p, unsigned r, unsigned c) const { return bytes(HEADER + ((p * 64 + r) * channels + c) * 4, 4); }
    size_t samplesAt(unsigned patterns) const { return HEADER + size_t{patterns} * 64 * channels * 4; }
};

ModFile write(SongHeader& song, int silent = 0) {
    ModFile f = writeFile<ModFile>(song, silent);
    f.channels = std::min<unsigned>(song.channels, 99);
    return f;
}

SongHeader minimalSong(unsigned channels = 4) { return makeOnePatternSong(MOD, channels); }

// ---------------------------------------------------------------------------------------------
// Header

TEST(ModHeader, SignatureTable) {
    struct Case {
        unsigned samples, channels;
        const char* signature;
    };
    const Case cases[] = {{15, 4, "N.T."}, {15, 8, "N.T."}, {14, 4, "M.K."}, {0, 4, "M.K."},
                          {0, 8, "CD81"},  {0, 6, "CD61"},  {0, 5, "5CHN"},  {0, 1, "1CHN"},
                          {0, 9, "9CHN"},  {0, 10, "10CH"}, {0, 16, "16CH"}, {0, 99, "99CH"}};
    for (const Case& c : cases) {
        SongHeader song = minimalSong(c.channels);
        for (unsigned i = 0; i < c.samples; ++i) addSample(song, 0, 0);
        const ModFile f = write(song);
        EXPECT_EQ(f.text(1080, 4), c.signature) << c.samples << " samples, " << c.channels << " channels";
        EXPECT_EQ(f.b.size(), HEADER + 64 * 4 * c.channels) << c.channels;
    }
}

// ---------------------------------------------------------------------------------------------
// Patterns

TEST(ModPatterns, ChannelsBeyond99AreDropped) {
    SongHeader song = makeSong(MOD, 101);
    const uint16_t empty = addTrackBytes(song, {0});
    const uint16_t busy = addTrackRows(song, {TrackRow{note(36)}});
    std::vector<uint16_t> tracks(101, empty);
    tracks[98] = busy;
    tracks[100] = busy;
    addPattern(song, 64, tracks);
    setOrders(song, {0});
    const ModFile f = write(song);
    EXPECT_EQ(f.text(1080, 4), "99CH");
    ASSERT_EQ(f.b.size(), f.samplesAt(1));
    EXPECT_EQ(f.cell(0, 0, 98), (Bytes{0x03, 0x58, 0, 0}));
    EXPECT_EQ(f.notes, std::vector<std::string>{"MOD holds 99 channels; 2 more dropped"});
}

}  // namespace
}  // namespace deqaz
