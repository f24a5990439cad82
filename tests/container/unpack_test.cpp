// Container header parsing and the body unpacker: the worked streams, gamma codes, length
// bonuses, early stops and every malformed-stream path (run under ASan, buffers are exact-size).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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
    void byte(uint8_t b) { out.push_back(b); }
    void literal(uint8_t b) { bit(0), byte(b); }
    void match(uint32_t code, unsigned n) {  // n in 1..3
        bit(1);
        gamma((code >> 8) + 3);
        byte(static_cast<uint8_t>(code));
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

// Unpacks from an exact-size copy of `packed` so any read past its end trips ASan.
Unpacked unpack(const Bytes& packed, uint32_t bodySize, uint8_t fill = 0xEE) {
    Bytes exact(packed);
    Unpacked u;
    u.body.assign(bodySize, fill);
    u.result = unpackBody(exact.empty() ? nullptr : exact.data(), exact.size(), u.body.data(), bodySize);
    return u;
}

std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

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
    const Bytes v6 = {'Q', 'A', 'Z', 6, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_FALSE(parseContainerHeader(v6.data(), v6.size(), h));
    const Bytes magic = {'Q', 'A', 'X', 5, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_FALSE(parseContainerHeader(magic.data(), magic.size(), h));
    EXPECT_FALSE(parseContainerHeader(nullptr, 12, h));
}

TEST(ReadGamma, Overflow) {
    // An endless run of 1 bits would grow past 32 bits: stops, marked, within the data.
    const Bytes ones(40, 0xFF);
    BitReader o{ones.data(), ones.data() + ones.size()};
    readGamma(o);
    EXPECT_TRUE(o.overrun);
    EXPECT_LE(o.next, ones.data() + ones.size());
    EXPECT_LT(o.next - ones.data(), 10);  // 32 digits take 64 bits: 8 or 9 control bytes

    // The largest value that fits still reads correctly: 31 digits of 1 after the leading 1.
    StreamBuilder b(0);
    b.gamma(0xFFFFFFFFu);
    BitReader m{b.out.data() + 1, b.out.data() + b.out.size()};
    EXPECT_EQ(readGamma(m), 0xFFFFFFFFu);
    EXPECT_FALSE(m.overrun);
}

TEST(UnpackBody, WorkedStreams) {
    Unpacked a = unpack({0x41, 0x62, 0x42, 0x01}, 8);
    EXPECT_TRUE(a.result.ok);
    EXPECT_EQ(a.result.consumed, 4u);
    EXPECT_EQ(text(a.body), "ABABABAB");

    Unpacked b = unpack({0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}, 10);
    EXPECT_TRUE(b.result.ok);
    EXPECT_EQ(b.result.consumed, 7u);
    EXPECT_EQ(text(b.body), "ABCABCAxCA");

    // Bytes after the end of the stream are never taken.
    Unpacked c = unpack({0x41, 0x62, 0x42, 0x01, 0x99, 0x99}, 8);
    EXPECT_EQ(c.result.consumed, 4u);
    EXPECT_EQ(text(c.body), "ABABABAB");
}

TEST(UnpackBody, BodyOfOneByteTakesNoControlByte) {
    Unpacked a = unpack({0x5A}, 1);
    EXPECT_TRUE(a.result.ok);
    EXPECT_EQ(a.result.consumed, 1u);
    EXPECT_EQ(a.body, Bytes{0x5A});
    Unpacked b = unpack({0x5A, 0xFF, 0xFF}, 1);
    EXPECT_EQ(b.result.consumed, 1u);

    // An empty body is the caller's to avoid: nothing is read or written.
    uint8_t sentinel = 0x11;
    const uint8_t packed = 0x22;
    const UnpackResult r = unpackBody(&packed, 1, &sentinel, 0);
    EXPECT_EQ(r.consumed, 0u);
    EXPECT_EQ(sentinel, 0x11);
}

// A body of `prefix` literal bytes (a pattern with no accidental structure needed) followed by a
// match with distance code `code` and n = 1, then one marker literal.
struct BonusCase {
    Bytes packed;
    Bytes expected;  // the whole body the stream describes
    uint32_t matchStart;
    size_t matchEnd;  // packed bytes up to and including the match
};

BonusCase bonusCase(uint32_t code, uint32_t bonus) {
    BonusCase c;
    const uint32_t prefix = code + 1 + 7;
    for (uint32_t i = 0; i < prefix; ++i) c.expected.push_back(static_cast<uint8_t>(i * 37 + (i >> 8) * 11));
    StreamBuilder b(c.expected[0]);
    for (uint32_t i = 1; i < prefix; ++i) b.literal(c.expected[i]);
    b.match(code, 1);
    c.matchEnd = b.out.size();
    b.literal(0xEE ^ 0x5A);
    c.matchStart = prefix;
    for (uint32_t i = 0; i < 1 + bonus; ++i) c.expected.push_back(c.expected[prefix + i - (code + 1)]);
    c.expected.push_back(0xEE ^ 0x5A);
    c.packed = b.out;
    return c;
}

TEST(UnpackBody, LengthBonusGrowsAtCodes1280And32000) {
    for (auto [code, bonus] : {std::pair<uint32_t, uint32_t>{0, 1}, {1279, 1}, {1280, 2}, {31999, 2}, {32000, 3}}) {
        SCOPED_TRACE(code);
        const BonusCase c = bonusCase(code, bonus);
        Unpacked u = unpack(c.packed, static_cast<uint32_t>(c.expected.size()));
        EXPECT_TRUE(u.result.ok);
        EXPECT_EQ(u.result.consumed, c.packed.size());
        EXPECT_EQ(u.body, c.expected);

        // One byte less room than the match needs: decoding stops before it, keeping what came
        // before, leaving the rest, and counting the match's distance byte as consumed.
        const uint32_t shortSize = c.matchStart + bonus;
        Unpacked s = unpack(c.packed, shortSize);
        EXPECT_TRUE(s.result.ok);
        EXPECT_EQ(s.result.consumed, c.matchEnd);
        EXPECT_TRUE(std::equal(s.body.begin(), s.body.begin() + c.matchStart, c.expected.begin()));
        for (uint32_t i = c.matchStart; i < shortSize; ++i) EXPECT_EQ(s.body[i], 0xEE);
    }
}

TEST(UnpackBody, MatchLongerThanRoomStopsAndKeepsWrittenBytes) {
    Unpacked a = unpack({0x41, 0x62, 0x42, 0x01}, 7);
    EXPECT_TRUE(a.result.ok);
    EXPECT_EQ(a.result.consumed, 4u);
    EXPECT_EQ(a.body, (Bytes{'A', 'B', 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));

    // A reused-distance match too long for the room stops the same way.
    Unpacked b = unpack({0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}, 9);
    EXPECT_TRUE(b.result.ok);
    EXPECT_EQ(b.result.consumed, 7u);
    EXPECT_EQ(text(Bytes(b.body.begin(), b.body.begin() + 8)), "ABCABCAx");
    EXPECT_EQ(b.body[8], 0xEE);
}

TEST(UnpackBody, MalformedMatchesFail) {
    // Distance 2 at output position 1 reaches before the body.
    StreamBuilder before('A');
    before.match(1, 1);
    Unpacked a = unpack(before.out, 8);
    EXPECT_FALSE(a.result.ok);
    EXPECT_EQ(a.body[1], 0xEE);

    // Reused distance with none set: control bits 1, 0 0, 0 1.
    Unpacked b = unpack({0x41, 0x88}, 4);
    EXPECT_FALSE(b.result.ok);
    EXPECT_EQ(b.result.consumed, 2u);

    // A distance from far away, after a valid one: still refused.
    StreamBuilder far('A');
    far.literal('B');
    far.match(0, 1);
    far.match(200, 3);
    Unpacked c = unpack(far.out, 40);
    EXPECT_FALSE(c.result.ok);
    EXPECT_EQ(text(Bytes(c.body.begin(), c.body.begin() + 4)), "ABBB");

    // A length gamma that overflows: marked, not looped on.
    // Control bits 1 (match), 1 0 (gamma 3), 0 0 (length by gamma), then 1 bits without end;
    // the distance byte 0x00 follows the first control byte.
    Bytes overflow = {0x41, 0xC3, 0x00};
    overflow.insert(overflow.end(), 20, 0xFF);
    Unpacked d = unpack(overflow, 100);
    EXPECT_FALSE(d.result.ok);
    EXPECT_LE(d.result.consumed, overflow.size());

    // No packed bytes at all for a non-empty body.
    Unpacked e = unpack({}, 4);
    EXPECT_FALSE(e.result.ok);
    EXPECT_EQ(e.result.consumed, 0u);
}

// Every proper prefix of a complete stream runs out before the body is full: ok is false, the
// consumed count stays within the prefix, and what was written agrees with the full result.
void expectEveryCutFails(const Bytes& packed, const Bytes& body) {
    for (size_t cut = 0; cut < packed.size(); ++cut) {
        SCOPED_TRACE(cut);
        Unpacked u = unpack(Bytes(packed.begin(), packed.begin() + cut), static_cast<uint32_t>(body.size()));
        EXPECT_FALSE(u.result.ok);
        EXPECT_LE(u.result.consumed, cut);
        size_t same = 0;
        while (same < body.size() && u.body[same] == body[same]) ++same;
        for (size_t i = same; i < body.size(); ++i) ASSERT_EQ(u.body[i], 0xEE) << "stray write at " << i;
    }
}

TEST(UnpackBody, TruncatedStreamsFailAtEveryCut) {
    expectEveryCutFails({0x41, 0x62, 0x42, 0x01}, Bytes{'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B'});
    const std::string ex2 = "ABCABCAxCA";
    expectEveryCutFails({0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}, Bytes(ex2.begin(), ex2.end()));

    // A longer stream with literals, distances, reuses and long lengths.
    std::mt19937 rng(77);
    Bytes body;
    while (body.size() < 3000) {
        if (body.size() > 64 && rng() % 2) {
            const size_t from = body.size() - 1 - rng() % 64, len = 1 + rng() % 40;
            for (size_t i = 0; i < len; ++i) body.push_back(body[from + i]);
        } else {
            body.push_back(static_cast<uint8_t>(rng() % 5 ? rng() % 16 : 0xEE));
        }
    }
    const Bytes packed = packBody(body.data(), body.size());
    ASSERT_EQ(unpack(packed, static_cast<uint32_t>(body.size())).body, body);
    expectEveryCutFails(packed, body);
}

TEST(UnpackBody, RandomStreamsStayInBounds) {
    std::mt19937 rng(1234);
    for (int i = 0; i < 20000; ++i) {
        Bytes packed(1 + rng() % 48);
        for (auto& b : packed) b = static_cast<uint8_t>(rng());
        const uint32_t bodySize = 1 + rng() % 300;
        Unpacked u = unpack(packed, bodySize);
        ASSERT_LE(u.result.consumed, packed.size());
        ASSERT_EQ(u.body[0], packed[0]);
    }
}

}  // namespace
}  // namespace deqaz
