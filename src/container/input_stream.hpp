#pragma once
// The input stream that loading and sample decoding read: a byte buffer, its size and a read
// position. Every reader is bounded: bytes at or past the end read as zero and the position
// never moves past the end (readBytes excepted, whose failure leaves it at the end).
#include <cstdint>
#include <string>

#include "common/heap_array.hpp"

namespace deqaz {

struct InputStream {
    const uint8_t* inputData = nullptr;
    uint32_t inputSize = 0;
    uint32_t inputPos = 0;

    uint32_t remaining() const { return inputPos < inputSize ? inputSize - inputPos : 0; }
    bool atEnd() const { return inputPos >= inputSize; }

    // Copies `count` bytes and advances. When fewer remain, clears all `count` destination
    // bytes, copies what remains and leaves the position at the end.
    void readBytes(void* dest, uint32_t count);
    // Allocates and fills `count` bytes (missing bytes read as zero); false when allocation fails.
    bool readBlob(HeapArray<uint8_t>& out, uint32_t count);
    // Reads a zero-terminated string; an empty one comes back as "". Bytes past the end count
    // as zero, so a string running into the end stops there.
    std::string readString();
    uint8_t readU8();
    // Value at the position, then the position moves on by the width, not past the end.
    uint16_t readU16();
    uint32_t readU32();
    // Moves the position on by `count`, not past the end.
    void skip(uint32_t count);
};

}  // namespace deqaz
