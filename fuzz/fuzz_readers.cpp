// Module files for the encoder: any bytes through format detection and the readers, then the
// writers, and the written file read again.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runReaders(data, size)) std::abort();
    return 0;
}
