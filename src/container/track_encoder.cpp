#include "container/track_encoder.hpp"

#include <algorithm>

namespace deqaz {

std::vector<uint8_t> encodeTrack(std::span<const TrackRow> rows) {
    // Rows after the last non-empty one need no group: the walk reads them as empty.
    size_t used = rows.size();
    while (used > 0 && rows[used - 1].empty()) --used;

    std::vector<uint8_t> out;
    size_t r = 0;
    while (r < used) {
        const TrackRow& row = rows[r];
        size_t run = 1;
        while (run < 15 && r + run < used && rows[r + run] == row) ++run;
        size_t n = std::min<size_t>(row.size(), 15);
        out.push_back(static_cast<uint8_t>((run << 4) | n));
        for (size_t k = 0; k < n; ++k) {
            out.push_back(row[k].command);
            out.push_back(row[k].parameter);
        }
        r += run;
    }
    out.push_back(0);
    return out;
}

}  // namespace deqaz
