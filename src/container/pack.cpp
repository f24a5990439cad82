// The body packer: an LZ77 compressor for the bit stream unpackBody reads.
//
// Codes and their costs in bits (control bits plus stream bytes):
//   literal                 1 + 8
//   match with a distance   1 + gamma((code >> 8) + 3) + 8 + length code of (length - bonus)
//   match reusing distance  1 + gamma(2) + length code of length
// with code = distance - 1, bonus 1 below code 1280, 2 below 32000, 3 from there, a gamma code of v
// taking 2 * (bit length of v - 1) bits and a length code of n taking 2 bits for n <= 3 and
// 2 + gamma(n - 2) bits above. So a match with a distance is at least 1 + bonus bytes long, a
// reused distance may cover a single byte.
//
// Matches come from a hash-chain finder (the nearest earlier occurrence of each byte pair, plus
// chains of 3-byte hashes walked to a bounded depth). The parse is chosen by cost: a window of
// positions is costed forwards, each position remembering the cheapest way to reach it and the
// distance a following reuse would take, then the cheapest path is emitted. A match reaching
// kNiceLength is taken at once, which keeps long runs and repeated blocks fast.
#include "container/pack.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace deqaz {

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr uint32_t kNiceLength = 128;    // matches this long are taken without costing alternatives
constexpr uint32_t kParseSpan = 4096;    // positions costed before a path must be chosen
constexpr uint32_t kChainDepth = 32;     // chain entries compared per position
// Farthest distance searched. Matches farther away save little (past code 32000 a match needs 4
// bytes and a long gamma code), and a bounded chain ring stays in cache, which is most of the speed.
constexpr uint32_t kMaxDistance = 1u << 18;
constexpr uint32_t kMaxCandidates = 64;
constexpr uint32_t kBonusCode2 = 0x500;
constexpr uint32_t kBonusCode3 = 0x7D00;
constexpr uint32_t kLiteralCost = 9;

unsigned bitLength(uint32_t v) { return 32 - static_cast<unsigned>(__builtin_clz(v)); }

uint32_t gammaCost(uint32_t v) { return 2 * (bitLength(v) - 1); }

uint32_t lengthCodeCost(uint32_t n) { return n <= 3 ? 2 : 2 + gammaCost(n - 2); }

uint32_t bonusFor(uint32_t distance) {
    const uint32_t code = distance - 1;
    return 1 + (code >= kBonusCode2 ? 1 : 0) + (code >= kBonusCode3 ? 1 : 0);
}

// Cost of the distance part of a match (control bit, gamma g, low byte).
uint32_t distanceCost(uint32_t distance) { return 1 + gammaCost(((distance - 1) >> 8) + 3) + 8; }

uint32_t matchCost(uint32_t distance, uint32_t length) {
    return distanceCost(distance) + lengthCodeCost(length - bonusFor(distance));
}

uint32_t reuseCost(uint32_t length) { return 1 + 2 + lengthCodeCost(length); }

// Writes control bits and stream bytes in the order the unpacker takes them: a control byte is
// reserved in the stream when its first bit is written, so the bytes written after that bit
// follow it, just as the unpacker takes the control byte only when it wants that bit.
class StreamWriter {
public:
    explicit StreamWriter(std::vector<uint8_t>& out) : out_(out) {}

    void bit(unsigned b) {
        if (used_ == 8) {
            control_ = out_.size();
            out_.push_back(0);
            used_ = 0;
        }
        if (b) out_[control_] |= static_cast<uint8_t>(0x80u >> used_);
        ++used_;
    }
    void byte(uint8_t b) { out_.push_back(b); }

    // The digits of v below its leading 1, each followed by a bit saying whether more follow.
    void gamma(uint32_t v) {
        for (int shift = static_cast<int>(bitLength(v)) - 2; shift >= 0; --shift) {
            bit((v >> shift) & 1);
            bit(shift > 0 ? 1 : 0);
        }
    }
    void lengthCode(uint32_t n) {
        if (n <= 3) {
            bit(n >> 1);
            bit(n & 1);
        } else {
            bit(0);
            bit(0);
            gamma(n - 2);
        }
    }

    void literal(uint8_t b) {
        bit(0);
        byte(b);
    }
    void match(uint32_t distance, uint32_t length) {
        const uint32_t code = distance - 1;
        bit(1);
        gamma((code >> 8) + 3);
        byte(static_cast<uint8_t>(code & 0xFF));
        lengthCode(length - bonusFor(distance));
    }
    void reuse(uint32_t length) {
        bit(1);
        gamma(2);
        lengthCode(length);
    }

private:
    std::vector<uint8_t>& out_;
    size_t control_ = 0;
    unsigned used_ = 8;  // bits used of the current control byte; 8: none reserved yet
};

struct Candidate {
    uint32_t length;
    uint32_t distance;
};

// Number of equal bytes at a and b, up to limit.
uint32_t commonLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
    uint32_t n = 0;
    while (n + 8 <= limit) {
        uint64_t x, y;
        std::memcpy(&x, a + n, 8);
        std::memcpy(&y, b + n, 8);
        if (x != y) {
            const uint64_t diff = x ^ y;
            // The first differing byte in memory order.
            if constexpr (std::endian::native == std::endian::little)
                return n + static_cast<uint32_t>(__builtin_ctzll(diff) >> 3);
            else
                return n + static_cast<uint32_t>(__builtin_clzll(diff) >> 3);
        }
        n += 8;
    }
    while (n < limit && a[n] == b[n]) ++n;
    return n;
}

class MatchFinder {
public:
    MatchFinder(const uint8_t* data, uint32_t size) : data_(data), size_(size) {
        unsigned bits = 10;
        while (bits < 17 && (1u << bits) < size) ++bits;
        hashBits_ = bits;
        head3_.assign(size_t{1} << bits, kNone);
        head2_.assign(size_t{1} << 16, kNone);
        size_t ring = 1;
        while (ring < size && ring < kMaxDistance) ring *= 2;
        prev_.assign(ring, kNone);
        ringMask_ = static_cast<uint32_t>(ring - 1);
    }

    // Candidates at pos with strictly growing lengths and distances, each usable (length at
    // least 1 + bonus). Lengths are compared up to kNiceLength; a candidate reaching it is then
    // followed to its true length (at most to the body end). Inserts every position up to and
    // including pos.
    uint32_t find(uint32_t pos, Candidate* out) {
        insertUpTo(pos);
        const uint32_t limit = std::min(size_ - pos, kNiceLength);
        const uint8_t* cur = data_ + pos;
        uint32_t count = 0;
        uint32_t best = 1;
        auto consider = [&](uint32_t q) {
            const uint32_t distance = pos - q;
            const uint8_t* from = data_ + q;
            if (best < limit && from[best] != cur[best]) return;
            const uint32_t len = commonLength(from, cur, limit);
            if (len <= best || len < 1 + bonusFor(distance)) return;
            best = len;
            out[count++] = {len, distance};
        };
        if (limit >= 2) {
            const uint32_t q2 = head2_[pair(pos)];
            if (q2 != kNone && q2 < pos) consider(q2);
        }
        if (limit >= 3 && best < limit) {
            uint32_t q = head3_[hash3(pos)];
            for (uint32_t depth = kChainDepth; q != kNone && depth > 0; --depth, q = prev_[q & ringMask_]) {
                if (q >= pos) continue;  // pos itself, when searched twice
                if (pos - q >= kMaxDistance) break;  // its ring slot may already hold a newer entry
                consider(q);
                if (best >= limit || count == kMaxCandidates) break;
            }
        }
        insertUpTo(pos + 1);
        if (count > 0 && best == kNiceLength) {
            Candidate& last = out[count - 1];
            last.length += commonLength(cur - last.distance + best, cur + best, size_ - pos - best);
        }
        return count;
    }

    void insertUpTo(uint32_t end) {
        for (; inserted_ < end; ++inserted_) {
            const uint32_t p = inserted_;
            if (p + 2 < size_) {
                const uint32_t h = hash3(p);
                prev_[p & ringMask_] = head3_[h];
                head3_[h] = p;
            }
            if (p + 1 < size_) head2_[pair(p)] = p;
        }
    }

private:
    uint32_t pair(uint32_t p) const { return static_cast<uint32_t>(data_[p]) << 8 | data_[p + 1]; }
    uint32_t hash3(uint32_t p) const {
        const uint32_t v = static_cast<uint32_t>(data_[p]) << 16 | static_cast<uint32_t>(data_[p + 1]) << 8 | data_[p + 2];
        return (v * 2654435761u) >> (32 - hashBits_);
    }

    const uint8_t* data_;
    uint32_t size_;
    unsigned hashBits_;
    uint32_t ringMask_;
    uint32_t inserted_ = 0;
    std::vector<uint32_t> head3_;
    std::vector<uint32_t> head2_;
    std::vector<uint32_t> prev_;
};

enum class Step : uint8_t { Literal, Match, Reuse };

// One position of the costing window: the cheapest known way here and what it leaves behind.
struct Node {
    uint32_t cost;
    uint32_t from;      // window index the last step starts at
    uint32_t length;    // of the last step
    uint32_t distance;  // of the last step (Match)
    uint32_t reuse;     // distance a following reuse would take (0: none yet)
    Step step;
};

class Packer {
public:
    Packer(const uint8_t* data, uint32_t size, std::vector<uint8_t>& out)
        : data_(data), size_(size), writer_(out), finder_(data, size), nodes_(kParseSpan + kNiceLength + 2) {}

    void run() {
        writer_.byte(data_[0]);  // stored as it stands, with no control bit
        uint32_t pos = 1;
        while (pos < size_) pos = packWindow(pos);
    }

private:
    // Length of the match at pos with the given distance, up to limit.
    uint32_t reuseLength(uint32_t pos, uint32_t distance, uint32_t limit) const {
        if (distance == 0 || distance > pos) return 0;
        return commonLength(data_ + pos - distance, data_ + pos, limit);
    }

    void relax(uint32_t to, uint32_t cost, uint32_t from, Step step, uint32_t length, uint32_t distance,
               uint32_t reuse) {
        Node& n = nodes_[to];
        if (cost < n.cost) n = {cost, from, length, distance, reuse, step};
    }

    // Costs positions from pos on, emits the cheapest path to a point where the choice is settled
    // and returns the position reached.
    uint32_t packWindow(uint32_t pos) {
        nodes_[0] = {0, 0, 0, 0, reuse_, Step::Literal};
        uint32_t reached = 0;  // furthest window index any step reaches
        uint32_t cur = 0;
        for (;;) {
            const uint32_t p = pos + cur;
            if (p >= size_ || (cur > 0 && cur == reached) || cur == kParseSpan) break;
            const Node node = nodes_[cur];
            const uint32_t count = finder_.find(p, candidates_);
            const uint32_t room = size_ - p;

            // A long match: settle the path to here, then take it.
            const uint32_t longest = count ? candidates_[count - 1].length : 0;
            const uint32_t reuseFull = reuseLength(p, node.reuse, room);
            if (longest >= kNiceLength || reuseFull >= kNiceLength) {
                if (cur > 0) break;
                const Candidate& m = candidates_[count ? count - 1 : 0];
                const bool takeReuse = reuseFull >= kNiceLength &&
                    (longest < kNiceLength ||
                     uint64_t{reuseFull} * kLiteralCost - reuseCost(reuseFull) >=
                         uint64_t{m.length} * kLiteralCost - matchCost(m.distance, m.length));
                if (takeReuse) {
                    writer_.reuse(reuseFull);
                    finder_.insertUpTo(p + reuseFull);
                    return p + reuseFull;
                }
                writer_.match(m.distance, m.length);
                reuse_ = m.distance;
                finder_.insertUpTo(p + m.length);
                return p + m.length;
            }

            auto extend = [&](uint32_t to) {
                for (; reached < to;) nodes_[++reached].cost = kNone;
            };
            extend(cur + 1);
            relax(cur + 1, node.cost + kLiteralCost, cur, Step::Literal, 1, 0, node.reuse);
            if (reuseFull > 0) {
                extend(cur + reuseFull);
                for (uint32_t len = 1; len <= reuseFull; ++len)
                    relax(cur + len, node.cost + reuseCost(len), cur, Step::Reuse, len, node.reuse, node.reuse);
            }
            uint32_t shorter = 1;
            for (uint32_t i = 0; i < count; ++i) {
                const Candidate& m = candidates_[i];
                extend(cur + m.length);
                const uint32_t base = node.cost + distanceCost(m.distance);
                const uint32_t bonus = bonusFor(m.distance);
                for (uint32_t len = std::max(shorter + 1, 1 + bonus); len <= m.length; ++len)
                    relax(cur + len, base + lengthCodeCost(len - bonus), cur, Step::Match, len, m.distance, m.distance);
                shorter = m.length;
            }
            ++cur;
        }
        emitPath(pos, cur);
        reuse_ = nodes_[cur].reuse;
        return pos + cur;
    }

    void emitPath(uint32_t pos, uint32_t end) {
        path_.clear();
        for (uint32_t at = end; at > 0; at = nodes_[at].from) path_.push_back(at);
        for (auto it = path_.rbegin(); it != path_.rend(); ++it) {
            const Node& n = nodes_[*it];
            switch (n.step) {
                case Step::Literal: writer_.literal(data_[pos + n.from]); break;
                case Step::Match: writer_.match(n.distance, n.length); break;
                case Step::Reuse: writer_.reuse(n.length); break;
            }
        }
    }

    const uint8_t* data_;
    uint32_t size_;
    StreamWriter writer_;
    MatchFinder finder_;
    std::vector<Node> nodes_;
    std::vector<uint32_t> path_;
    Candidate candidates_[kMaxCandidates];
    uint32_t reuse_ = 0;
};

}  // namespace

std::vector<uint8_t> packBody(const uint8_t* body, size_t size) {
    std::vector<uint8_t> out;
    if (body == nullptr || size == 0 || size > 0xFFFFFFFFu) return out;
    out.reserve(size + size / 8 + 16);
    Packer packer(body, static_cast<uint32_t>(size), out);
    packer.run();
    return out;
}

}  // namespace deqaz
