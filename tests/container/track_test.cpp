// Tracks: the run-length groups the encoder writes, the walk that finds a row's group, and the
// cursor that walks forward through them.
#include <gtest/gtest.h>

#include <random>

#include "container/track.hpp"
#include "container/track_encoder.hpp"

namespace deqaz {
namespace {

using Bytes = std::vector<uint8_t>;

// Offsets of the groups cellAt gives for rows 0, 1, ..., or -1 for none.
std::vector<long> offsets(const Bytes& t, uint32_t rows) {
    std::vector<long> out;
    for (uint32_t r = 0; r < rows; ++r) {
        TrackGroup g = cellAt(t.data(), t.size(), r);
        out.push_back(g ? g.bytes - t.data() : -1);
    }
    return out;
}

TEST(Tracks, EncodedGroupsAndTheRowsTheyCover) {
    std::vector<TrackRow> rows(64);
    rows[0] = rows[1] = {{CMD_NOTE, 48}};
    rows[3] = {{CMD_NOTE, 50}, {CMD_INSTRUMENT, 0}};
    const Bytes documented = {0x21, 0x01, 0x30, 0x10, 0x12, 0x01, 0x32, 0x02, 0x00, 0x00};
    EXPECT_EQ(encodeTrack(rows), documented);
    EXPECT_EQ(offsets(documented, 5), (std::vector<long>{0, 0, -1, 4, -1}));
    EXPECT_EQ(encodeTrack(std::vector<TrackRow>(64)), Bytes{0x00});
    // 20 identical rows split into groups of 15 and 5; 16 commands keep their first 15.
    EXPECT_EQ(encodeTrack(std::vector<TrackRow>(20, TrackRow{{15, 0x20}})), (Bytes{0xF1, 15, 0x20, 0x51, 15, 0x20, 0x00}));
    EXPECT_EQ(encodeTrack(std::vector<TrackRow>(1, TrackRow(16, TrackCommand{3, 1}))).front(), 0x1F);

    // 0xF0 is 15 empty rows, 0x10 one, then a three-row note.
    std::vector<long> expected(16, -1);
    expected.insert(expected.end(), {2, 2, 2, -1});
    EXPECT_EQ(offsets({0xF0, 0x10, 0x31, 0x01, 0x30, 0x00}, 20), expected);
    // A group with row count 0 covers nothing: row 0 belongs to the group after it.
    EXPECT_EQ(offsets({0x02, 0x01, 0x30, 0x02, 0x05, 0x11, 0x01, 0x40, 0x00}, 2), (std::vector<long>{5, -1}));
    // No terminator, and a last group whose pairs run past the stored bytes.
    const Bytes damaged = {0x11, 0x01, 0x30, 0x23, 0x01};
    EXPECT_EQ(offsets(damaged, 3), (std::vector<long>{0, -1, -1}));
    TrackCursor cursor(damaged.data(), damaged.size());
    EXPECT_TRUE(cursor.at(0));
    EXPECT_FALSE(cursor.at(1));
    EXPECT_EQ(cellAt(nullptr, 0, 0).bytes, nullptr);
}

// Random rows, encoded, walk back as they were; random (also damaged) tracks give the cursor
// and the walk the same group for every row.
TEST(Tracks, EncoderWalkAndCursorAgree) {
    std::mt19937 rng(99);
    for (int trial = 0; trial < 100; ++trial) {
        std::vector<TrackRow> rows(1 + rng() % 256);
        for (auto& row : rows) {
            if (rng() % 3 == 0) continue;
            for (int k = 0, n = 1 + rng() % 3; k < n; ++k)
                row.push_back({static_cast<uint8_t>(1 + rng() % 51), static_cast<uint8_t>(rng() % 3)});
            if (rng() % 2 && &row != &rows.front()) row = *(&row - 1);  // make runs
        }
        const Bytes t = encodeTrack(rows);
        for (uint32_t r = 0; r < rows.size(); ++r) {
            TrackGroup g = cellAt(t.data(), t.size(), r);
            TrackRow back;
            for (unsigned k = 0; g && k < g.pairCount(); ++k) back.push_back({g.bytes[1 + 2 * k], g.bytes[2 + 2 * k]});
            ASSERT_EQ(back, rows[r]) << "trial " << trial << " row " << r;
        }
    }
    for (int trial = 0; trial < 300; ++trial) {
        Bytes t;
        for (int g = 0, groups = rng() % 40; g < groups; ++g) {
            uint8_t rows = rng() % 16, n = rng() % 4;
            if (rows == 0 && n == 0) rows = 1;  // a zero byte would end the track
            t.push_back(static_cast<uint8_t>(rows << 4 | n));
            for (int k = 0; k < 2 * n; ++k) t.push_back(static_cast<uint8_t>(rng()));
        }
        if (rng() % 4) t.push_back(0);
        if (!t.empty() && rng() % 5 == 0) t.pop_back();
        TrackCursor cursor(t.data(), t.size());
        for (uint32_t r = 0; r < 400; ++r)
            ASSERT_EQ(cursor.at(r).bytes, cellAt(t.data(), t.size(), r).bytes) << "trial " << trial << " row " << r;
    }
}

}  // namespace
}  // namespace deqaz
