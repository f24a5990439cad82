#pragma once
// Track encoding, the inverse of the track walk: rows of command pairs become run-length groups.
#include <cstdint>
#include <span>
#include <vector>

#include "container/commands.hpp"

namespace deqaz {

struct TrackCommand {
    uint8_t command = 0;
    uint8_t parameter = 0;
    bool operator==(const TrackCommand&) const = default;
};

// One row: at most 15 commands (a group's pair count is 4 bits); none means an empty row.
using TrackRow = std::vector<TrackCommand>;

// Encodes rows into track bytes: consecutive identical rows share a group (up to 15 rows), empty
// rows at the end are left implicit, and the zero terminator closes the track. Rows with more
// than 15 commands keep their first 15.
std::vector<uint8_t> encodeTrack(std::span<const TrackRow> rows);

}  // namespace deqaz
