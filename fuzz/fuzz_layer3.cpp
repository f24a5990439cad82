// The MPEG Layer III sample decoder over arbitrary frames, with the output bytes to drop and the
// buffer size from the input.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    deqaz::initLossyDecoders();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runLayer3(data, size)) std::abort();
    return 0;
}
