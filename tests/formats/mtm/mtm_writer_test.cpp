// MTM writer: header, track rows, pattern track lists and the comment against bytes worked by
// hand from the fields' arithmetic, also past MTM's usual range.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/file_view.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using namespace test;
using namespace std::string_literals;

// A written MTM file, its sections found from the header's counts.
struct MtmFile : FileView {
    size_t sampleAt(size_t i) const { return 66 + 37 * i; }
    size_t ordersAt() const { return sampleAt(u8(30)); }
    size_t trackAt(size_t t) const { return ordersAt() + 128 + 192 * (t - 1); }  // stored tracks count from 1
    size_t listAt(size_t p) const { return trackAt(size_t{u16(24)} + 1) + 64 * p; }
    uint16_t listEntry(size_t p, size_t slot) const { return u16(listAt(p) + 2 * slot); }
    size_t commentAt() const { return listAt(size_t{u8(26)} + 1); }
    size_t dataAt() const { return commentAt() + u16(28); }
    Bytes row(size_t t, size_t r) const { return bytes(trackAt(t) + 3 * r, 3); }
};

MtmFile write(SongHeader& song, int silent = 0) { return writeFile<MtmFile>(song, silent); }
SongHeader song(unsigned channels) { return makeOnePatternSong(SH_ORIGIN_MTM, channels); }

TEST(MtmHeader, FieldsOrdersAndTrackLists) {
    SongHeader s = song(4);
    s.name = "a name longer than twenty bytes";
    s.channelPan = {0, 16, 17, 255, 128, 60, 33};  // every one of the 32 bytes, beyond the 4 channels too
    s.channelPan[31] = s.channelPan[32] = 255;
    const uint16_t t1 = addTrackRows(s, {TrackRow{note(30)}});
    const uint16_t t2 = addTrackRows(s, {TrackRow{}, TrackRow{note(31)}});
    addPattern(s, 64, {t1, 0, t2, 9});  // 9: no such track, listed as it is
    setOrders(s, {1, 0, 1});
    addSample(s, 0, 10);
    addSample(s, 0, 20);
    const MtmFile f = write(s);
    EXPECT_EQ(f.text(0, 24), "MTM\x10" + s.name.substr(0, 20));
    EXPECT_EQ(f.bytes(24, 10), (Bytes{2, 0, 1, 2, 0, 0, 2, 0, 0, 4}));  // beats per track stays 0
    EXPECT_EQ(f.bytes(34, 32), (Bytes{0, 0, 1, 15, 7, 3, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 15}));
    EXPECT_EQ(f.ordersAt(), 66u + 2 * 37);
    EXPECT_EQ(f.bytes(f.ordersAt(), 128), [] { Bytes o(128, 0); o[0] = o[2] = 1; return o; }());
    // Four channels: list entries 4 to 31 are zero.
    for (size_t c = 0; c < 4; ++c) EXPECT_EQ(f.listEntry(1, c), (std::vector<uint16_t>{1, 0, 2, 9}[c]));
    EXPECT_EQ(f.bytes(f.listAt(1) + 8, 56), Bytes(56, 0));
    EXPECT_EQ(f.bytes(f.listAt(0), 64), Bytes(64, 0));
    EXPECT_EQ(f.b.size(), f.listAt(2) + 30);
    EXPECT_EQ(f.messages, "");
}

TEST(MtmHeader, Limits) {
    SongHeader s = makeSong(SH_ORIGIN_MTM, 34);
    addTrackBytes(s, {0});
    std::vector<uint16_t> tracks(34, addTrackRows(s, {TrackRow{note(40)}}));
    tracks[0] = 0;
    addPattern(s, 64, tracks);
    std::vector<uint8_t> orders(130, 0);
    orders[127] = 9;
    setOrders(s, orders);
    MtmFile f = write(s);
    EXPECT_EQ(f.u8(33), 32);
    EXPECT_EQ(f.u8(27), 127);
    EXPECT_EQ(f.u8(f.ordersAt() + 127), 9);
    EXPECT_EQ(f.row(1, 0), (Bytes{(41 - 24) << 2, 0, 0}));  // right after the 128 orders
    EXPECT_EQ(f.listEntry(0, 0), 0);
    EXPECT_EQ(f.listEntry(0, 31), 1);
    EXPECT_EQ(f.notes, (std::vector<std::string>{"MTM holds 32 channels; 2 more dropped", "MTM holds 128 orders; 2 more dropped"}));

    // No order, pattern or track: each count less one wraps to all ones, and nothing is listed.
    s = makeSong(SH_ORIGIN_MTM, 4);
    f = write(s);
    EXPECT_EQ(f.bytes(24, 4), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(f.b.size(), 66u + 128);
    EXPECT_EQ(f.messages, "");
}

TEST(MtmSample, DataUnsignedAndMono) {
    SongHeader s = song(4);
    addSample(s, 0, 5, 1);
    addSample(s, SF_16BIT, 0);
    addSample(s, SF_16BIT | SF_STEREO, 3, 2);
    const std::vector<int16_t> left = pcmOf(s.samples[2], 0), right = pcmOf(s.samples[2], 1);
    const MtmFile f = write(s);
    const size_t d = f.dataAt();
    // A stereo sample keeps its first channel only, so the data matches the header's length.
    EXPECT_EQ(f.u32(f.sampleAt(2) + 22), 6u);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(f.u16(d + 5 + 2 * i), static_cast<uint16_t>(left[i] + 0x8000)) << i;
    EXPECT_EQ(f.b.size(), d + 11);
    EXPECT_EQ(f.notes, std::vector<std::string>{"MTM samples are mono; the right channel of 1 samples left out"});
    EXPECT_EQ(pcmOf(s.samples[2], 1), right);  // the module keeps it
}

// Row bytes are sums in 8 bits: (note * 4 - 96) + instrument / 16, then instrument * 16 + effect.
TEST(MtmTracks, RowBytesCarryPastTheirFields) {
    SongHeader s = song(1);
    const uint16_t t = addTrackRows(s, {
        TrackRow{note(24), instrument(0)},                 // note 25, instrument 1
        TrackRow{note(86), instrument(62), cmd(18, 0x7D)},  // note 87, instrument 63, effect F
        TrackRow{instrument(16), cmd(15, 0x20)},           // instrument 17; set volume is effect C
        TrackRow{note(40), cmd(17, 0x81)},                 // effect E
        TrackRow{cmd(3, 0x37)},                            // arpeggio is effect 0
        TrackRow{note(23), instrument(2)},                 // note 24: field 0
        TrackRow{note(89), instrument(69), cmd(43, 0x91)},  // note 90, instrument 70, effect 0x13
        TrackRow{note(255)},                               // note off: 255 * 4 - 96
        TrackRow{note(30), instrument(63)},                // instrument 64
        TrackRow{cmd(22, 0x40), instrument(0)},            // global volume: effect 16
    });
    addPattern(s, 64, {t});
    MtmFile f = write(s);
    EXPECT_EQ(f.u16(24), 1);
    const Bytes expected{0x04, 0x10, 0x00, 0xFF, 0xFF, 0x7D, 0x01, 0x1C, 0x20, 0x44, 0x0E, 0x81, 0x00, 0x00, 0x37,
                         0x00, 0x30, 0x00, 0x0C, 0x73, 0x91, 0x9C, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0x20, 0x40};
    EXPECT_EQ(f.bytes(f.trackAt(t), 30), expected);
    EXPECT_EQ(f.bytes(f.trackAt(t) + 30, 192 - 30), Bytes(192 - 30, 0));
    EXPECT_EQ(f.listEntry(1, 0), t);
    EXPECT_EQ(f.messages, "");
}

// The comment bytes written for a message, and the header's comment length.
std::pair<std::string, uint16_t> comment(const std::string& message) {
    SongHeader s = song(1);
    s.message = message;
    addSample(s, 0, 1);
    const MtmFile f = write(s);
    const size_t at = f.commentAt(), bytes = f.b.size() - 1 - at;  // all lines, whatever the length says
    return {f.text(at, bytes), f.u16(28)};
}

TEST(MtmComment, LinesSplitAtCarriageReturns) {
    const std::string pad38(38, '\0'), line45(45, 'L'), line40(40, 'e');
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"no carriage return", ""},
        {"ab\rcd", "ab" + pad38},  // text after the last carriage return is not written
        {"\r\rx\r", std::string(80, '\0') + "x" + std::string(39, '\0')},
        {line40 + "\r", line40},
        {line45 + "\rok\r", line45 + "ok" + pad38},  // a long line is written whole
        {"a\rb\0c\r"s, "a" + std::string(39, '\0')},  // the message ends at a zero byte
    };
    for (const auto& [message, expected] : cases) EXPECT_EQ(comment(message), std::make_pair(expected, uint16_t(expected.size())));

    std::string many, lines;
    for (int i = 0; i < 1700; ++i) many += "line\r", lines += "line" + std::string(36, '\0');
    EXPECT_EQ(comment(many), std::make_pair(lines, uint16_t(1700 * 40)));  // every line; the length's low 16 bits
}

}  // namespace
}  // namespace deqaz
