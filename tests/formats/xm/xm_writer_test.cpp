// XM writer, byte by byte against hand-worked values, where the corpus read and written back
// does not reach: order lists and packed sizes past XM's fields, the sample-run search and the
// trailing chunks.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

constexpr uint32_t XM = 0;  // no origin flag
constexpr size_t HEADER = 336;

struct XmFile : FileView {
    // Offset of pattern k's header, following the packed sizes of those before it.
    size_t patternAt(unsigned k) const {
        size_t at = HEADER;
        for (unsigned i = 0; i < k; ++i) at += 9 + u16(at + 7);
        return at;
    }
    Bytes packed(unsigned k) const { return bytes(patternAt(k) + 9, u16(patternAt(k) + 7)); }
    size_t instrumentsAt() const { return patternAt(u16(70)); }
};

XmFile write(SongHeader& song, int silent = 0) { return writeFile<XmFile>(song, silent); }
SongHeader minimalSong(unsigned channels = 1) { return makeOnePatternSong(XM, channels); }

// An XM sample records its owning instrument (1-based) in its global-volume byte.
SampleRecord& addXmSample(SongHeader& song, unsigned owner, uint16_t flags, uint32_t length, unsigned seed = 1) {
    SampleRecord& s = addSample(song, flags, length, seed);
    s.globalVolume = static_cast<uint8_t>(owner);
    return s;
}

// ---------------------------------------------------------------------------------------------
// Module header

TEST(XmHeader, OrderListBeyondTheTable) {
    SongHeader song = minimalSong();
    std::vector<uint8_t> orders(300);
    for (size_t i = 0; i < orders.size(); ++i) orders[i] = static_cast<uint8_t>(i % 7);
    setOrders(song, orders);
    XmFile f = write(song);
    EXPECT_EQ(f.u16(64), 300);  // the song length is the order count; the table holds 256
    EXPECT_EQ(f.bytes(80, 256), Bytes(orders.begin(), orders.begin() + 256));
    EXPECT_EQ(f.u32(HEADER), 9u);  // the first pattern follows the table
    EXPECT_EQ(f.notes, std::vector<std::string>{"XM lists 256 orders; 44 more left out of the table"});
    EXPECT_EQ(f.messages, "");
}

// ---------------------------------------------------------------------------------------------
// Patterns

TEST(XmPatterns, EmptyAndZeroRowPatternsAreHeadersOnly) {
    SongHeader song = minimalSong(2);
    addPattern(song, 0, {0, 0});
    song.patternTracks[0] = 999;  // no such track: an empty channel
    const XmFile f = write(song);
    EXPECT_EQ(f.bytes(HEADER, 18), (Bytes{9, 0, 0, 0, 0, 64, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(f.b.size(), HEADER + 18);  // no instruments: nothing follows
}

TEST(XmPatterns, CellPacking) {
    SongHeader song = makeSong(XM, 2);
    PatternGrid g(3, 2);
    g.at(0, 0) = {note(255)};                                                     // note off
    g.at(0, 1) = {note(48), instrument(2), cmd(15, 32), cmd(17, 0x91)};          // all five
    g.at(1, 1) = {cmd(3, 0x37)};                                                  // arpeggio
    g.at(2, 0) = {instrument(0), cmd(6, 0x20), cmd(20, 0x03)};                    // porta moved out
    g.at(2, 1) = {note(253)};                                                     // cut, as is
    addPattern(song, g);
    setOrders(song, {0});
    const XmFile f = write(song);
    EXPECT_EQ(f.u16(HEADER + 5), 3);
    EXPECT_EQ(f.packed(0), (Bytes{0x81, 0x61,                          //
                                  0x9F, 49, 3, 0x30, 14, 0x91,         //
                                  0x80, 0x90, 0x37,                    //
                                  0x9E, 1, 0x63, 3, 0x20, 0x81, 254}));
}

TEST(XmPatterns, PackedSizeBeyond16Bits) {
    // 64 channels x 256 rows of six-byte cells: 98304 bytes, more than the size field holds.
    SongHeader song = makeSong(XM, 64);
    const uint16_t t = addTrackRows(song, std::vector<TrackRow>(256, TrackRow{note(1), instrument(1), cmd(15, 1), cmd(17, 0x11)}));
    addPattern(song, 256, std::vector<uint16_t>(64, t));
    addPattern(song, 1, std::vector<uint16_t>(64, t));
    setOrders(song, {0});
    const XmFile f = write(song);
    EXPECT_EQ(f.u16(HEADER + 7), 98304 % 65536);
    EXPECT_EQ(f.u16(HEADER + 9 + 98304 + 5), 1);  // the next pattern still follows every byte
    EXPECT_EQ(f.notes, std::vector<std::string>{"XM pattern 0 packs to 98304 bytes; its size field keeps the low 16 bits"});
}

// ---------------------------------------------------------------------------------------------
// Instruments and samples

TEST(XmInstrument, WithoutSamplesIs33Bytes) {
    SongHeader song = minimalSong();
    addInstrument(song).name = "empty";
    addSample(song, 0, 10).globalVolume = 7;  // names no instrument: never written
    const XmFile f = write(song);
    const size_t at = f.instrumentsAt();
    ASSERT_EQ(f.b.size(), at + 33);
    EXPECT_EQ(f.u32(at), 33u);
    EXPECT_EQ(f.text(at + 4, 6), std::string("empty\0", 6));
    EXPECT_EQ(f.bytes(at + 26, 7), (Bytes{0, 0, 0, 40, 0, 0, 0}));
}

// ---------------------------------------------------------------------------------------------
// Which samples belong to which instrument

// Instrument headers in file order: (offset, sample count); walks headers, sample headers and data.
std::vector<std::pair<size_t, unsigned>> instrumentLayout(const XmFile& f) {
    std::vector<std::pair<size_t, unsigned>> out;
    size_t at = f.instrumentsAt();
    for (unsigned i = 0; i < f.u16(72); ++i) {
        const unsigned n = f.u16(at + 27);
        out.emplace_back(at, n);
        size_t data = 0;
        for (unsigned s = 0; s < n; ++s) data += f.u32(at + f.u32(at) + 40 * s);
        at += f.u32(at) + 40 * n + data;
    }
    EXPECT_EQ(at, f.b.size());
    return out;
}

TEST(XmSampleRuns, ContiguousRunByInstrumentNumber) {
    SongHeader song = minimalSong();
    const unsigned owners[] = {2, 2, 1, 1, 1, 2};  // the last one is not next to its run
    for (unsigned i = 0; i < 6; ++i) addXmSample(song, owners[i], 0, 10 + i).name = "s" + std::to_string(i);
    InstrumentRecord& one = addInstrument(song);
    for (unsigned k = 0; k < 120; ++k) one.noteMap[k].sample = static_cast<uint16_t>(2 + k % 3);
    one.noteMap[7].sample = 0xFFFF;
    one.noteMap[8].sample = 0;  // outside the run: relative index wraps in its byte
    addInstrument(song);
    const XmFile f = write(song);
    const auto layout = instrumentLayout(f);
    ASSERT_EQ(layout.size(), 2u);
    EXPECT_EQ(layout[0].second, 3u);
    EXPECT_EQ(layout[1].second, 2u);
    const size_t keys = layout[0].first + 33;
    EXPECT_EQ(f.bytes(keys, 10), (Bytes{0, 1, 2, 0, 1, 2, 0, 0, 0xFE, 0}));
    EXPECT_EQ(f.u8(keys + 95), 95 % 3);
    EXPECT_EQ(f.text(layout[0].first + 248 + 18, 2), "s2");
    EXPECT_EQ(f.text(layout[0].first + 248 + 80 + 18, 2), "s4");
    EXPECT_EQ(f.u32(layout[1].first + 248), 10u);  // samples 0 and 1 of lengths 10, 11
    EXPECT_EQ(f.u32(layout[1].first + 248 + 40), 11u);
    EXPECT_EQ(f.bytes(layout[1].first + 33, 96), Bytes(96, 0));  // keys unmapped in instrument 2
}

TEST(XmSampleRuns, NoteMapFallback) {
    SongHeader song = minimalSong();
    for (unsigned i = 0; i < 6; ++i) addXmSample(song, 9, 0, 20 + i);  // none names instruments 1-3
    InstrumentRecord& a = addInstrument(song);
    a.noteMap[10].sample = 4;
    a.noteMap[20].sample = 2;
    a.noteMap[100].sample = 0;  // beyond the 96 keys XM maps: ignored
    InstrumentRecord& b = addInstrument(song);
    b.noteMap[0].sample = 3;
    b.noteMap[1].sample = 40;  // past the last sample: the run is clamped to it
    addInstrument(song).noteMap[0].sample = 6;  // starts past the last sample: no samples
    const XmFile f = write(song);
    const auto layout = instrumentLayout(f);
    ASSERT_EQ(layout.size(), 3u);
    EXPECT_EQ(layout[0].second, 3u);  // samples 2..4, unmapped keys widen nothing
    EXPECT_EQ(f.u32(layout[0].first + 248), 22u);
    EXPECT_EQ(f.u8(layout[0].first + 33 + 10), 2);
    EXPECT_EQ(f.u8(layout[0].first + 33 + 20), 0);
    EXPECT_EQ(layout[1].second, 3u);  // samples 3..5
    EXPECT_EQ(f.u8(layout[1].first + 33 + 1), 37);
    EXPECT_EQ(layout[2].second, 0u);
    EXPECT_EQ(f.u32(layout[2].first), 33u);
}

// ---------------------------------------------------------------------------------------------
// Trailing chunks

// Chunks only with content; their bytes and order are XmReaderRecords.TrailingChunksComeBack's.
TEST(XmChunks, OnlyWithContent) {
    SongHeader song = minimalSong(2);
    const size_t end = HEADER + 9;
    EXPECT_EQ(write(song).b.size(), end);
    song.zxxMacro[0] = 0x100;  // fixed macros alone write no MIDI block
    song.flags = SH_EXTRA_CHUNKS;
    EXPECT_EQ(write(song).b.size(), end);
    song.sfxMacro[0] = 1;
    EXPECT_EQ(write(song).text(end, 8), std::string("MIDI\x20\x13\0\0", 8));
}

}  // namespace
}  // namespace deqaz
