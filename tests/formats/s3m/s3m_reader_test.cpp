// S3M reader: what the corpus does not show. Channel settings that are muted or AdLib drop their
// channels and the rest close up; a mono song keeps its right pans from making the written file
// stereo. The corpus goes through corpus_fixpoint_test and, judged by libxmp,
// tests/tools/roundtrip_test.
#include <gtest/gtest.h>

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
}

}  // namespace
}  // namespace deqaz
