#pragma once
// Walking a track: run-length groups (high nibble rows covered, low nibble command pairs) ending
// with a zero byte. Every walk is bounded by the track's stored length: a group that does not fit
// in it ends the track, so a damaged track reads as empty rows from there on.
#include <cstddef>
#include <cstdint>

#include "container/module.hpp"

namespace deqaz {

// A group of a track: the group byte followed by its 2N pair bytes, all inside the track.
struct TrackGroup {
    const uint8_t* bytes = nullptr;  // group byte first; null: no group (the row is empty)
    explicit operator bool() const { return bytes != nullptr; }
    unsigned rowCount() const { return bytes[0] >> 4; }
    unsigned pairCount() const { return bytes[0] & 0x0F; }
};

// The group covering `row`, or none when the track ends first or the covering group carries no
// commands. Walks from the track's first byte.
TrackGroup cellAt(const uint8_t* track, size_t trackSize, uint32_t row);
inline TrackGroup cellAt(const Track& track, uint32_t row) { return cellAt(track.data(), track.size(), row); }

// A forward cursor over one track, giving for rows 0, 1, 2, ... exactly what cellAt gives, in
// constant amortised time per row. Rows must be asked in increasing order.
class TrackCursor {
public:
    TrackCursor() = default;
    TrackCursor(const uint8_t* track, size_t trackSize) : track_(track), size_(trackSize) {}
    explicit TrackCursor(const Track& track) : TrackCursor(track.data(), track.size()) {}

    TrackGroup at(uint32_t row);

private:
    const uint8_t* track_ = nullptr;
    size_t size_ = 0;
    size_t pos_ = 0;        // offset of the current group
    uint64_t groupEnd_ = 0; // first row after the current group
    bool started_ = false;
    bool ended_ = false;
};

// Visits every group of a track in stored order, row count 0 included (for scans that look at
// every command, such as the IT macro scan). Stops at the terminator or the stored length.
template <class F>
void forEachGroup(const Track& track, F&& visit) {
    size_t pos = 0;
    const size_t size = track.size();
    while (pos < size && track[pos] != 0) {
        size_t len = 1 + 2 * static_cast<size_t>(track[pos] & 0x0F);
        if (len > size - pos) break;
        if (!visit(TrackGroup{track.data() + pos})) return;
        pos += len;
    }
}

}  // namespace deqaz
