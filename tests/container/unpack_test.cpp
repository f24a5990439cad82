// The container header and the body unpacker: the worked streams, length bonuses and early stops
// (run under ASan: every buffer is an exact-size heap block).
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

// Hand-assembles packed streams: a control byte is placed when its first bit is written.
class StreamBuilder {
public:
    explicit StreamBuilder(uint8_t first) { out.push_back(first); }
    void bit(unsigned b) {
        if (used == 8) {
            control = out.size();
            out.push_back(0);
            used = 0;
        }
        if (b) out[control] |= static_cast<uint8_t>(0x80 >> used);
        ++used;
    }
    void literal(uint8_t b) { bit(0), out.push_back(b); }
    void match(uint32_t code, unsigned n) {  // n in 1..3
        bit(1);
        gamma((code >> 8) + 3);
        out.push_back(static_cast<uint8_t>(code));
        bit(n >> 1), bit(n & 1);
    }
    void gamma(uint32_t v) {
        int top = 31;
        while (!(v >> top)) --top;
        for (int s = top - 1; s >= 0; --s) bit((v >> s) & 1), bit(s > 0);
    }
    Bytes out;

private:
    size_t control = 0;
    unsigned used = 8;
};

struct Unpacked {
    Bytes body;
    UnpackResult result;
};

Unpacked unpack(const Bytes& packed, uint32_t bodySize, uint8_t fill = 0xEE) {
    Bytes exact(packed);
    Unpacked u;
    u.body.assign(bodySize, fill);
    u.result = unpackBody(exact.empty() ? nullptr : exact.data(), exact.size(), u.body.data(), bodySize);
    return u;
}

Bytes bytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

TEST(ContainerHeader, ParsesBothLayoutsAndRejectsBadOnes) {
    const auto fields = [](const ContainerHeader& h) {
        return std::vector<uint32_t>{h.version, h.unpackedSize, h.packedSize, h.headerLength};
    };
    const Bytes v5 = {'Q', 'A', 'Z', 5, 0x78, 0x56, 0x34, 0x12, 0x10, 0x20, 0x00, 0x00};
    const Bytes v0 = {'Q', 'A', 'Z', 0, 0x01, 0x02, 0x00, 0x00};
    ContainerHeader h;
    ASSERT_TRUE(parseContainerHeader(v5.data(), v5.size(), h));
    EXPECT_EQ(fields(h), (std::vector<uint32_t>{5, 0x12345678u, 0x2010u, 12}));
    ASSERT_TRUE(parseContainerHeader(v0.data(), v0.size(), h));
    EXPECT_EQ(fields(h), (std::vector<uint32_t>{0, 0x201u, 0, 8}));
    EXPECT_FALSE(parseContainerHeader(v5.data(), 11, h));  // version 5 needs 12 bytes
    EXPECT_FALSE(parseContainerHeader(v0.data(), 7, h));
    for (const Bytes& bad : {Bytes{'Q', 'A', 'Z', 6, 0, 0, 0, 0, 0, 0, 0, 0}, Bytes{'Q', 'A', 'X', 5, 0, 0, 0, 0, 0, 0, 0, 0}})
        EXPECT_FALSE(parseContainerHeader(bad.data(), bad.size(), h));
    EXPECT_FALSE(parseContainerHeader(nullptr, 12, h));
}

// The worked streams, a stream with trailing bytes, and one with every form of code: each unpacks
// whole; with less room it stops cleanly before the match that does not fit; cut anywhere it
// fails, within the bytes it had, writing nothing the whole stream would not.
TEST(UnpackBody, WorkedStreamsRoomAndEveryCut) {
    std::mt19937 rng(77);
    Bytes varied;
    while (varied.size() < 3000) {
        if (varied.size() > 64 && rng() % 2) {
            const size_t from = varied.size() - 1 - rng() % 64, len = 1 + rng() % 40;
            for (size_t i = 0; i < len; ++i) varied.push_back(varied[from + i]);
        } else {
            varied.push_back(static_cast<uint8_t>(rng() % 5 ? rng() % 16 : 0xEE));
        }
    }
    struct Case {
        Bytes packed, body;
        size_t consumed;
        uint32_t room;       // a smaller body: decoding stops before the match that overflows it
        size_t keptInRoom;   // body bytes written then
    };
    const Case cases[] = {
        {{0x41, 0x62, 0x42, 0x01}, bytes("ABABABAB"), 4, 7, 2},
        {{0x41, 0x62, 0x42, 0x01, 0x99, 0x99}, bytes("ABABABAB"), 4, 0, 0},
        {{0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}, bytes("ABCABCAxCA"), 7, 9, 8},  // a reused distance
        {{0x5A, 0xFF}, {0x5A}, 1, 0, 0},  // a body of one byte takes no control byte
        {packBody(varied.data(), varied.size()), varied, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body.size());
        const size_t streamEnd = c.consumed ? c.consumed : c.packed.size();
        Unpacked u = unpack(c.packed, static_cast<uint32_t>(c.body.size()));
        EXPECT_TRUE(u.result.ok);
        EXPECT_EQ(u.result.consumed, streamEnd);
        EXPECT_EQ(u.body, c.body);
        if (c.room) {
            Unpacked s = unpack(c.packed, c.room);
            EXPECT_TRUE(s.result.ok);
            EXPECT_TRUE(std::equal(s.body.begin(), s.body.begin() + static_cast<long>(c.keptInRoom), c.body.begin()));
            EXPECT_TRUE(std::all_of(s.body.begin() + static_cast<long>(c.keptInRoom), s.body.end(), [](uint8_t b) { return b == 0xEE; }));
        }
        for (size_t cut = 0; cut < streamEnd; ++cut) {
            Unpacked p = unpack(Bytes(c.packed.begin(), c.packed.begin() + static_cast<long>(cut)), static_cast<uint32_t>(c.body.size()));
            ASSERT_FALSE(p.result.ok) << cut;
            ASSERT_LE(p.result.consumed, cut);
            size_t same = 0;
            while (same < c.body.size() && p.body[same] == c.body[same]) ++same;
            for (size_t i = same; i < c.body.size(); ++i) ASSERT_EQ(p.body[i], 0xEE) << "stray write at " << i << " cut " << cut;
        }
    }
    // An empty body is the caller's to avoid: nothing is read or written.
    uint8_t sentinel = 0x11;
    const uint8_t packed = 0x22;
    EXPECT_EQ(unpackBody(&packed, 1, &sentinel, 0).consumed, 0u);
    EXPECT_EQ(sentinel, 0x11);
}

// A match with distance code `code` after enough distinct literals copies 1 + bonus bytes; one
// byte less room than that stops before it, counting its distance byte as consumed.
TEST(UnpackBody, LengthBonusGrowsAtCodes1280And32000) {
    for (auto [code, bonus] : {std::pair<uint32_t, uint32_t>{0, 1}, {1279, 1}, {1280, 2}, {31999, 2}, {32000, 3}}) {
        SCOPED_TRACE(code);
        const uint32_t prefix = code + 8;
        Bytes expected;
        for (uint32_t i = 0; i < prefix; ++i) expected.push_back(static_cast<uint8_t>(i * 37 + (i >> 8) * 11));
        StreamBuilder b(expected[0]);
        for (uint32_t i = 1; i < prefix; ++i) b.literal(expected[i]);
        b.match(code, 1);
        const size_t matchEnd = b.out.size();
        b.literal(0x42);
        for (uint32_t i = 0; i < 1 + bonus; ++i) expected.push_back(expected[prefix + i - (code + 1)]);
        expected.push_back(0x42);

        Unpacked u = unpack(b.out, static_cast<uint32_t>(expected.size()));
        EXPECT_TRUE(u.result.ok);
        EXPECT_EQ(u.result.consumed, b.out.size());
        EXPECT_EQ(u.body, expected);
        Unpacked s = unpack(b.out, prefix + bonus);
        EXPECT_TRUE(s.result.ok);
        EXPECT_EQ(s.result.consumed, matchEnd);
        EXPECT_EQ(Bytes(s.body.begin(), s.body.begin() + prefix), Bytes(expected.begin(), expected.begin() + prefix));
        EXPECT_EQ(s.body.back(), 0xEE);
    }
}

}  // namespace
}  // namespace deqaz
