// S3M reader: what the corpus does not show. Channel settings that are muted or AdLib drop their
// channels and the rest close up; a mono song keeps its right pans from making the written file
// stereo. The corpus goes through corpus_fixpoint_test and, judged by libxmp,
// tests/tools/roundtrip_test.
#include <gtest/gtest.h>

#include <tuple>

#include "common/endian.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

TEST(S3mReader, DroppedChannelsCloseUpAndMonoSongsStayMono) {
    SongHeader song = makeSong(SH_ORIGIN_S3M, 4);
    song.channelPan = {0, 255, 255, 255};
    PatternGrid grid(64, 4);
    grid.at(0, 2) = {note(48)};
    grid.at(0, 3) = {note(50), instrument(0)};
    addPattern(song, grid);
    setOrders(song, {0});
    Bytes f = runWriteModule(song, 1).bytes;
    f[64 + 1] = 0x81;  // muted
    f[64 + 2] = 16;    // an AdLib channel
    for (bool stereo : {true, false}) {
        if (!stereo) f[51] &= 0x7F;
        const ReadResult r = readS3m(f.data(), f.size());
        ASSERT_TRUE(r.song) << r.error;
        EXPECT_EQ(r.song->channels, 2);
        // A right pan in a mono song becomes 7 * 17, the last left value; left pans stay.
        EXPECT_EQ((std::array<int, 2>{r.song->channelPan[0], r.song->channelPan[1]}),
                  (std::array<int, 2>{0, stereo ? 255 : 7 * 17}));
        EXPECT_EQ(cellCommands(*r.song, 0, 0, 1), (TrackRow{{CMD_NOTE, 50}, {CMD_INSTRUMENT, 0}}));
        ASSERT_EQ(r.warnings.size(), 1u);
        EXPECT_NE(r.warnings[0].find("AdLib channels dropped"), std::string::npos) << r.warnings[0];
        EXPECT_EQ(runWriteModule(*r.song, 1).bytes.at(51) & 0x80, stereo ? 0x80 : 0);
    }
    // The pan table counts when the header announces it and the file holds all 32 bytes of it;
    // otherwise the side's default stands (12 * 17 for this right channel).
    const size_t panEnd = 96 + rd16le(&f[32]) + 2 * (rd16le(&f[34]) + rd16le(&f[36])) + 32;
    f[51] |= 0x80;
    for (auto [size, flag, pan] : {std::tuple{panEnd, 0xFC, 255}, {panEnd - 1, 0xFC, 12 * 17}, {f.size(), 0, 12 * 17}}) {
        f[53] = static_cast<uint8_t>(flag);
        const ReadResult r = readS3m(f.data(), size);
        ASSERT_TRUE(r.song) << r.error;
        EXPECT_EQ(r.song->channelPan[1], pan) << size << " " << flag;
    }
}

}  // namespace
}  // namespace deqaz
