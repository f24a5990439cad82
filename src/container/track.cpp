#include "container/track.hpp"

namespace deqaz {

namespace {

// Length of the group at `pos`, or 0 when the track ends there (terminator, or a group that does
// not fit in the stored bytes).
inline size_t groupLength(const uint8_t* track, size_t size, size_t pos) {
    if (pos >= size || track[pos] == 0) return 0;
    size_t len = 1 + 2 * static_cast<size_t>(track[pos] & 0x0F);
    return len <= size - pos ? len : 0;
}

}  // namespace

TrackGroup cellAt(const uint8_t* track, size_t trackSize, uint32_t row) {
    int64_t n = row;
    size_t pos = 0;
    for (;;) {
        size_t len = groupLength(track, trackSize, pos);
        if (len == 0) return {};
        n -= track[pos] >> 4;
        if (n < 0) return (track[pos] & 0x0F) ? TrackGroup{track + pos} : TrackGroup{};
        pos += len;
    }
}

TrackGroup TrackCursor::at(uint32_t row) {
    if (ended_) return {};
    if (!started_) {
        started_ = true;
        pos_ = 0;
        if (groupLength(track_, size_, 0) == 0) {
            ended_ = true;
            return {};
        }
        groupEnd_ = track_[0] >> 4;
    }
    // Step over groups that end at or before the row (row count 0 groups cover nothing).
    while (groupEnd_ <= row) {
        pos_ += groupLength(track_, size_, pos_);
        size_t len = groupLength(track_, size_, pos_);
        if (len == 0) {
            ended_ = true;
            return {};
        }
        groupEnd_ += track_[pos_] >> 4;
    }
    return (track_[pos_] & 0x0F) ? TrackGroup{track_ + pos_} : TrackGroup{};
}

}  // namespace deqaz
