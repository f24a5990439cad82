// MTM writer: sample data, unsigned and mono, against bytes worked by hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/file_view.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using namespace test;

// A written MTM file, its sections found from the header's counts.
struct MtmFile : FileView {
    size_t sampleAt(size_t i) const { return 66 + 37 * i; }
    size_t ordersAt() const { return sampleAt(u8(30)); }
    size_t trackAt(size_t t) const { return ordersAt() + 128 + 192 * (t - 1); }  // stored tracks count from 1
    size_t listAt(size_t p) const { return trackAt(size_t{u16(24)} + 1) + 64 * p; }
    size_t dataAt() const { return listAt(size_t{u8(26)} + 1) + u16(28); }
};

MtmFile write(SongHeader& song, int silent = 0) { return writeFile<MtmFile>(song, silent); }
SongHeader song(unsigned channels) { return makeOnePatternSong(SH_ORIGIN_MTM, channels); }

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

}  // namespace
}  // namespace deqaz
