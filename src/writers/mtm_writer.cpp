#include "writers/writers.hpp"

namespace deqaz {

// Placeholder: the MTM writer comes later.
void writeMtm(WriteContext&) {}

}  // namespace deqaz
