// The whole in-memory run over any byte sequence: load the input as a QAZ file, then write the
// module in its original format.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    deqaz::initLossyDecoders();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::runConvert(data, size)) std::abort();
    return 0;
}
