// A libFuzzer target over one code path of fuzz_paths.hpp, the one DEQAZ_FUZZ_PATH names at build
// time (fuzz/CMakeLists.txt builds fuzz_<path> for each). A property that does not hold aborts,
// so libFuzzer keeps the input.
#include <cstdlib>

#include "fuzz_paths.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    deqaz::initLossyDecoders();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!deqaz::fuzz::DEQAZ_FUZZ_PATH(data, size)) std::abort();
    return 0;
}
