// The body unpacker over arbitrary packed data and a body size from the input; then the packer
// round trip on the input taken as a body.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runUnpack(data, size)) std::abort();
    return 0;
}
