#pragma once
// Sample decode dispatch: turns one sample's stored data, read from the input stream at its
// current position, into 16-bit PCM (8-bit points held as value * 256).
#include "common/heap_array.hpp"
#include "container/input_stream.hpp"
#include "container/module.hpp"

namespace deqaz {

// Decodes sample `index` of `song` from `in` at its position, leaving the position just past the
// sample's data. Raw data: one channel (`length` values) per call. Coded data: `length` values,
// or 2 * `length` for stereo (planar for prediction coding, interleaved for lossy).
// False only when the buffer cannot be allocated; then nothing is read.
bool decodeSample(InputStream& in, const SongHeader& song, size_t index, HeapArray<int16_t>& out);

}  // namespace deqaz
