#include "writers/writers.hpp"

namespace deqaz {

// Placeholder: the XM writer comes later.
void writeXm(WriteContext&) {}

}  // namespace deqaz
