#pragma once
// What the module readers' tests share: module comparison (a module read, written back by the
// writers and read again must give the same module), libxmp, the writers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "readers/module_reader.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz::test {

using Bytes = std::vector<uint8_t>;

// ModPlug's ADPCM packing worked by hand: 16 deltas, three bytes of nibbles (low nibble first:
// +64 +64 -128 +0 -128 -1, in 8-bit arithmetic) and the six points they decode to.
inline const Bytes ADPCM_EXAMPLE = {0, 1, 2, 4, 8, 16, 32, 64, 0xFF, 0xFE, 0xFC, 0xF8, 0xF0, 0xE0, 0xC0, 0x80, 0x77, 0x0F, 0x8F};
inline const std::vector<int16_t> ADPCM_POINTS = {64 * 256, -128 * 256, 0, 0, -128 * 256, 127 * 256};

}  // namespace deqaz::test
