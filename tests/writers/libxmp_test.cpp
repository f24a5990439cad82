// Each writer's patterns as libxmp, an independent reader, plays them: one row per command, and
// the event libxmp reads back. This pins the effect numbering and the notes' offsets per format,
// which a reader and a writer could otherwise get wrong together without a round trip noticing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/module_builder.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

struct Expect {
    int note = 0, ins = 0, vol = 0, fxt = 0, fxp = 0, f2t = 0, f2p = 0;
};
struct Case {
    const char* name;
    uint32_t flags;
    std::vector<std::pair<TrackRow, Expect>> rows;  // channel 0, from row 0 on
};

// libxmp's notes: IT stored + 1; S3M, MOD and XM an octave up (+ 13); MTM's field + 37 (+ 14).
const Case CASES[] = {
    {"IT", SH_ORIGIN_IT,
     {{{note(48), instrument(0), cmd(15, 40)}, {49, 1, 41}},
      {{note(60), instrument(1), cmd(33, 3)}, {61, 2, 0, 0xA3, 3}},
      {{note(50), instrument(0), cmd(34, 0x0F)}, {51, 1, 0, 0x0A, 0x0F}},
      {{note(255)}, {XMP_KEY_OFF}},
      {{note(254), cmd(12, 0x20)}, {XMP_KEY_CUT, 0, 0, 0x09, 0x20}},
      {{note(119), instrument(2), cmd(15, 64), cmd(7, 0x44)}, {120, 3, 65, 0x04, 0x44}},
      {{cmd(14, 1)}, {0, 0, 0, 0x0B, 1}},
      {{note(10), cmd(11, 130)}, {11, 0, 0, 0x08, 130}},
      {{cmd(44, 0x90)}, {0, 0, 0, 0x87, 0x90}}}},
    {"S3M", SH_ORIGIN_S3M,
     {{{note(48), instrument(0), cmd(15, 40)}, {61, 1, 41}},
      {{note(60), instrument(1), cmd(33, 3)}, {73, 2, 0, 0xA3, 3}},
      {{note(50), cmd(34, 0x0F)}, {63, 0, 0, 0x0A, 0x0F}},
      {{note(255)}, {XMP_KEY_OFF}},
      {{note(95), cmd(12, 0x20)}, {108, 0, 0, 0x09, 0x20}},
      {{note(0), instrument(2), cmd(15, 64), cmd(7, 0x44)}, {13, 3, 65, 0x04, 0x44}},
      {{cmd(6, 0x10)}, {0, 0, 0, 0x03, 0x10}},
      {{cmd(3, 0x37)}, {0, 0, 0, 0xB4, 0x37}},
      {{cmd(10, 0x23)}, {0, 0, 0, 0x07, 0x23}},
      {{cmd(22, 0x30)}, {0, 0, 0, 0x10, 0x30}},
      {{cmd(44, 0x90)}, {0, 0, 0, 0xAB, 0x90}},
      {{cmd(16, 0x20)}, {0, 0, 0, 0x0D, 0x20}}}},
    {"MOD", SH_ORIGIN_MOD,
     {{{note(36), instrument(0), cmd(15, 0x30)}, {49, 1, 0, 0x0C, 0x30}},
      {{note(48), instrument(1), cmd(18, 6)}, {61, 2, 0, 0x0F, 6}},
      {{note(40), cmd(6, 8)}, {53, 0, 0, 0x03, 8}},
      {{note(71), instrument(2), cmd(17, 0x91)}, {84, 3, 0, 0x0E, 0x91}},
      {{cmd(13, 4)}, {0, 0, 0, 0x0A, 4}},
      {{cmd(16, 0)}, {0, 0, 0, 0x0D, 0}},
      {{note(47), instrument(0), cmd(12, 0x20)}, {60, 1, 0, 0x09, 0x20}},
      {{cmd(14, 0)}, {0, 0, 0, 0x0B, 0}}}},
    {"MTM", SH_ORIGIN_MTM,
     {{{note(24), instrument(0), cmd(15, 40)}, {38, 1, 0, 0x0C, 40}},
      {{note(50), instrument(1), cmd(4, 3)}, {64, 2, 0, 0x01, 3}},
      {{note(86), instrument(2), cmd(13, 0x0F)}, {100, 3, 0, 0x0A, 0x0F}},
      {{cmd(12, 0x20)}, {0, 0, 0, 0x09, 0x20}},
      {{note(40), cmd(6, 0x44)}, {54, 0, 0, 0x03, 0x44}},
      {{cmd(7, 0x23)}, {0, 0, 0, 0x04, 0x23}},
      {{cmd(18, 5)}, {0, 0, 0, 0x0F, 5}},
      {{cmd(16, 0x10)}, {0, 0, 0, 0x0D, 0x10}},
      {{cmd(17, 0x84)}, {0, 0, 0, 0x08, 0x40}},  // E8x: libxmp makes it set panning
      {{note(60), instrument(1), cmd(3, 0x37)}, {74, 2, 0, 0x00, 0x37}}}},
    {"XM", SH_LINEAR_SLIDES,
     {{{note(48), instrument(0), cmd(15, 40)}, {61, 1, 41}},
      {{note(60), instrument(1), cmd(18, 6)}, {73, 2, 0, 0x0F, 6}},
      {{note(50), cmd(13, 0x0F)}, {63, 0, 0, 0x0A, 0x0F}},
      {{note(255)}, {XMP_KEY_OFF}},
      {{cmd(11, 0x80), cmd(28, 0x31)}, {0, 0, 0, 0x1B, 0x31, 0x08, 0x80}},  // pan in the volume column
      {{note(95), instrument(2), cmd(22, 0x20)}, {108, 3, 0, 0x10, 0x20}},
      {{cmd(14, 1)}, {0, 0, 0, 0x0B, 1}},
      {{note(10), cmd(26, 0x40)}, {23, 0, 0, 0x19, 0x40}},
      {{note(0), instrument(1), cmd(12, 0x10)}, {13, 2, 0, 0x09, 0x10}}}},
};

TEST(WritersThroughLibxmp, EveryCommandReadsBackAsItsEffect) {
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.name);
        SongHeader song = makeOnePatternSong(c.flags, 4);
        PatternGrid grid(64, 4);
        for (size_t r = 0; r < c.rows.size(); ++r) grid.at(static_cast<unsigned>(r), 0) = c.rows[r].first;
        addPattern(song, grid);
        setOrders(song, {1});
        for (unsigned i = 0; i < 3; ++i) {
            addSample(song, 0, 32, i + 1).globalVolume = static_cast<uint8_t>(i + 1);  // XM: its instrument
            if (c.flags == SH_LINEAR_SLIDES) addInstrument(song);
        }
        std::vector<uint8_t> bytes = runWriteModule(song).bytes;
        patchForLibxmp(bytes);
        XmpModule x;
        ASSERT_EQ(x.load(bytes), 0);
        std::vector<XmpCell> cells;
        for (size_t r = 0; r < c.rows.size(); ++r) {
            const Expect& e = c.rows[r].second;
            cells.push_back({1, static_cast<int>(r), 0, e.note, e.ins, e.vol, e.fxt, e.fxp, e.f2t, e.f2p});
        }
        cells.push_back({1, static_cast<int>(c.rows.size()), 0});  // and nothing after
        expectEvents(x, cells);
    }
}

}  // namespace
}  // namespace deqaz
