#pragma once
// In-memory modules for tests that need a QAZ file: built field by field, then written with the
// project's QAZ writer.
#include <cstdint>
#include <vector>

#include "container/module.hpp"

namespace deqaz::testing {

// Fills a sample's PCM with a deterministic signal (8-bit values as point * 256).
void fillPcm(SampleRecord& smp, uint32_t seed);

// A module using every record kind: name and message, orders, three patterns over shared tracks,
// two instruments with envelopes, samples of every lossless coding (raw 8/16-bit, delta,
// second-order, stereo raw and coded), a copy, loops, and extra chunks with channelFx.
SongHeader makeRichModule(uint32_t originFlags = SH_ORIGIN_IT | SH_IT_INSTRUMENTS | SH_LINEAR_SLIDES);

// The smallest useful module: one pattern of 64 empty rows over the empty track.
SongHeader makeMinimalModule(uint32_t originFlags);

// Compares everything loading restores (PCM included); reports differences as test failures.
void expectSameModule(const SongHeader& expected, const SongHeader& actual);

}  // namespace deqaz::testing
