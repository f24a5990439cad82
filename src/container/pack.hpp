#pragma once
// The body packer: the inverse of unpackBody. Produces a bit stream that unpackBody turns back
// into exactly the input, using matches (with the reused-distance form) for real compression.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace deqaz {

// Packs `size` bytes (at least 1). The result, given to unpackBody with a body size of `size`,
// unpacks to the same bytes and reports exactly result.size() bytes consumed.
std::vector<uint8_t> packBody(const uint8_t* body, size_t size);

}  // namespace deqaz
