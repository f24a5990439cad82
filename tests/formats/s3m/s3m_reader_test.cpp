// S3M reader: a hand-made S3M file field by field (channel compaction and pans, both sample
// formats, packed cells), mono songs, rejection and damage. The corpus goes through
// corpus_fixpoint_test and, judged by libxmp, tests/tools/roundtrip_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "common/endian.hpp"
#include "container/track.hpp"
#include "readers/module_reader.hpp"
#include "support/module_builder.hpp"
#include "support/xmp_compare.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;
using Bytes = std::vector<uint8_t>;
using Pcm = std::vector<int16_t>;

// Appends a block at the next paragraph; returns its paragraph number.
uint16_t paragraph(Bytes& f, const Bytes& block) {
    f.resize((f.size() + 15) / 16 * 16, 0);
    f.insert(f.end(), block.begin(), block.end());
    return static_cast<uint16_t>((f.size() - block.size()) / 16);
}

// Channel settings L1, (muted L2), AdLib, R1, L2 with a pan table (slot 3 without a pan: its
// side's default); orders 0 FE 0 FF; samples: 8-bit looped, 16-bit stereo, AdLib; one pattern.
Bytes handMadeS3m(uint16_t sampleFormat, bool stereo) {
    Bytes f(96, 0);
    std::memcpy(&f[0], "hand made s3m", 13);
    for (auto [at, v] : {std::pair{32, 4}, {34, 3}, {36, 1}, {38, 0x11}, {40, 0x1300}, {42, int{sampleFormat}}})
        wr16le(&f[at], static_cast<uint16_t>(v));
    std::memcpy(&f[44], "SCRM", 4);
    f[48] = 60, f[49] = 4, f[50] = 150, f[51] = stereo ? 0xB0 : 0x30, f[53] = 0xFC;
    std::fill(&f[64], &f[96], 0xFF);
    const Bytes settings{0, 0x81, 16, 8, 1}, orders{0, 0xFE, 0, 0xFF}, pans{0x22, 0x25, 0x2F, 0x0F, 0x2D};
    std::copy(settings.begin(), settings.end(), &f[64]);
    f.insert(f.end(), orders.begin(), orders.end());
    f.resize(f.size() + 8 + 32, 0);
    std::copy(pans.begin(), pans.end(), f.end() - 32);

    auto header = [](uint8_t type, const char* name, uint32_t length, uint8_t flags) {
        Bytes h(80, 0);
        h[0] = type, h[28] = 40, h[31] = flags;
        std::memcpy(&h[1], "FILE.SMP", 8);
        wr32le(&h[16], length), wr32le(&h[20], 1), wr32le(&h[24], 3), wr32le(&h[32], 16726);
        std::memcpy(&h[48], name, std::strlen(name));
        std::memcpy(&h[76], type == 1 ? "SCRS" : "SCRI", 4);
        return h;
    };
    const Bytes headers[3] = {header(1, "eight", 4, 1), header(1, "sixteen", 2, 6), header(2, "adlib", 0, 0)};
    for (int i = 0; i < 3; ++i) wr16le(&f[100 + 2 * i], paragraph(f, headers[i]));

    // Row 0: slot 0 C-4, instrument 1, volume 50, K21; slot 3 cut, L0F; slot 1 (muted): a note.
    // Row 1: slot 4 volume 0; slot 2 (AdLib): a note. Row 63: slot 0 instrument 2, X80.
    Bytes rows{0, 0, 0xE0, 0x40, 1, 50, 11, 0x21, 0xA3, 0xFE, 0, 12, 0x0F, 0x21, 0x30, 1, 0, 0x44, 0, 0x22, 0x31, 1, 0};
    rows.insert(rows.end(), 61, 0);
    rows.insert(rows.end(), {0xA0, 0xFF, 2, 24, 0x80, 0});
    wr16le(&rows[0], static_cast<uint16_t>(rows.size() - 2));
    wr16le(&f[106], paragraph(f, rows));

    const uint8_t flip = sampleFormat == 1 ? 0x80 : 0;  // the bytes below are unsigned
    const Bytes data[2] = {{0x80, 0xFF, 0x00, 0x90}, {0x00, 0x00, 0xFF, 0xFF, 0x00, 0x80, 0x01, 0x80}};  // 16-bit: left, right
    for (int i = 0; i < 2; ++i) {
        Bytes d = data[i];
        for (size_t k = i; k < d.size(); k += 1 + i) d[k] ^= flip;  // the high byte of each point
        const uint16_t para = paragraph(f, d);
        const size_t at = size_t{rd16le(&f[100 + 2 * i])} * 16;
        f[at + 13] = 0, wr16le(&f[at + 14], para);
    }
    return f;
}

TEST(S3mReader, HandMadeFileFieldByField) {
    for (uint16_t format : {uint16_t{1}, uint16_t{2}}) {
        SCOPED_TRACE(format);
        const Bytes f = handMadeS3m(format, true);
        ReadResult r = readS3m(f.data(), f.size());
        ASSERT_TRUE(r.song) << r.error;
        const SongHeader& s = *r.song;
        EXPECT_EQ(s.flags, SH_ORIGIN_S3M | SH_S3M_AMIGA_LIMITS | SH_S3M_ST300_VOLSLIDES);
        EXPECT_EQ(s.name, "hand made s3m");
        EXPECT_EQ((std::array<int, 3>{s.globalVolume, s.initialSpeed, s.initialTempo}), (std::array<int, 3>{60, 4, 150}));
        EXPECT_EQ(Bytes(s.orders.begin(), s.orders.end()), (Bytes{0, 0xFE, 0, 0xFF}));
        // Slots 0, 3 and 4 are the enabled sample channels; slot 3's pan is its side's default.
        ASSERT_EQ(s.channels, 3);
        EXPECT_EQ((std::array<int, 4>{s.channelPan[0], s.channelPan[1], s.channelPan[2], s.channelPan[3]}),
                  (std::array<int, 4>{2 * 17, 12 * 17, 13 * 17, 0}));

        // A file that ends right after the pan table still has it.
        EXPECT_EQ(readS3m(f.data(), 96 + 4 + 8 + 32).song->channelPan, s.channelPan);
        ASSERT_EQ(s.samples.size(), 3u);
        const SampleRecord &a = s.samples[0], &b = s.samples[1];
        EXPECT_EQ(std::tie(a.name, a.fileName), std::tuple("eight", "FILE.SMP"));
        EXPECT_EQ((std::array<uint32_t, 5>{a.flags, a.loopStart, a.loopEnd, a.volume, a.frequency}),
                  (std::array<uint32_t, 5>{SF_LOOP, 1, 3, 40, 16726}));
        EXPECT_EQ(pcmOf(a), (Pcm{0, 127 * 256, -128 * 256, 16 * 256}));
        EXPECT_EQ(b.flags, SF_16BIT | SF_STEREO);
        EXPECT_EQ(pcmOf(b, 0), (Pcm{-32768, 32767}));
        EXPECT_EQ(pcmOf(b, 1), (Pcm{0, 1}));
        EXPECT_EQ(std::tie(s.samples[2].name, s.samples[2].length), std::tuple("adlib", 0u));

        EXPECT_EQ(s.patternRows[0], 64);
        EXPECT_EQ(cellCommands(s, 0, 0, 0), (TrackRow{{1, 48}, {2, 0}, {15, 50}, {7, 0xFE}, {34, 0x21}}));
        EXPECT_EQ(cellCommands(s, 0, 0, 1), (TrackRow{{1, 254}, {6, 0xFE}, {34, 0x0F}}));
        EXPECT_EQ(cellCommands(s, 0, 1, 2), (TrackRow{{15, 0}}));
        EXPECT_EQ(cellCommands(s, 0, 63, 0), (TrackRow{{2, 1}, {11, 0x80}}));
        EXPECT_TRUE(cellCommands(s, 0, 1, 0).empty() && cellCommands(s, 0, 1, 1).empty());

        std::string warnings;
        for (const std::string& w : r.warnings) warnings += w + "\n";
        for (const char* expected : {"AdLib instruments", "AdLib channels dropped (2 times)", "ST2 vibrato"})
            EXPECT_NE(warnings.find(expected), std::string::npos) << warnings;
    }
}

TEST(S3mReader, MonoSongsStayMono) {
    // Pans are not heard in a mono song; right pans would make the written file stereo, so they
    // become 7, the last left value. Left pans are kept.
    const Bytes f = handMadeS3m(2, false);
    ReadResult r = readS3m(f.data(), f.size());
    ASSERT_TRUE(r.song);
    EXPECT_EQ((std::array<int, 3>{r.song->channelPan[0], r.song->channelPan[1], r.song->channelPan[2]}),
              (std::array<int, 3>{2 * 17, 7 * 17, 7 * 17}));
    EXPECT_EQ(runWriteModule(*r.song, 1).bytes.at(51) & 0x80, 0);
}

}  // namespace
}  // namespace deqaz
