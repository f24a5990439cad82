#include <gtest/gtest.h>

#include <random>

#include "container/track.hpp"
#include "container/track_encoder.hpp"

using namespace deqaz;

namespace {

// The group cellAt gives, as an offset into the track, or -1 for none.
long offsetAt(const std::vector<uint8_t>& t, uint32_t row) {
    TrackGroup g = cellAt(t.data(), t.size(), row);
    return g ? g.bytes - t.data() : -1;
}

}  // namespace

TEST(TrackWalk, DocumentedExample) {
    // 21 01 30 | 10 | 12 01 32 02 00 | 00
    const std::vector<uint8_t> t = {0x21, 0x01, 0x30, 0x10, 0x12, 0x01, 0x32, 0x02, 0x00, 0x00};
    EXPECT_EQ(offsetAt(t, 0), 0);
    EXPECT_EQ(offsetAt(t, 1), 0);
    EXPECT_EQ(offsetAt(t, 2), -1);  // the empty group
    EXPECT_EQ(offsetAt(t, 3), 4);
    EXPECT_EQ(offsetAt(t, 4), -1);
    EXPECT_EQ(offsetAt(t, 70), -1);
}

TEST(TrackWalk, RowCountsAndEmptyGroups) {
    const std::vector<uint8_t> only = {0x00};
    for (uint32_t r : {0u, 1u, 63u}) EXPECT_EQ(offsetAt(only, r), -1);

    // 0xF0 is 15 empty rows, 0x10 one, then a three-row note.
    const std::vector<uint8_t> t = {0xF0, 0x10, 0x31, 0x01, 0x30, 0x00};
    EXPECT_EQ(offsetAt(t, 15), -1);
    EXPECT_EQ(offsetAt(t, 16), 2);
    EXPECT_EQ(offsetAt(t, 18), 2);
    EXPECT_EQ(offsetAt(t, 19), -1);

    // A group with row count 0 covers nothing: row 0 belongs to the group after it.
    const std::vector<uint8_t> zero = {0x02, 0x01, 0x30, 0x02, 0x05, 0x11, 0x01, 0x40, 0x00};
    EXPECT_EQ(offsetAt(zero, 0), 5);
}

TEST(TrackWalk, DamagedTrackIsBoundedByItsLength) {
    // No terminator, and a last group whose pairs run past the stored bytes.
    const std::vector<uint8_t> t = {0x11, 0x01, 0x30, 0x23, 0x01};
    EXPECT_EQ(offsetAt(t, 0), 0);
    EXPECT_EQ(offsetAt(t, 1), -1);
    EXPECT_EQ(cellAt(nullptr, 0, 0).bytes, nullptr);
    TrackCursor cursor(t.data(), t.size());
    EXPECT_TRUE(cursor.at(0));
    EXPECT_FALSE(cursor.at(1));
    EXPECT_FALSE(cursor.at(2));
}

TEST(TrackWalk, CursorMatchesWalkOnRandomTracks) {
    std::mt19937 rng(1234);
    for (int trial = 0; trial < 300; ++trial) {
        std::vector<uint8_t> t;
        int groups = rng() % 40;
        for (int g = 0; g < groups; ++g) {
            uint8_t rows = rng() % 16, n = rng() % 4;
            if (rows == 0 && n == 0) rows = 1;  // a zero byte would end the track
            t.push_back(static_cast<uint8_t>(rows << 4 | n));
            for (int k = 0; k < 2 * n; ++k) t.push_back(static_cast<uint8_t>(rng()));
        }
        if (rng() % 4) t.push_back(0);  // sometimes a damaged track without terminator
        if (!t.empty() && rng() % 5 == 0) t.pop_back();
        TrackCursor cursor(t.data(), t.size());
        for (uint32_t r = 0; r < 400; ++r)
            ASSERT_EQ(cursor.at(r).bytes, cellAt(t.data(), t.size(), r).bytes) << "trial " << trial << " row " << r;
    }
}

TEST(TrackEncoder, RunsOfRowsAndImplicitTail) {
    std::vector<TrackRow> rows(64);
    rows[0] = rows[1] = {{CMD_NOTE, 48}};
    rows[3] = {{CMD_NOTE, 50}, {CMD_INSTRUMENT, 0}};
    EXPECT_EQ(encodeTrack(rows),
              (std::vector<uint8_t>{0x21, 0x01, 0x30, 0x10, 0x12, 0x01, 0x32, 0x02, 0x00, 0x00}));
    EXPECT_EQ(encodeTrack(std::vector<TrackRow>(64)), std::vector<uint8_t>{0x00});

    // 20 identical rows split into groups of 15 and 5; 16 commands keep their first 15.
    std::vector<TrackRow> same(20, TrackRow{{15, 0x20}});
    EXPECT_EQ(encodeTrack(same), (std::vector<uint8_t>{0xF1, 15, 0x20, 0x51, 15, 0x20, 0x00}));
    std::vector<TrackRow> many(1, TrackRow(16, TrackCommand{3, 1}));
    EXPECT_EQ(encodeTrack(many).front(), 0x1F);
}

TEST(TrackEncoder, WalkGivesBackEveryRow) {
    std::mt19937 rng(99);
    for (int trial = 0; trial < 100; ++trial) {
        std::vector<TrackRow> rows(1 + rng() % 256);
        for (auto& row : rows) {
            if (rng() % 3 == 0) continue;
            int n = 1 + rng() % 3;
            for (int k = 0; k < n; ++k) row.push_back({static_cast<uint8_t>(1 + rng() % 51), static_cast<uint8_t>(rng() % 3)});
            if (rng() % 2 && &row != &rows.front()) row = *(&row - 1);  // make runs
        }
        std::vector<uint8_t> t = encodeTrack(rows);
        for (uint32_t r = 0; r < rows.size(); ++r) {
            TrackGroup g = cellAt(t.data(), t.size(), r);
            TrackRow back;
            if (g)
                for (unsigned k = 0; k < g.pairCount(); ++k) back.push_back({g.bytes[1 + 2 * k], g.bytes[2 + 2 * k]});
            ASSERT_EQ(back, rows[r]) << "trial " << trial << " row " << r;
        }
    }
}
