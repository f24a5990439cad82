// The body packer against the unpacker: exact round trips over many kinds of data, the worked
// streams byte for byte, and the compression the cheap code forms and the costed parse give.
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

TEST(PackBody, RedundantDataShrinks) {
    std::mt19937 rng(5);
    // A random block repeated: the block as literals, then one match for all the rest.
    const Bytes block = randomBytes(rng, 1000);
    Bytes repeated;
    for (int i = 0; i < 300; ++i) repeated.insert(repeated.end(), block.begin(), block.end());
    // 16-byte records differing in one byte: a literal and a reused distance each (about 20
    // bits); a match with its own distance instead would cost 28 bits or more.
    Bytes records;
    for (int i = 0; i < 4000; ++i) {
        Bytes r = {1, 2, 3, 4, 5, 0, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
        r[5] = static_cast<uint8_t>(rng());
        records.insert(records.end(), r.begin(), r.end());
    }
    // Short copies from distances either side of codes 1280 and 32000, where the shortest match
    // grows from 2 to 3 to 4 bytes, amid random bytes: as matches they save a few bits each.
    Bytes distances = randomBytes(rng, 40000);
    size_t copied = 0;
    for (int round = 0; round < 4; ++round)
        for (uint32_t d : {1279, 1280, 1281, 1282, 31999, 32000, 32001, 32002})
            for (uint32_t len = 2; len <= 6; ++len) {
                const size_t from = distances.size() - d;
                copied += len;
                for (uint32_t i = 0; i < len; ++i) distances.push_back(distances[from + i]);
                for (int i = 0; i < 3; ++i) distances.push_back(static_cast<uint8_t>(rng()));
            }
    const Bytes cells = trackLike(rng, 100000);
    const std::pair<const Bytes*, size_t> cases[] = {
        {&repeated, literalBound(1000) + 16},
        {&records, records.size() * 22 / 128},
        {&distances, literalBound(distances.size()) - copied / 8},
        {&cells, cells.size() * 3 / 10},
    };
    EXPECT_LT(expectRoundTrip(Bytes(1 << 20, 0)), 16u);  // one long run: a single match
    for (const auto& [data, limit] : cases) EXPECT_LT(expectRoundTrip(*data), limit) << data->size();
}

}  // namespace
}  // namespace deqaz
