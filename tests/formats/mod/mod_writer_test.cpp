// MOD writer: header, sample slots, signature choice, cells and periods checked byte by byte
// against values worked by hand from the fields' arithmetic, also past MOD's usual range.
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
    size_t slot(unsigned i) const { return 20 + 30 * size_t{i}; }
    Bytes cell(unsigned p, unsigned r, unsigned c) const { return bytes(HEADER + ((p * 64 + r) * channels + c) * 4, 4); }
    size_t samplesAt(unsigned patterns) const { return HEADER + size_t{patterns} * 64 * channels * 4; }
};

ModFile write(SongHeader& song, int silent = 0) {
    ModFile f = writeFile<ModFile>(song, silent);
    f.channels = std::min<unsigned>(song.channels, 99);
    return f;
}

SongHeader minimalSong(unsigned channels = 4) { return makeOnePatternSong(MOD, channels); }

// The bytes MOD data should hold for a sample: the high byte of each of the first frames of
// channel 1.
Bytes expectedData(const SampleRecord& s, size_t frames) {
    Bytes out;
    for (size_t i = 0; i < frames; ++i) out.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s.pcm[0][i]) >> 8));
    return out;
}

// ---------------------------------------------------------------------------------------------
// Header

TEST(ModHeader, SlotsLengthsAndFinetune) {
    SongHeader song = minimalSong();
    song.name = "a mod song name longer than twenty";
    addInstrument(song).name = "instrument zero";
    addInstrument(song).name = "instrument one";
    SampleRecord& a = addSample(song, SF_LOOP, 1001, 1);
    a.frequency = 0;
    a.volume = 40;
    a.loopStart = 101;
    a.loopEnd = 303;
    SampleRecord& b = addSample(song, 0, 2, 2);
    b.name = "own name";
    b.frequency = 128;
    addSample(song, 0, 4, 3).frequency = 0x1F0;  // first byte 240; no instrument 2: no name
    ModFile f = write(song);
    EXPECT_EQ(f.text(0, 20), "a mod song name long");
    EXPECT_EQ(f.text(f.slot(0), 16), std::string("instrument zero\0", 16));
    EXPECT_EQ(f.bytes(f.slot(0) + 22, 8), (Bytes{0x01, 0xF4, 8, 40, 0, 50, 0, 101}));
    EXPECT_EQ(f.text(f.slot(1), 9), std::string("own name\0", 9));
    EXPECT_EQ(f.bytes(f.slot(1) + 22, 8), (Bytes{0, 1, 0, 64, 0, 0, 0, 0}));
    EXPECT_EQ(f.bytes(f.slot(2), 30), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                              0, 0, 0, 0, 0, 0, 0, 0, 2, 7, 64, 0, 0, 0, 0}));
    EXPECT_EQ(f.bytes(f.slot(3), 30 * 28), Bytes(30 * 28, 0));
    EXPECT_EQ(f.bytes(950, 3), (Bytes{1, 127, 0}));
    EXPECT_EQ(f.bytes(953, 127), Bytes(127, 0));
    EXPECT_EQ(f.text(1080, 4), "M.K.");
    EXPECT_EQ(f.messages, "");

    // Sample data: every frame's high byte, the odd 1001st included, no padding between samples.
    const size_t d = f.samplesAt(1);
    ASSERT_EQ(f.b.size(), d + 1001 + 2 + 4);
    EXPECT_EQ(f.bytes(d, 1001), expectedData(song.samples[0], 1001));
    EXPECT_EQ(f.bytes(d + 1001, 2), expectedData(song.samples[1], 2));

    song.restartPos = 5;
    EXPECT_EQ(write(song).u8(951), 5);
}

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

TEST(ModHeader, OrdersBeyondTheTable) {
    SongHeader song = minimalSong();
    std::vector<uint8_t> orders(200);
    for (size_t i = 0; i < orders.size(); ++i) orders[i] = static_cast<uint8_t>(i % 3);
    setOrders(song, orders);
    const ModFile f = write(song);
    EXPECT_EQ(f.u8(950), 200);
    EXPECT_EQ(f.bytes(952, 128), Bytes(orders.begin(), orders.begin() + 128));
    EXPECT_EQ(f.text(1080, 4), "M.K.");
    EXPECT_EQ(f.notes, std::vector<std::string>{"MOD lists 128 orders; 72 more left out of the table"});
}

// ---------------------------------------------------------------------------------------------
// Patterns

TEST(ModPatterns, CellsAndPeriods) {
    SongHeader song = makeSong(MOD, 4);
    PatternGrid g(64, 4);
    g.at(0, 0) = {note(36), instrument(16), cmd(15, 0x40)};  // volume as effect C
    g.at(0, 2) = {cmd(3, 0x47)};                             // arpeggio: effect 0
    g.at(0, 3) = {note(0), instrument(255)};                 // instrument 255 means none
    const std::pair<uint8_t, uint16_t> periods[] = {{48, 428}, {60, 214}, {12, 3424}, {37, 808},
                                                    {47, 453}, {71, 113}, {72, 107}, {255, 0}};
    for (unsigned i = 0; i < std::size(periods); ++i) g.at(1 + i, 1) = {note(periods[i].first)};
    g.at(20, 3) = {instrument(0x2A), cmd(6, 0x20), cmd(18, 6)};  // second effect dropped
    g.at(21, 3) = {cmd(47, 0x10)};                               // effect 35 carries into the nibble above
    g.at(22, 3) = {instrument(0x2A), cmd(43, 0x91)};             // effect 0x13
    addPattern(song, g);
    setOrders(song, {0});
    const ModFile f = write(song);
    EXPECT_EQ(f.cell(0, 0, 0), (Bytes{0x13, 0x58, 0x1C, 0x40}));
    EXPECT_EQ(f.cell(0, 0, 1), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(f.cell(0, 0, 2), (Bytes{0, 0, 0, 0x47}));
    EXPECT_EQ(f.cell(0, 0, 3), (Bytes{0x0A, 0xC0, 0, 0}));  // 6848: only the low 12 bits
    for (unsigned i = 0; i < std::size(periods); ++i) {
        const uint16_t p = periods[i].second;
        EXPECT_EQ(f.cell(0, 1 + i, 1), (Bytes{static_cast<uint8_t>(p >> 8), static_cast<uint8_t>(p), 0, 0}))
            << "note " << int(periods[i].first) + 1;
    }
    EXPECT_EQ(f.cell(0, 20, 3), (Bytes{0x20, 0, 0xB3, 0x20}));
    EXPECT_EQ(f.cell(0, 21, 3), (Bytes{0, 0, 0x23, 0x10}));
    EXPECT_EQ(f.cell(0, 22, 3), (Bytes{0x20, 0, 0xC3, 0x91}));  // 0xB0 + 0x13
    EXPECT_EQ(f.messages, "2 effects in 1 row!\n");
}

TEST(ModPatterns, AlwaysSixtyFourRows) {
    SongHeader song = makeSong(MOD, 1);
    PatternGrid longer(100, 1);
    longer.at(63, 0) = {note(36)};
    longer.at(64, 0) = {note(48)};
    addPattern(song, longer);
    PatternGrid shorter(16, 1);
    shorter.at(15, 0) = {note(60)};
    addPattern(song, shorter);
    setOrders(song, {0, 1});
    const ModFile f = write(song);
    ASSERT_EQ(f.b.size(), f.samplesAt(2));
    EXPECT_EQ(f.cell(0, 63, 0), (Bytes{0x03, 0x58, 0, 0}));
    EXPECT_EQ(f.cell(1, 0, 0), (Bytes{0, 0, 0, 0}));  // row 64 of the long pattern is not written
    EXPECT_EQ(f.cell(1, 15, 0), (Bytes{0x00, 0xD6, 0, 0}));
    EXPECT_EQ(f.bytes(HEADER + 64 * 4 + 16 * 4, 48 * 4), Bytes(48 * 4, 0));
}

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

// ---------------------------------------------------------------------------------------------
// Samples beyond what MOD describes

// Slot words are the fields' arithmetic in 16 bits: a long sample's length wraps, and so does a
// loop whose start lies past its end; the data is written whole.
TEST(ModSamples, SlotWordsWrapAndDataIsWhole) {
    SongHeader song = minimalSong();
    addSample(song, SF_16BIT, 10, 1);
    addSample(song, SF_STEREO, 6, 2);
    SampleRecord& big = addSample(song, SF_LOOP, 140000, 3);
    big.loopStart = 131000;
    big.loopEnd = 139000;
    SampleRecord& backwards = addSample(song, SF_LOOP, 20, 4);
    backwards.loopStart = 10;
    backwards.loopEnd = 4;  // 4 - 10 wraps to 0xFFFFFFFA; halved, its low 16 bits are 0xFFFD
    while (song.samples.size() < 33) addSample(song, 0, 2, static_cast<unsigned>(song.samples.size()));
    const ModFile f = write(song);
    EXPECT_EQ(f.bytes(f.slot(0) + 22, 2), (Bytes{0, 5}));
    EXPECT_EQ(f.bytes(f.slot(1) + 22, 2), (Bytes{0, 3}));
    EXPECT_EQ(f.bytes(f.slot(2) + 22, 8), (Bytes{0x11, 0x70, 2, 64, 0xFF, 0xDC, 0x0F, 0xA0}));
    EXPECT_EQ(f.bytes(f.slot(3) + 22, 8), (Bytes{0, 10, 2, 64, 0, 5, 0xFF, 0xFD}));
    EXPECT_EQ(f.u16be(f.slot(30) + 22), 1);

    const size_t d = f.samplesAt(1);
    ASSERT_EQ(f.b.size(), d + 10 + 6 + 140000 + 20 + 27 * 2);
    EXPECT_EQ(f.bytes(d, 10), expectedData(song.samples[0], 10));
    EXPECT_EQ(f.bytes(d + 10, 6), expectedData(song.samples[1], 6));  // channel 1 only
    EXPECT_EQ(f.bytes(d + 16, 140000), expectedData(song.samples[2], 140000));
    EXPECT_EQ(f.notes, (std::vector<std::string>{"MOD holds 31 samples; 2 more dropped",
                                                 "MOD samples are 8-bit mono; 2 16-bit or stereo samples reduced"}));
    EXPECT_EQ(f.messages, "");
}

}  // namespace
}  // namespace deqaz
