// The four prediction-coded sample decoders over an arbitrary bit stream, each result checked
// against its encoder.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runPredict(data, size)) std::abort();
    return 0;
}
