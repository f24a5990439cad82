#include "writers/output_buffer.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/endian.hpp"

namespace deqaz {

namespace {
// Small writes grow the buffer by this much, so byte-by-byte packers reallocate rarely.
constexpr uint64_t GROWTH_STEP = 65536;
// Offsets in every output format are 32-bit.
constexpr uint64_t MAX_OUTPUT = 0xFFFFFFFFull;
}  // namespace

OutputBuffer::~OutputBuffer() { std::free(data_); }

void OutputBuffer::reset() {
    std::free(data_);
    data_ = nullptr;
    size_ = 0;
    capacity_ = 0;
    failed_ = false;
}

uint8_t* OutputBuffer::release() {
    uint8_t* data = data_;
    data_ = nullptr;
    reset();
    return data;
}

bool OutputBuffer::reserve(uint64_t newCapacity) {
    void* grown = std::realloc(data_, static_cast<size_t>(newCapacity));
    if (!grown) {
        // The old block stays valid and owned; everything from here on is dropped.
        failed_ = true;
        return false;
    }
    data_ = static_cast<uint8_t*>(grown);
    capacity_ = static_cast<uint32_t>(newCapacity);
    return true;
}

// Makes room for `count` more bytes, growing to `newCapacity` when the room is not there. Output
// past the limit fails the buffer; a growth step that would overshoot the limit is cut to it.
bool OutputBuffer::ensure(size_t count, uint64_t newCapacity) {
    if (failed_) return false;
    const uint64_t limit = std::min(limit_, MAX_OUTPUT);
    const uint64_t needed = static_cast<uint64_t>(size_) + count;
    if (needed > limit) {
        failed_ = true;
        return false;
    }
    if (needed <= capacity_) return true;
    return reserve(std::min(newCapacity, limit));
}

void OutputBuffer::appendOutput(const void* bytes, size_t count) {
    if (count == 0) return;
    const uint64_t grown = static_cast<uint64_t>(size_) + (count > 65535 ? count : GROWTH_STEP);
    if (!ensure(count, grown)) return;
    std::memcpy(data_ + size_, bytes, count);
    size_ += static_cast<uint32_t>(count);
}

void OutputBuffer::put8(uint8_t v) {
    if (!ensure(1, size_ + GROWTH_STEP)) return;
    data_[size_++] = v;
}

void OutputBuffer::put16(uint16_t v) {
    if (!ensure(2, size_ + GROWTH_STEP)) return;
    wr16le(data_ + size_, v);
    size_ += 2;
}

void OutputBuffer::put32(uint32_t v) {
    if (!ensure(4, size_ + GROWTH_STEP)) return;
    wr32le(data_ + size_, v);
    size_ += 4;
}

void OutputBuffer::put16be(uint16_t v) {
    if (!ensure(2, size_ + GROWTH_STEP)) return;
    wr16be(data_ + size_, v);
    size_ += 2;
}

void OutputBuffer::skip(size_t count) {
    if (count == 0) return;
    const uint64_t grown = static_cast<uint64_t>(size_) + (count > 65535 ? count : GROWTH_STEP);
    if (!ensure(count, grown)) return;
    // realloc does not clear: the gap must not carry stale bytes into the file.
    std::memset(data_ + size_, 0, count);
    size_ += static_cast<uint32_t>(count);
}

// Patches address output already written; an offset outside it is a writer bug and is ignored
// rather than allowed to write past the data.
void OutputBuffer::patch8(uint32_t offset, uint8_t v) {
    if (failed_ || offset >= size_) return;
    data_[offset] = v;
}

void OutputBuffer::patch16(uint32_t offset, uint16_t v) {
    if (failed_ || size_ < 2 || offset > size_ - 2) return;
    wr16le(data_ + offset, v);
}

void OutputBuffer::patch32(uint32_t offset, uint32_t v) {
    if (failed_ || size_ < 4 || offset > size_ - 4) return;
    wr32le(data_ + offset, v);
}

void OutputBuffer::truncate(uint32_t size) {
    if (failed_ || size > size_) return;
    size_ = size;
}

void OutputBuffer::writeSamplePcm(const SampleRecord& sample, unsigned mode, unsigned channels) {
    const bool wide = (sample.flags & SF_16BIT) != 0;
    const bool toUnsigned = (mode & PCM_UNSIGNED) != 0;
    const bool delta = (mode & PCM_DELTA) != 0;
    const uint32_t length = sample.length;
    if (length == 0) return;

    for (unsigned ch = 0; ch < channels && ch < 2; ++ch) {
        const HeapArray<int16_t>& buffer = sample.pcm[ch];
        if (!buffer) break;  // channel 2 only for stereo samples
        const uint64_t bytes = wide ? 2ull * length : length;
        // Sample data is the bulk of the file: reserve exactly, no slack.
        if (!ensure(static_cast<size_t>(bytes), size_ + bytes)) return;

        // A buffer shorter than the sample's length (never made by the loader) is read as
        // silence past its end, so the data still matches the length in the headers.
        const size_t have = std::min<size_t>(length, buffer.size());
        uint8_t* dst = data_ + size_;
        uint16_t previous = 0;
        for (uint32_t i = 0; i < length; ++i) {
            uint16_t value = i < have ? static_cast<uint16_t>(buffer[i]) : 0;
            if (toUnsigned) value = static_cast<uint16_t>(value + 0x8000);
            if (wide) {
                const uint16_t word = delta ? static_cast<uint16_t>(value - previous) : value;
                wr16le(dst, word);
                dst += 2;
                previous = value;
            } else {
                // 8-bit points live in the high byte.
                const uint8_t byte = static_cast<uint8_t>(value >> 8);
                *dst++ = delta ? static_cast<uint8_t>(byte - previous) : byte;
                previous = byte;
            }
        }
        size_ += static_cast<uint32_t>(bytes);
    }
}

}  // namespace deqaz
