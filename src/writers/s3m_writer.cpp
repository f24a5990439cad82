#include "writers/writers.hpp"

namespace deqaz {

// Placeholder: the S3M writer comes later.
void writeS3m(WriteContext&) {}

}  // namespace deqaz
