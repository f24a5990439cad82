// Adaptive-width prediction coder for lossless sample data.
//
// Every point is coded as a difference `d` from a prediction. `d` is folded to an unsigned code
// value `v` (d >= 0 -> 2d + 1, d < 0 -> -2d - 2) and `v` is written as one or more prefix groups of
// `g` data bits, each followed by a continuation bit (1 = another group follows), and then `width`
// plain low bits. After every value the width moves halfway towards floor(log2 v) (at least 1), so
// it follows the recent size of the differences. The bit stream is most significant bit first.
//
// The decoders below and the encoders further down share one template each, parameterised by the
// sample width and the predictor, so encoder and decoder state can never drift apart.
#include "samples/predict.hpp"

#include <algorithm>
#include <bit>

namespace deqaz {

namespace {

// A well-formed stream keeps every code value below 2^30. A damaged one can hold a run of
// continuation bits as long as the data itself; rather than let `v` overflow, the value is
// clamped at kMaxCode while the bits are still consumed, so an overlong code decodes as exactly
// kMaxCode. Clamping keeps `d` within +-2^29 (no overflow in the predictor arithmetic) and
// floor(log2 v) at most 29, so `width` stays at most 29 and the plain bits of any code fit the
// bit reader's 64-bit window.
constexpr uint32_t kMaxCode = (1u << 30) - 1;

// Reads bits most significant first. A byte is fetched only when a bit is needed and none is
// left, so nothing beyond the byte holding the last bit used is ever touched; past `end` every bit
// reads as 0, which ends any run of continuation bits.
class BitReader {
public:
    BitReader(const uint8_t* data, size_t size) : pos_(data), end_(data + size) {}

    // n is 1..32.
    uint32_t read(unsigned n) {
        while (avail_ < n) {
            const uint32_t byte = pos_ < end_ ? *pos_++ : 0u;
            window_ = (window_ << 8) | byte;  // bits above the window fall off harmlessly
            avail_ += 8;
        }
        avail_ -= n;
        return static_cast<uint32_t>(window_ >> avail_) &
               static_cast<uint32_t>((uint64_t{1} << n) - 1);
    }

private:
    const uint8_t* pos_;
    const uint8_t* end_;
    uint64_t window_ = 0;
    unsigned avail_ = 0;
};

// floor(log2 v) with a floor of 1 for v < 4: the step the width moves towards.
inline unsigned widthStep(uint32_t v) {
    return v < 4 ? 1u : static_cast<unsigned>(std::bit_width(v)) - 1u;
}

// Prefix groups are 2 bits wide for 16-bit samples while the width is at most 4, else 1 bit.
template <int Bits>
inline unsigned groupSize(unsigned width) {
    return (Bits == 16 && width <= 4) ? 2u : 1u;
}

template <int Bits>
constexpr unsigned kStartWidth = Bits == 16 ? 8u : 4u;

// Wraps to the sample width and reads the result as signed.
template <int Bits>
inline int32_t wrapSample(int32_t x) {
    if constexpr (Bits == 16)
        return static_cast<int16_t>(static_cast<uint16_t>(x));
    else
        return static_cast<int8_t>(static_cast<uint8_t>(x));
}

template <int Bits>
inline int32_t saturateSample(int32_t x) {
    constexpr int32_t hi = Bits == 16 ? 32767 : 127;
    return std::clamp(x, -hi - 1, hi);
}

template <int Bits>
inline int16_t toPcm(int32_t point) {
    return static_cast<int16_t>(Bits == 16 ? point : point * 256);
}

template <int Bits>
inline int32_t fromPcm(int16_t value) {
    if constexpr (Bits == 16)
        return value;
    else
        return static_cast<int8_t>(static_cast<uint16_t>(value) >> 8);  // high byte; low ignored
}

inline int32_t codeToDiff(uint32_t v) {
    return (v & 1u) ? static_cast<int32_t>((v - 1) / 2) : -static_cast<int32_t>(v / 2) - 1;
}

inline uint32_t diffToCode(int32_t d) {
    return d >= 0 ? 2u * static_cast<uint32_t>(d) + 1u : 2u * static_cast<uint32_t>(-(d + 1));
}

// The predictor state shared by decoder and encoder. `next` is the value the next point is
// predicted to be; `advance` takes the difference applied and the point that resulted.
template <int Bits, bool Predict>
struct Predictor {
    int32_t pred = 0;  // delta: the running sum; second order: the prediction
    int32_t prev = 0;  // second order only: the point before the last one

    int32_t next() const { return pred; }

    void advance(int32_t d, int32_t point) {
        if constexpr (Predict) {
            // Straight-line continuation of the last two points plus half the last difference
            // (arithmetic shift = floor). |d| <= 2^29, so this cannot overflow 32 bits.
            pred = saturateSample<Bits>((d >> 1) + 2 * point - prev);
            prev = point;
        } else {
            (void)d;
            pred = point;  // the running sum, already wrapped
        }
    }
};

template <int Bits, bool Predict>
void unpack(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count) {
    BitReader bits(stored, storedSize);
    Predictor<Bits, Predict> state;
    unsigned width = kStartWidth<Bits>;
    for (size_t i = 0; i < count; ++i) {
        const unsigned g = groupSize<Bits>(width);
        uint64_t v = 0;
        uint32_t chunk;
        do {
            chunk = bits.read(g + 1);  // g data bits, then the continuation bit
            v = std::min<uint64_t>((v << g) | (chunk >> 1), kMaxCode);
        } while (chunk & 1u);
        v = std::min<uint64_t>((v << width) | bits.read(width), kMaxCode);

        const uint32_t code = static_cast<uint32_t>(v);
        width = std::max(1u, (width + widthStep(code)) / 2);
        const int32_t d = codeToDiff(code);
        const int32_t point = wrapSample<Bits>(state.next() + d);
        out[i] = toPcm<Bits>(point);
        state.advance(d, point);
    }
}

// Collects bits most significant first; the last byte is padded with zero bits.
class BitWriter {
public:
    explicit BitWriter(std::vector<uint8_t>& out) : out_(out) {}

    // n is 0..32; the value's bits above n must be clear.
    void write(uint32_t value, unsigned n) {
        window_ = (window_ << n) | value;
        pending_ += n;
        while (pending_ >= 8) {
            pending_ -= 8;
            out_.push_back(static_cast<uint8_t>(window_ >> pending_));
        }
    }

    void flush() {
        if (pending_) out_.push_back(static_cast<uint8_t>(window_ << (8 - pending_)));
        pending_ = 0;
    }

private:
    std::vector<uint8_t>& out_;
    uint64_t window_ = 0;
    unsigned pending_ = 0;
};

template <int Bits, bool Predict>
std::vector<uint8_t> pack(const int16_t* in, size_t count) {
    std::vector<uint8_t> out;
    out.reserve(count * Bits / 16 + 16);  // a guess at half the raw size; grows if needed
    BitWriter bits(out);
    Predictor<Bits, Predict> state;
    unsigned width = kStartWidth<Bits>;
    for (size_t i = 0; i < count; ++i) {
        const int32_t point = fromPcm<Bits>(in[i]);
        // The decoder's sum wraps, so any d congruent to the gap reproduces the point; the one of
        // least magnitude (the gap read as a signed sample) gives the shortest code.
        const int32_t d = wrapSample<Bits>(point - state.next());
        const uint32_t code = diffToCode(d);

        // Everything above the low `width` bits goes into as few g-bit groups as hold it (at
        // least one), most significant group first.
        const unsigned g = groupSize<Bits>(width);
        const uint32_t high = code >> width;  // width <= 16 here, as codes stay below 2^17
        unsigned groups = 1;
        while (groups * g < 32 && (high >> (groups * g)) != 0) ++groups;
        for (unsigned k = groups; k-- > 0;) {
            const uint32_t data = (high >> (k * g)) & ((1u << g) - 1);
            bits.write((data << 1) | (k ? 1u : 0u), g + 1);
        }
        bits.write(code & ((1u << width) - 1), width);

        width = std::max(1u, (width + widthStep(code)) / 2);
        state.advance(d, point);
    }
    bits.flush();
    return out;
}

}  // namespace

void unpackDelta8(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count) {
    unpack<8, false>(stored, storedSize, out, count);
}
void unpackDelta16(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count) {
    unpack<16, false>(stored, storedSize, out, count);
}
void unpackPredict8(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count) {
    unpack<8, true>(stored, storedSize, out, count);
}
void unpackPredict16(const uint8_t* stored, size_t storedSize, int16_t* out, size_t count) {
    unpack<16, true>(stored, storedSize, out, count);
}

std::vector<uint8_t> packDelta8(const int16_t* in, size_t count) {
    return pack<8, false>(in, count);
}
std::vector<uint8_t> packDelta16(const int16_t* in, size_t count) {
    return pack<16, false>(in, count);
}
std::vector<uint8_t> packPredict8(const int16_t* in, size_t count) {
    return pack<8, true>(in, count);
}
std::vector<uint8_t> packPredict16(const int16_t* in, size_t count) {
    return pack<16, true>(in, count);
}

}  // namespace deqaz
