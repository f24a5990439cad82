#pragma once
// Shared checks of the module readers: a module read, written back by the writers and read again
// must give the same module (the fixpoint).
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "container/track.hpp"
#include "readers/module_reader.hpp"
#include "support/module_builder.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz::test {

using Bytes = std::vector<uint8_t>;

// The commands of one cell, decoded from the module's track for that pattern and channel.
inline std::vector<TrackCommand> cellCommands(const SongHeader& song, unsigned pattern, unsigned row, unsigned channel) {
    std::vector<TrackCommand> out;
    const uint16_t t = song.trackOf(pattern, channel);
    if (t >= song.tracks.size()) return out;
    const TrackGroup g = cellAt(song.tracks[t], row);
    if (!g) return out;
    for (unsigned k = 0; k < g.pairCount(); ++k) {
        const uint8_t c = g.bytes[1 + 2 * k];
        if (c == 0) break;
        out.push_back({c, g.bytes[2 + 2 * k]});
    }
    return out;
}

inline bool sameSample(const SampleRecord& a, const SampleRecord& b) {
    std::vector<uint8_t> sa(SAMPLE_STORED_SIZE), sb(SAMPLE_STORED_SIZE);
    storeSample(a, sa.data());
    storeSample(b, sb.data());
    return sa == sb && a.name == b.name && a.fileName == b.fileName && pcmOf(a, 0) == pcmOf(b, 0) && pcmOf(a, 1) == pcmOf(b, 1);
}

// The first difference between two modules read from a file and from its written copy, or "":
// every stored record field, names, message, orders, every cell, instruments, sample PCM and
// the extension chunks.
inline std::string fixpointDifference(const SongHeader& a, const SongHeader& b) {
    std::ostringstream why;
    std::vector<uint8_t> ha(SONG_HEADER_STORED_SIZE), hb(SONG_HEADER_STORED_SIZE);
    storeSongHeader(a, ha.data());
    storeSongHeader(b, hb.data());
    if (ha != hb || a.name != b.name || a.message != b.message) return "song header";
    if (a.orderCount != b.orderCount || !std::equal(a.orders.begin(), a.orders.end(), b.orders.begin(), b.orders.end()))
        return "orders";
    if (a.patternCount != b.patternCount) return "pattern count";
    for (unsigned p = 0; p < a.patternCount; ++p) {
        if (a.patternRows[p] != b.patternRows[p]) return "rows of pattern " + std::to_string(p);
        for (unsigned r = 0; r < a.patternRows[p]; ++r)
            for (unsigned c = 0; c < a.channels; ++c)
                if (cellCommands(a, p, r, c) != cellCommands(b, p, r, c)) {
                    why << "pattern " << p << " row " << r << " channel " << c;
                    return why.str();
                }
    }
    if (a.instruments != b.instruments) return "instruments";
    if (a.samples.size() != b.samples.size()) return "sample count";
    for (size_t i = 0; i < a.samples.size(); ++i)
        if (!sameSample(a.samples[i], b.samples[i])) return "sample " + std::to_string(i);
    for (int k = 0; k < MAX_CHUNK_SLOTS; ++k)
        if (a.fxSlots[k].present != b.fxSlots[k].present ||
            !std::equal(a.fxSlots[k].data.begin(), a.fxSlots[k].data.end(), b.fxSlots[k].data.begin(), b.fxSlots[k].data.end()))
            return "extension slot " + std::to_string(k);
    if (!std::equal(a.channelFx.begin(), a.channelFx.end(), b.channelFx.begin(), b.channelFx.end())) return "channel table";
    return "";
}

}  // namespace deqaz::test
