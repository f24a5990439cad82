#include "formats/it/it_sample_decompress.hpp"

#include <algorithm>

#include "common/endian.hpp"

namespace deqaz {

namespace {

// Least-significant-bit-first reader over one block body.
class BlockBits {
public:
    BlockBits(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    // Reads `count` bits (at most 17); false when the block has too few left.
    bool read(unsigned count, uint32_t& value) {
        while (have_ < count) {
            if (pos_ >= size_) return false;
            buffer_ |= static_cast<uint32_t>(data_[pos_++]) << have_;
            have_ += 8;
        }
        value = buffer_ & ((1u << count) - 1);
        buffer_ >>= count;
        have_ -= count;
        return true;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    uint32_t buffer_ = 0;
    unsigned have_ = 0;
};

// The 8- and 16-bit variants differ only in their widths:
// - BITS: bits of a point; the widest delta takes BITS + 1 bits (its top bit flags a new width).
// - Widths 1 to 6 ("type A"): the value with only its top bit set announces a new width, given
//   in the next SELECTOR bits.
// - Widths 7 to BITS ("type B"): the 2 * HALF_RANGE values around the top of the positive range
//   announce a new width.
// A new width n (1-based) skips the current width: n >= width means n + 1.
template <unsigned BITS>
ItDecompressResult decompress(const uint8_t* in, size_t size, int16_t* out, size_t frames, bool it215) {
    constexpr unsigned TOP_WIDTH = BITS + 1;
    constexpr unsigned SELECTOR = BITS == 8 ? 3 : 4;
    constexpr uint32_t HALF_RANGE = BITS == 8 ? 4 : 8;
    constexpr size_t BLOCK_POINTS = BITS == 8 ? 0x8000 : 0x4000;
    constexpr uint32_t POINT_MASK = (1u << BITS) - 1;

    auto point = [](uint32_t value) {
        value &= POINT_MASK;
        if constexpr (BITS == 8)
            return static_cast<int16_t>(static_cast<int8_t>(value) * 256);
        else
            return static_cast<int16_t>(value);
    };
    auto signExtend = [](uint32_t value, unsigned width) {
        const uint32_t top = 1u << (width - 1);
        return (value & top) ? value - (top << 1) : value;  // modulo 2^32, masked on store
    };

    ItDecompressResult result;
    size_t pos = 0;
    while (result.frames < frames && size - pos >= 2) {
        const size_t declared = rd16le(in + pos);
        pos += 2;
        const size_t available = std::min(declared, size - pos);
        if (available < declared) result.damaged = true;
        BlockBits bits(in + pos, available);
        pos += available;

        const size_t count = std::min(BLOCK_POINTS, frames - result.frames);
        int16_t* block = out + result.frames;
        unsigned width = TOP_WIDTH;
        uint32_t sum1 = 0, sum2 = 0;  // first and second running sums of the deltas
        size_t k = 0;
        bool broken = false;
        while (k < count) {
            if (width == 0 || width > TOP_WIDTH) {
                broken = true;
                break;
            }
            uint32_t value;
            if (!bits.read(width, value)) {
                broken = true;
                break;
            }
            if (width < 7) {
                if (value == 1u << (width - 1)) {
                    uint32_t selected;
                    if (!bits.read(SELECTOR, selected)) {
                        broken = true;
                        break;
                    }
                    const unsigned next = selected + 1;
                    width = next < width ? next : next + 1;
                    continue;
                }
                value = signExtend(value, width);
            } else if (width < TOP_WIDTH) {
                const uint32_t border = (POINT_MASK >> (TOP_WIDTH - width)) - HALF_RANGE;
                if (value > border && value <= border + 2 * HALF_RANGE) {
                    const unsigned next = value - border;
                    width = next < width ? next : next + 1;
                    continue;
                }
                value = signExtend(value, width);
            } else if (value & (1u << BITS)) {
                width = (value + 1) & 0xFF;
                continue;
            }
            sum1 += value;
            sum2 += sum1;
            block[k++] = point(it215 ? sum2 : sum1);
        }
        // A block that ends early or names an impossible width keeps what it decoded; the rest
        // of the block reads as zero deltas, so the sums carry on unchanged.
        if (broken) result.damaged = true;
        for (; k < count; ++k) {
            sum2 += sum1;
            block[k] = point(it215 ? sum2 : sum1);
        }
        result.frames += count;
    }
    result.consumed = pos;
    return result;
}

}  // namespace

ItDecompressResult decompressIt8(const uint8_t* in, size_t size, int16_t* out, size_t frames, bool it215) {
    return decompress<8>(in, size, out, frames, it215);
}

ItDecompressResult decompressIt16(const uint8_t* in, size_t size, int16_t* out, size_t frames, bool it215) {
    return decompress<16>(in, size, out, frames, it215);
}

}  // namespace deqaz
