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

}  // namespace deqaz::test
