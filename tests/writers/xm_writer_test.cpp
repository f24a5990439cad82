// XM writer: module header, packed patterns, instrument and sample headers, the sample-run search
// and the trailing chunks checked byte by byte against hand-worked values.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/file_view.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;
using namespace std::string_literals;

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

XmFile write(SongHeader& song, int silent = 0) { return writeFile<XmFile>(&writeXm, song, silent); }
SongHeader minimalSong(unsigned channels = 1) { return makeOnePatternSong(XM, channels); }

// An XM sample records its owning instrument (1-based) in its global-volume byte.
SampleRecord& addXmSample(SongHeader& song, unsigned owner, uint16_t flags, uint32_t length, unsigned seed = 1) {
    SampleRecord& s = addSample(song, flags, length, seed);
    s.globalVolume = static_cast<uint8_t>(owner);
    return s;
}

// ---------------------------------------------------------------------------------------------
// Module header

TEST(XmHeader, FieldsOrderTableAndTrackerName) {
    SongHeader song = minimalSong(6);
    song.name = "a song name longer than twenty";
    song.restartPos = 2;
    song.initialSpeed = 3;
    song.initialTempo = 140;
    song.flags = SH_LINEAR_SLIDES;
    addPattern(song, 32, std::vector<uint16_t>(6, 0));
    setOrders(song, {1, 0, 1});
    addInstrument(song);
    XmFile f = write(song);
    EXPECT_EQ(f.text(0, 58), "Extended Module: a song name longer t\x1A" "FastTracker v2.00   ");
    EXPECT_EQ(f.u16(58), 0x0104);
    EXPECT_EQ(f.u32(60), 276u);
    EXPECT_EQ(f.bytes(64, 16), (Bytes{3, 0, 2, 0, 6, 0, 2, 0, 1, 0, 1, 0, 3, 0, 140, 0}));
    EXPECT_EQ(f.bytes(80, 4), (Bytes{1, 0, 1, 0}));
    EXPECT_EQ(f.bytes(84, 252), Bytes(252, 0));
    EXPECT_EQ(f.messages, "");

    song.name = "short";
    song.flags = SH_XM_ALT_TRACKER_NAME;
    f = write(song);
    EXPECT_EQ(f.text(17, 20), "short" + std::string(15, '\0'));
    EXPECT_EQ(f.text(38, 20), "FastTracker v 2.00  ");
    EXPECT_EQ(f.u16(74), 0);
}

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

TEST(XmHeader, EmptyModuleIsTheHeaderAlone) {
    SongHeader song = makeSong(XM, 4);  // no orders, patterns or instruments
    const XmFile f = write(song);
    ASSERT_EQ(f.b.size(), HEADER);
    EXPECT_EQ(f.bytes(64, 10), (Bytes{0, 0, 0, 0, 4, 0, 0, 0, 0, 0}));
    EXPECT_EQ(f.bytes(80, 256), Bytes(256, 0));
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

TEST(XmInstrument, FullHeaderFields) {
    SongHeader song = minimalSong();
    InstrumentRecord& ins = addInstrument(song);
    ins.flags = 0x3;
    ins.volumeEnvelope = {0x07, 3, 1, 0, 0, 2, {}};
    ins.volumeEnvelope.points[0] = {0, 64};
    ins.volumeEnvelope.points[1] = {0x123, 32};
    ins.volumeEnvelope.points[12] = {99, 99};  // beyond XM's 12 points
    ins.panningEnvelope = {0x81, 2, 0, 0, 1, 1, {}};
    ins.panningEnvelope.points[1] = {5, 0x20};
    ins.vibratoType = 1;
    ins.vibratoSweep = 2;
    ins.vibratoDepth = 3;
    ins.vibratoRate = 4;
    ins.fadeout = 0x1234;
    ins.midiChannel = 9;
    ins.midiProgram = 200;
    ins.midiBendRange = 12;
    ins.noteMap[5].sample = 0;
    addXmSample(song, 1, 0, 4);
    const XmFile f = write(song);
    const size_t at = f.instrumentsAt();
    EXPECT_EQ(f.bytes(at, 4), (Bytes{248, 0, 0, 0}));
    EXPECT_EQ(f.bytes(at + 27, 6), (Bytes{1, 0, 40, 0, 0, 0}));
    EXPECT_EQ(f.bytes(at + 33, 96), Bytes(96, 0));  // one sample: every key plays it
    EXPECT_EQ(f.bytes(at + 129, 8), (Bytes{0, 0, 64, 0, 0x23, 0x01, 32, 0}));
    EXPECT_EQ(f.bytes(at + 129 + 8, 40), Bytes(40, 0));
    EXPECT_EQ(f.bytes(at + 177, 8), (Bytes{0, 0, 0, 0, 5, 0, 0x20, 0}));
    EXPECT_EQ(f.bytes(at + 225, 23), (Bytes{3, 2, 1, 0, 2, 0, 1, 1, 0x07, 0x01, 1, 2, 3, 4, 0x34, 0x12, 1, 9, 200, 0, 12, 0, 1}));
    EXPECT_EQ(f.u32(at + 248), 4u);  // the sample header follows

    song.instruments[0].flags = 0;
    const XmFile g = write(song);
    EXPECT_EQ(g.u8(at + 241), 0);
    EXPECT_EQ(g.u8(at + 247), 0);
}

TEST(XmSample, HeaderFieldsAndDeltaData) {
    SongHeader song = minimalSong();
    addInstrument(song);
    SampleRecord& a = addXmSample(song, 1, SF_16BIT | SF_STEREO | SF_LOOP, 1000, 3);
    a.loopStart = 100;
    a.loopEnd = 300;
    a.volume = 48;
    a.frequency = 0x90;  // fine-tune +16
    a.pan = -1;
    a.relativeNote = -12;
    a.name = "stereo";
    SampleRecord& b = addXmSample(song, 1, SF_LOOP | SF_PINGPONG, 5, 4);
    b.loopStart = 1;
    b.loopEnd = 4;
    b.frequency = 0x170;  // only the first byte counts: fine-tune -16
    b.pan = 200;
    SampleRecord& c = addXmSample(song, 1, SF_PINGPONG | SF_16BIT, 0);  // ping-pong without loop: type still 2
    c.pan = 0;
    c.loopStart = 6;  // past the end: the loop length (2 - 6) * 2 wraps in 32 bits
    c.loopEnd = 2;
    const XmFile f = write(song);
    const size_t h = f.instrumentsAt() + 248;
    EXPECT_EQ(f.bytes(h, 24), (Bytes{0xA0, 0x0F, 0, 0, 200, 0, 0, 0, 0x90, 0x01, 0, 0,  //
                                      48, 0x10, 0x31, 0xFF, 0xF4, 0, 's', 't', 'e', 'r', 'e', 'o'}));
    EXPECT_EQ(f.bytes(h + 40, 18), (Bytes{5, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 64, 0xF0, 2, 200, 0, 0}));
    EXPECT_EQ(f.bytes(h + 80, 16), (Bytes{0, 0, 0, 0, 12, 0, 0, 0, 0xF8, 0xFF, 0xFF, 0xFF, 64, 0x2B, 0x12, 0}));

    // Data after the three headers (libxmp checks the deltas of mono data): each channel's deltas
    // start again from 0, then the 8-bit sample.
    ASSERT_EQ(f.b.size(), h + 120 + 4000 + 5);
    EXPECT_EQ(f.u16(h + 120 + 2000), static_cast<uint16_t>(song.samples[0].pcm[1][0]));
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

TEST(XmChunks, TextMidiAndExtensionBlocksInOrder) {
    SongHeader song = minimalSong(2);
    const size_t end = HEADER + 9;
    EXPECT_EQ(write(song).b.size(), end);  // none of them without their content

    song.zxxMacro[0] = 0x100;  // fixed macros alone write no MIDI block
    song.flags = SH_EXTRA_CHUNKS;
    EXPECT_EQ(write(song).b.size(), end);

    song.message = "hello";
    song.sfxMacro[0] = 1;
    song.fxSlots[2].present = true;
    song.fxSlots[2].size = 3;
    ASSERT_TRUE(song.fxSlots[2].data.dupBuffer(reinterpret_cast<const uint8_t*>("abc"), 3));
    ASSERT_TRUE(song.channelFx.dupBuffer(Bytes{1, 2, 3, 4, 5, 6, 7, 8}.data(), 8));
    const XmFile f = write(song);
    EXPECT_EQ(f.text(end, 14), std::string("text\x06\0\0\0hello\0", 14));
    size_t at = end + 14;
    EXPECT_EQ(f.text(at, 8), std::string("MIDI\x20\x13\0\0", 8));
    EXPECT_EQ(f.text(at + 8, 3), "FF\0"s);
    EXPECT_EQ(f.text(at + 8 + 9 * 32, 8), "F0F000z\0"s);
    EXPECT_EQ(f.text(at + 8 + 25 * 32, 9), "F0F00000\0"s);
    at += 8 + 4896;
    EXPECT_EQ(f.text(at, 11), std::string("FX02\x03\0\0\0abc", 11));
    EXPECT_EQ(f.bytes(at + 11, 16), (Bytes{'C', 'H', 'F', 'X', 8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(f.b.size(), at + 27);
}

}  // namespace
}  // namespace deqaz
