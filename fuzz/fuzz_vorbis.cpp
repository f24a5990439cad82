// The Ogg Vorbis sample decoder over arbitrary stream bytes, optionally split into borrowed
// header pages and the sample's own bytes.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    deqaz::initLossyDecoders();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runVorbis(data, size)) std::abort();
    return 0;
}
