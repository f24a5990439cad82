#include "writers/writers.hpp"

namespace deqaz {

// Placeholder: the MOD writer comes later.
void writeMod(WriteContext&) {}

}  // namespace deqaz
