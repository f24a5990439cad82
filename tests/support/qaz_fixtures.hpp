#pragma once
// Modules for tests that go through a QAZ file: one using every record kind, and the check that a
// loaded module holds everything the written one did.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "container/module.hpp"

namespace deqaz::test {

// Name and message, orders, three patterns over shared tracks, two instruments with envelopes,
// samples of every lossless coding (raw 8/16-bit, delta, second-order, stereo raw and coded), a
// copy, an empty sample, loops, and extra chunks with channelFx.
SongHeader makeRichModule(uint32_t originFlags = SH_ORIGIN_IT | SH_IT_INSTRUMENTS | SH_LINEAR_SLIDES);

// Loads a QAZ file held in memory as the program does (its messages captured, not shown).
struct Loaded {
    std::unique_ptr<SongHeader> song;
    std::string error;  // the failure message when `song` is null
};
Loaded loadQaz(const uint8_t* data, size_t size);
inline Loaded loadQaz(const std::vector<uint8_t>& file) { return loadQaz(file.data(), file.size()); }

// Compares everything loading restores (PCM included); reports differences as test failures.
void expectSameModule(const SongHeader& expected, const SongHeader& actual);

}  // namespace deqaz::test
