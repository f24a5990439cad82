// Tracks: the encoder against the walk that finds a row's group, and the cursor that walks
// forward through them against the walk.
#include <gtest/gtest.h>

#include <random>

#include "container/track.hpp"
#include "container/track_encoder.hpp"

namespace deqaz {
namespace {

using Bytes = std::vector<uint8_t>;

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
