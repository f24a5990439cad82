// Track walks over arbitrary track bytes: the forward cursor must agree with cellAt row by row,
// and every group found is translated for each output format.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runTracks(data, size)) std::abort();
    return 0;
}
