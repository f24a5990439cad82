// MOD reader: the dialects whose layout differs from ProTracker's (Ice Tracker's and Chiptracker's
// reusable tracks, His Master's Noise), read as libxmp reads them.
#include <gtest/gtest.h>

#include <cstring>

#include "common/endian.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using test::Bytes;

// A 31-sample MOD image with a 4-character signature: header, `patterns` patterns of 4 channels,
// then sample data.
struct ModImage {
    static constexpr size_t tableAt = 950, patternsAt = 1084, channels = 4;
    Bytes b;

    ModImage(const char* signature, unsigned patterns) : b(patternsAt + size_t{patterns} * 64 * channels * 4, 0) {
        std::memcpy(b.data(), "a song", 6);
        b[tableAt] = 1;
        b[tableAt + 1] = 0x7F;
        std::memcpy(&b[tableAt + 130], signature, 4);
    }
    void orders(std::initializer_list<uint8_t> list, unsigned songLength) {
        b[tableAt] = uint8_t(songLength);
        size_t i = 0;
        for (uint8_t o : list) b[tableAt + 2 + i++] = o;
    }
    uint8_t* cellAt(unsigned p, unsigned r, unsigned c) { return &b[patternsAt + ((size_t{p} * 64 + r) * channels + c) * 4]; }
    void cell(unsigned p, unsigned r, unsigned c, unsigned period, uint8_t ins, uint8_t fx, uint8_t fxp) {
        uint8_t* q = cellAt(p, r, c);
        q[0] = uint8_t((ins & 0xF0) | (period >> 8));
        q[1] = uint8_t(period);
        q[2] = uint8_t((ins << 4) | fx);
        q[3] = fxp;
    }
    void slot(unsigned i, const std::vector<int8_t>& data, uint8_t finetune, uint8_t volume, uint16_t loopStart, uint16_t loopLength) {
        uint8_t* s = &b[20 + 30 * size_t{i}];
        std::memcpy(s, "smp", 3);
        wr16be(s + 22, uint16_t(data.size() / 2));
        s[24] = finetune, s[25] = volume;
        wr16be(s + 26, loopStart), wr16be(s + 28, loopLength);
        for (int8_t v : data) b.push_back(uint8_t(v));
    }
};

ReadResult readOk(const Bytes& b) {
    ReadResult r = readMod(b.data(), b.size());
    EXPECT_TRUE(r.song) << r.error;
    return r;
}

Bytes writeBack(SongHeader& song) { return test::runWriteModule(song, 1).bytes; }

// Soundtracker 2.6 / Ice Tracker: reusable tracks, four named for each song position.
TEST(ModReaderLayout, IceTrackerPositionsPlayTheirTracks) {
    Bytes ice(1468 + 3 * 256, 0);
    std::memcpy(ice.data(), "ice", 3);
    ice[950] = 2, ice[951] = 3;  // two positions, three tracks
    const uint8_t table[8] = {0, 1, 2, 0, 2, 2, 1, 0};
    std::copy(std::begin(table), std::end(table), ice.begin() + 952);
    std::memcpy(&ice[1464], "IT10", 4);
    const uint8_t cells[2][4] = {{0x01, 0xAC, 0x1C, 0x21}, {0x00, 0xD6, 0x2F, 0x34}};  // 428 ins 1 C21; 214 ins 2 F34
    std::copy(cells[0], cells[0] + 4, ice.begin() + 1468 + 256 + 3 * 4);       // track 1, row 3
    std::copy(cells[1], cells[1] + 4, ice.begin() + 1468 + 2 * 256 + 63 * 4);  // track 2, row 63
    wr16be(&ice[20 + 22], 2), ice[20 + 24] = 5, ice[20 + 25] = 48;             // slot 0: 4 bytes, finetune 5
    wr16be(&ice[50 + 22], 3);                                                  // slot 1: 6 bytes
    ice.insert(ice.end(), {1, 2, 3, 4, 5, 6});
    ReadResult r = readOk(ice);
    const SongHeader& s = *r.song;
    EXPECT_EQ(std::vector<uint8_t>(s.orders.begin(), s.orders.end()), (std::vector<uint8_t>{0, 1}));
    EXPECT_EQ(test::cellCommands(s, 0, 3, 1), (std::vector<TrackCommand>{{CMD_NOTE, 48}, {CMD_INSTRUMENT, 0}, {15, 0x21}}));
    EXPECT_EQ(test::cellCommands(s, 1, 63, 0), (std::vector<TrackCommand>{{CMD_NOTE, 60}, {CMD_INSTRUMENT, 1}, {18, 0x34}}));
    EXPECT_EQ(test::cellCommands(s, 1, 63, 1), test::cellCommands(s, 0, 63, 2));
    EXPECT_TRUE(test::cellCommands(s, 1, 3, 3).empty());
    EXPECT_EQ(s.samples[0].length, 0u);  // 4 bytes: players do not load it
    EXPECT_EQ(test::pcmOf(s.samples[1]), (std::vector<int16_t>{256, 512, 768, 1024, 1280, 1536}));
    EXPECT_EQ(s.samples[1].frequency & 0xFF, 0x80u);
    EXPECT_EQ(r.warnings.size(), 3u);  // the layout, F34's alternating speeds, the 4-byte sample
    ice[1468 + 2 * 256 + 63 * 4 + 3] = 0x30;  // F30: one speed
    EXPECT_EQ(readMod(ice.data(), ice.size()).warnings.size(), 2u);
    ice[953] = 3;  // a track past the count
    EXPECT_EQ(readMod(ice.data(), ice.size()).error, "ICE Tracker module names a track it does not hold");
    ice[953] = 1;
    EXPECT_EQ(readMod(ice.data(), 1468 + 3 * 256 - 1).error, "ICE Tracker module ends inside its tracks");
}

// Chiptracker: tracks named per position with a transposition byte, cells of a note index, the
// instrument, the effect (high nibble ignored) and its parameter; libxmp reads the source and the
// MOD written back alike.
TEST(ModReaderLayout, ChiptrackerReadsAsLibxmpReadsIt) {
    Bytes kris(1984 + 2 * 256, 0);
    std::memcpy(kris.data(), "chip", 4);
    wr16be(&kris[22 + 22], 3), kris[22 + 25] = 48, wr16be(&kris[22 + 26], 2), wr16be(&kris[22 + 28], 2);
    std::memcpy(&kris[952], "KRIS", 4);
    kris[956] = 2, kris[957] = 1;  // song length, restart
    const uint8_t table[9] = {0, 1, 0, 1, 1, 0, 1, 1, 9};  // the 9th lies past the song: no track it must hold
    for (int k = 0; k < 9; ++k) kris[958 + 2 * k] = table[k];
    const uint8_t cells[3][4] = {{72, 1, 0x3C, 0x20}, {0xA8, 0, 0x0F, 0x06}, {20, 1, 0, 0}};
    std::copy(cells[0], cells[0] + 4, kris.begin() + 1984 + 3 * 4);            // track 0, row 3
    std::copy(cells[1], cells[1] + 4, kris.begin() + 1984 + 256 + 63 * 4);     // track 1, row 63
    std::copy(cells[2], cells[2] + 4, kris.begin() + 1984 + 256);              // track 1, row 0
    kris.insert(kris.end(), {1, 2, 3, 4, 5, 6});
    ReadResult r = readOk(kris);
    EXPECT_EQ(r.song->samples[0].loopStart, 2u);  // bytes, not words
    test::XmpModule source, result;
    ASSERT_EQ(source.load(kris), 0);
    ASSERT_EQ(result.load(writeBack(*r.song)), 0);
    EXPECT_EQ(test::xmpDifferences(source, result), std::set<std::string>{});
    kris[1984 + 3 * 4 + 2] = 0x0C;  // no effect high nibble: nothing of the cells is lost
    const size_t said = readOk(kris).warnings.size();
    kris[959] = 3, kris[1984 + 3 * 4] = 240;  // a transposition, which libxmp ignores; note 120, past B-9
    EXPECT_EQ(readOk(kris).warnings.size(), said + 2);
    EXPECT_EQ(test::cellCommands(*readOk(kris).song, 0, 3, 0).size(), 2u);  // the note dropped
    EXPECT_EQ(readMod(kris.data(), 1984 + 256).error, "Chiptracker module ends inside its tracks");
}

// His Master's Noise as libxmp reads it: finetunes in half ProTracker steps, effects 8, 9 and E
// not played, and the synth waveforms "Mupp" slots keep in patterns no order plays cleared (three
// such patterns would make libxmp refuse the "M.K." file written back).
TEST(ModReaderLayout, HisMastersNoiseReadsAsLibxmpReadsIt) {
    ModImage m("FEST", 5);
    m.orders({0, 4, 1}, 2);  // pattern 1 named only past the song's end
    m.slot(0, std::vector<int8_t>(64, 5), 254, 64, 0, 1);  // +1 step
    m.cell(0, 0, 0, 428, 1, 0x9, 0x10), m.cell(0, 1, 0, 428, 1, 0xE, 0x12), m.cell(0, 2, 1, 428, 1, 0x8, 0x40);
    for (unsigned p = 1; p <= 4; ++p) {  // pattern 4 is played, so it is kept
        std::memcpy(&m.b[20 + 30 * p], "Mupp", 4), m.b[20 + 30 * p + 4] = uint8_t(p);
        if (p < 4) std::fill(m.cellAt(p, 0, 0), m.cellAt(p, 0, 0) + 1024, 0xF0);
    }
    m.cell(4, 0, 0, 428, 1, 0, 0);
    test::XmpModule source, result;
    ASSERT_EQ(source.load(m.b), 0);
    ASSERT_EQ(result.load(writeBack(*readOk(m.b).song)), 0);
    const std::set<std::string> why = test::xmpDifferences(source, result);
    EXPECT_EQ(why.count("sample defaults") + why.count("effects") + why.count("notes"), 0u);
    m.cell(0, 3, 0, 428, 1, 0x7, 0x12);  // the mega-arpeggio, which a MOD cannot hold, goes too
    const ReadResult r = readOk(m.b);
    for (unsigned row = 0; row < 4; ++row) EXPECT_EQ(test::cellCommands(*r.song, 0, row, row == 2).size(), 2u) << row;
    EXPECT_TRUE(test::cellCommands(*r.song, 1, 0, 0).empty());
    EXPECT_EQ(readOk(ModImage("FEST", 1).b).warnings, std::vector<std::string>{});  // nothing of the above, nothing said
}

}  // namespace
}  // namespace deqaz
