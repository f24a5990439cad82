#pragma once
// The growing output buffer every writer appends to. Growth follows fixed rules (64 KiB steps for
// small writes, exact reservation for sample data). A buffer that cannot grow, or output past the
// 32-bit offsets of the formats, marks the buffer failed: later writes are dropped and the driver
// stops with "Insufficient memory".
#include <cstddef>
#include <cstdint>
#include <memory>

#include "container/module.hpp"

namespace deqaz {

inline constexpr unsigned PCM_UNSIGNED = 2;
inline constexpr unsigned PCM_DELTA = 4;

class OutputBuffer {
public:
    OutputBuffer() = default;
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;
    ~OutputBuffer();

    void reset();  // release and start empty
    // Hands the block over to the caller (free() releases it) and starts empty; null when empty.
    uint8_t* release();

    // Rule 1: appends `count` bytes (grows to size+count for large writes, else size+64 KiB).
    void appendOutput(const void* bytes, size_t count);
    // Rule 2 stores: grow to size+64 KiB when needed.
    void put8(uint8_t v);
    void put16(uint16_t v);
    void put32(uint32_t v);
    void put16be(uint16_t v);
    // Advances the size by `count` zero bytes (room reserved for a table filled in later, or
    // alignment padding).
    void skip(size_t count);
    // Patches earlier output at an offset (must lie within the output written so far).
    void patch8(uint32_t offset, uint8_t v);
    void patch16(uint32_t offset, uint16_t v);
    void patch32(uint32_t offset, uint32_t v);
    // Shrinks the output back to `size` bytes (size at most outputSize).
    void truncate(uint32_t size);

    // Rule 3: appends the PCM of one sample, channel 1 then channel 2 (at most `channels` of
    // them), in the given mode (PCM_UNSIGNED, PCM_DELTA).
    void writeSamplePcm(const SampleRecord& sample, unsigned mode, unsigned channels = 2);

    uint8_t* outputData() { return data_; }
    const uint8_t* outputData() const { return data_; }
    uint32_t outputSize() const { return size_; }
    uint32_t outputCapacity() const { return capacity_; }
    bool failed() const { return failed_; }

    // Upper bound on the output size, 4 GiB - 1 by default; lowered by tests.
    void setLimit(uint64_t limit) { limit_ = limit; }

private:
    bool reserve(uint64_t newCapacity);
    bool ensure(size_t count, uint64_t newCapacity);

    uint8_t* data_ = nullptr;
    uint32_t size_ = 0;
    uint32_t capacity_ = 0;
    bool failed_ = false;
    uint64_t limit_ = 0xFFFFFFFFull;
};

}  // namespace deqaz
