// The body packer against the unpacker: exact round trips over many kinds of data, and the
// worked streams byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "container/pack.hpp"
#include "container/unpack.hpp"

namespace deqaz {
namespace {

using Bytes = std::vector<uint8_t>;

// Bytes an all-literal stream would take: the first byte, then 9 bits a byte.
size_t literalBound(size_t n) { return 1 + (9 * (n - 1) + 7) / 8; }

// Packs, unpacks into an exact-size buffer and checks the result; returns the packed size.
size_t expectRoundTrip(const Bytes& body) {
    const Bytes packed = packBody(body.data(), body.size());
    Bytes exact(packed);
    Bytes out(body.size(), 0xEE);
    const UnpackResult r = unpackBody(exact.data(), exact.size(), out.data(), static_cast<uint32_t>(out.size()));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.consumed, packed.size());
    EXPECT_TRUE(out == body) << "body of " << body.size() << " bytes differs after unpacking";
    // The parse is costed, so it never does worse than coding every byte as a literal.
    EXPECT_LE(packed.size(), literalBound(body.size()));
    return packed.size();
}

Bytes randomBytes(std::mt19937& rng, size_t n) {
    Bytes b(n);
    for (auto& x : b) x = static_cast<uint8_t>(rng());
    return b;
}

Bytes runs(std::mt19937& rng, size_t n) {
    Bytes b;
    while (b.size() < n) b.insert(b.end(), std::min<size_t>(1 + rng() % 300, n - b.size()), static_cast<uint8_t>(rng() % 4));
    return b;
}

// Blocks copied from anywhere earlier, some with a byte changed, between fresh random bytes.
Bytes repeatedBlocks(std::mt19937& rng, size_t n) {
    Bytes b;
    while (b.size() < n) {
        if (b.size() > 16 && rng() % 3) {
            const size_t len = std::min<size_t>(2 + rng() % 200, n - b.size());
            const size_t from = rng() % (b.size() - 1);
            for (size_t i = 0; i < len; ++i) b.push_back(b[from + i]);
            if (rng() % 2) b[b.size() - 1 - rng() % len] ^= 0x40;
        } else {
            b.push_back(static_cast<uint8_t>(rng()));
        }
    }
    return b;
}

// 5-byte cells (note, instrument, volume, effect, parameter): mostly empty, notes from a riff.
Bytes trackLike(std::mt19937& rng, size_t n) {
    static const uint8_t riff[] = {49, 49, 52, 56, 49, 61, 59, 56};
    Bytes b;
    for (size_t row = 0; b.size() < n; ++row) {
        if (row % 4 == 0 || rng() % 8 == 0) {
            b.insert(b.end(), {riff[(row / 4) % 8], static_cast<uint8_t>(1 + (row / 64) % 3), 64, 0, 0});
            if (rng() % 5 == 0) b[b.size() - 2] = 0x0A, b[b.size() - 1] = static_cast<uint8_t>(rng() % 16);
        } else {
            b.insert(b.end(), 5, 0);
        }
    }
    b.resize(n);
    return b;
}

TEST(PackBody, WorkedStreamsComeOutByteForByte) {
    const std::string a = "ABABABAB";
    EXPECT_EQ(packBody(reinterpret_cast<const uint8_t*>(a.data()), a.size()), (Bytes{0x41, 0x62, 0x42, 0x01}));
    // Needs the reused-distance form for the final "CA" to fit in 7 bytes.
    const std::string b = "ABCABCAxCA";
    EXPECT_EQ(packBody(reinterpret_cast<const uint8_t*>(b.data()), b.size()), (Bytes{0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}));
    EXPECT_EQ(packBody(reinterpret_cast<const uint8_t*>("Z"), 1), Bytes{'Z'});
    EXPECT_TRUE(packBody(nullptr, 0).empty());
}

TEST(PackBody, RoundTripsEveryKindOfData) {
    using Gen = Bytes (*)(std::mt19937&, size_t);
    const Gen gens[] = {randomBytes, runs, repeatedBlocks, trackLike};
    const size_t sizes[] = {1, 2, 3, 4, 7, 8, 9, 16, 17, 100, 255, 256, 257, 1000, 4095, 4096, 4097, 9000, 65537, 300000};
    std::mt19937 rng(20240611);
    for (size_t g = 0; g < std::size(gens); ++g) {
        for (size_t n : sizes) {
            SCOPED_TRACE(testing::Message() << "generator " << g << ", size " << n);
            expectRoundTrip(gens[g](rng, n));
        }
    }
    // Copies of every length around the point where a match is taken without weighing others.
    for (size_t len = 100; len < 160; ++len) {
        Bytes b = randomBytes(rng, 2000);
        for (int i = 0; i < 20; ++i) {
            const size_t from = b.size() - 1 - rng() % 2000;
            for (size_t k = 0; k < len; ++k) b.push_back(b[from + k]);
            b.push_back(static_cast<uint8_t>(rng()));
        }
        expectRoundTrip(b);
    }
}

}  // namespace
}  // namespace deqaz
