#pragma once
// The QAZ container header and the body unpacker (a bit-coded LZ77 variant).
#include <cstddef>
#include <cstdint>

namespace deqaz {

struct ContainerHeader {
    uint8_t version = 0;        // 0 to 5
    uint32_t unpackedSize = 0;  // body size after unpacking
    uint32_t packedSize = 0;    // version 5 only
    uint32_t headerLength = 0;  // 8 for versions 0-4, 12 for version 5
};

// The first four bytes are "QAZ" and a version byte of 0 to 5.
bool hasQazMagic(const uint8_t* data, size_t size);

// Tests the magic "QAZ" and a version of 5 or less and reads the rest of the header. False when
// the magic or version is wrong or the bytes are too few to hold the header.
bool parseContainerHeader(const uint8_t* data, size_t size, ContainerHeader& out);

// Source state of the unpacker: control bits are read most significant first from bytes taken
// from the packed stream; `bits` holds the unused bits of the current control byte followed by a
// marker bit. `end` bounds every read: asking for a byte past it sets `overrun` and yields 0.
struct BitReader {
    const uint8_t* next = nullptr;
    const uint8_t* end = nullptr;
    uint8_t bits = 0;
    bool overrun = false;

    uint8_t takeByte();
    unsigned readBit();
};

// Elias-gamma-like code: starts at 1, appends one bit per step while the following bit is 1.
// Returns at least 2. Bounded: a run that would overflow 32 bits stops and marks the reader
// overrun, since no sound stream codes a value that large.
uint32_t readGamma(BitReader& reader);

struct UnpackResult {
    uint32_t consumed = 0;  // packed bytes taken, counted from the first packed byte
    bool ok = true;         // false: the packed data ran out, or a match reached outside the body
};

// Unpacks into `body` (`bodySize` bytes) from `packedAvail` bytes of packed data. Decoding ends
// when the body is full or a match would run past its end (the rest is left as it was, and ok
// stays true: the caller compares `consumed` with the stored packed size where there is one).
// ok is false when the packed data runs out, a gamma code overflows, or a match would copy from
// before the body start or reuse a distance before any was given.
// Never reads or writes outside either buffer. Precondition: `bodySize` is at least 1 (an empty
// body is for the caller to handle; given 0, nothing is read or written and consumed is 0).
UnpackResult unpackBody(const uint8_t* packed, size_t packedAvail, uint8_t* body, uint32_t bodySize);

}  // namespace deqaz
