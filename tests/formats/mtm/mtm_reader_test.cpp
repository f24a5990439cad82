// MTM reader: tracks kept one for one with their pattern lists, the comment's 40-byte lines
// joined into the message (MtmComment splits them again), unsigned sample data, damaged files,
// and the fixpoint on a hand-made file.
#include <gtest/gtest.h>

#include <cstring>

#include "common/endian.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using test::Bytes;
using Row = std::array<uint8_t, 3>;

struct MtmSample {
    Bytes data;  // stored bytes (unsigned)
    uint32_t loopStart = 0, loopEnd = 0;
    uint8_t finetune = 0, volume = 64, attribute = 0;
};

// An MTM file: `tracks` stored tracks (64 rows each, rows not given are empty), one track list
// per pattern (32 entries), the orders, the comment and the samples.
Bytes buildMtm(unsigned channels, const std::vector<std::vector<Row>>& tracks, const std::vector<std::vector<uint16_t>>& lists,
               const std::vector<uint8_t>& orders, const Bytes& comment, const std::vector<MtmSample>& samples) {
    Bytes b(66, 0);
    std::memcpy(b.data(), "MTM\x10", 4);
    std::memcpy(&b[4], "mtm song", 8);
    wr16le(&b[24], uint16_t(tracks.size()));
    b[26] = uint8_t(lists.size() - 1);
    b[27] = uint8_t(orders.size() - 1);
    wr16le(&b[28], uint16_t(comment.size()));
    b[30] = uint8_t(samples.size());
    b[33] = uint8_t(channels);
    for (int c = 0; c < 32; ++c) b[34 + c] = uint8_t(c % 16);
    for (const MtmSample& s : samples) {
        Bytes h(37, 0);
        std::memcpy(h.data(), "sample", 6);
        wr32le(&h[22], uint32_t(s.data.size())), wr32le(&h[26], s.loopStart), wr32le(&h[30], s.loopEnd);
        h[34] = s.finetune, h[35] = s.volume, h[36] = s.attribute;
        b.insert(b.end(), h.begin(), h.end());
    }
    Bytes table(128, 0);
    std::copy(orders.begin(), orders.end(), table.begin());
    b.insert(b.end(), table.begin(), table.end());
    for (const auto& t : tracks) {
        Bytes rows(192, 0);
        for (size_t r = 0; r < t.size(); ++r) std::copy(t[r].begin(), t[r].end(), rows.begin() + 3 * r);
        b.insert(b.end(), rows.begin(), rows.end());
    }
    for (const auto& list : lists) {
        Bytes l(64, 0);
        for (size_t c = 0; c < list.size(); ++c) wr16le(&l[2 * c], list[c]);
        b.insert(b.end(), l.begin(), l.end());
    }
    b.insert(b.end(), comment.begin(), comment.end());
    for (const MtmSample& s : samples) b.insert(b.end(), s.data.begin(), s.data.end());
    return b;
}

Bytes line(const std::string& text) {
    Bytes l(text.begin(), text.end());
    l.resize(std::max<size_t>(40, l.size()), 0);
    return l;
}

ReadResult readOk(const Bytes& b) {
    ReadResult r = readMtm(b.data(), b.size());
    EXPECT_TRUE(r.song) << r.error;
    return r;
}

TEST(MtmReader, TracksAndListsAreKeptOneForOne) {
    const Row c2{0x04, 0x10, 0x00};    // note field 1 (stored note 24), instrument 1
    const Row top{0xFF, 0xFA, 0x33};   // note field 63, instrument 63, effect A 0x33
    const std::vector<Row> a = {c2, {}, top};
    Bytes comment = line("two lines");
    comment.insert(comment.end(), 40, 'x');  // a full line
    const Bytes file = buildMtm(3, {a, a, {{0, 0x0C, 0x20}}}, {{1, 2, 3}, {2, 0, 2}}, {0, 1, 1}, comment,
                                {{{0x00, 0x80, 0xFF, 0x7F}, 1, 3, 5, 48}, {{0x00, 0x00, 0x00, 0x80, 0xFF, 0xFF}, 0, 4, 15, 64, 1}});
    ReadResult r = readOk(file);
    const SongHeader& s = *r.song;
    EXPECT_EQ(s.trackCount, 4);  // the empty track and the three stored ones, the twins included
    EXPECT_EQ(s.patternCount, 2);
    EXPECT_EQ(s.trackOf(0, 1), 2);
    EXPECT_EQ(s.trackOf(1, 1), 0);
    EXPECT_EQ(test::cellCommands(s, 0, 0, 0), (std::vector<TrackCommand>{{CMD_NOTE, 24}, {CMD_INSTRUMENT, 0}}));
    EXPECT_EQ(test::cellCommands(s, 0, 2, 1), (std::vector<TrackCommand>{{CMD_NOTE, 86}, {CMD_INSTRUMENT, 62}, {13, 0x33}}));
    EXPECT_EQ(s.message, "two lines\r" + std::string(40, 'x') + "\r");
    EXPECT_EQ(s.channelPan[5], 5 * 17);
    EXPECT_EQ(test::pcmOf(s.samples[0]), (std::vector<int16_t>{-32768, 0, 32512, -256}));
    EXPECT_EQ(s.samples[0].frequency & 0xFF, 0x50u);
    EXPECT_EQ(s.samples[0].pan, -1);  // MTM samples carry no pan
    EXPECT_EQ(s.samples[0].flags, 0);  // loop 1..3 bytes: shorter than a loop
    EXPECT_EQ(test::pcmOf(s.samples[1]), (std::vector<int16_t>{-32768, 0, 32767}));
    EXPECT_EQ(s.samples[1].flags, SF_16BIT | SF_LOOP);
    EXPECT_EQ(s.samples[1].loopEnd, 2u);
    EXPECT_TRUE(r.warnings.empty());

    // Written back: the same file, but for the beats-per-track byte the writer always clears.
    Bytes out = test::runWriteModule(*r.song, 1).bytes;
    ASSERT_EQ(out.size(), file.size());
    EXPECT_EQ(out[32], 0);
    out[32] = file[32];
    EXPECT_EQ(out, file);
    // 32 channels and 128 orders are MultiTracker's most; more channels read as 32, and said.
    for (uint8_t channels : {32, 40}) {
        Bytes wide = file;
        wide[33] = channels, wide[27] = 127;
        r = readOk(wide);
        EXPECT_EQ(r.song->channels, 32);
        EXPECT_EQ(r.warnings.size(), channels / 40u);
    }
}

TEST(MtmReader, CommentLinesJoin) {
    Bytes comment = line("first");
    Bytes second = line("with\0junk");  // text after a zero byte in a line is lost
    second[4] = 0, second[5] = 'j';
    comment.insert(comment.end(), second.begin(), second.end());
    comment.insert(comment.end(), 40, 0);  // an empty line
    comment.insert(comment.end(), {'e', 'n', 'd'});  // a short last line
    const Bytes file = buildMtm(1, {}, {{0}}, {0}, comment, {});
    ReadResult r = readOk(file);
    EXPECT_EQ(r.song->message, "first\rwith\r\rend\r");
    EXPECT_EQ(r.warnings.size(), 2u);  // the text after a zero byte, the short last line
}

}  // namespace
}  // namespace deqaz
