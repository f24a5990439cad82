// The QAZ container header and the body unpacker.
//
// Packed body layout: the first byte is the first body byte as it stands. After it, control bits
// (taken most significant first from control bytes) choose between a literal (bit 0, one byte
// follows) and a match (bit 1). A match starts with a gamma code g: g = 2 reuses the previous
// distance; g >= 3 is followed by a low byte giving code = (g - 3) * 256 + low and distance
// code + 1. Two bits then give a length n of 1..3, or 0 to say a gamma code + 2 follows. Matches
// with their own distance get a length bonus of 1, 2 or 3, growing with the distance, because a
// short match far away costs more than the literals it replaces.
#include "container/unpack.hpp"

#include <cstring>

#include "common/endian.hpp"

namespace deqaz {

namespace {

constexpr uint32_t kBonusCode2 = 0x500;   // codes from here get a bonus of 2
constexpr uint32_t kBonusCode3 = 0x7D00;  // codes from here get a bonus of 3

}  // namespace

bool hasQazMagic(const uint8_t* data, size_t size) {
    return data != nullptr && size >= 4 && data[0] == 'Q' && data[1] == 'A' && data[2] == 'Z' && data[3] <= 5;
}

bool parseContainerHeader(const uint8_t* data, size_t size, ContainerHeader& out) {
    if (size < 8 || !hasQazMagic(data, size)) return false;
    const uint8_t version = data[3];
    const uint32_t headerLength = version == 5 ? 12 : 8;
    if (size < headerLength) return false;
    out.version = version;
    out.unpackedSize = rd32le(data + 4);
    out.packedSize = version == 5 ? rd32le(data + 8) : 0;
    out.headerLength = headerLength;
    return true;
}

uint8_t BitReader::takeByte() {
    if (next == nullptr || next >= end) {
        overrun = true;
        return 0;
    }
    return *next++;
}

unsigned BitReader::readBit() {
    unsigned c = bits;
    bits = static_cast<uint8_t>(bits << 1);
    if (bits == 0) {
        // Only the marker was left: the next control byte comes from the packed stream now,
        // after every literal and distance byte the previous bits called for.
        c = takeByte();
        bits = static_cast<uint8_t>((c << 1) | 1);
    }
    return (c >> 7) & 1;
}

uint32_t readGamma(BitReader& reader) {
    uint32_t value = 1;
    do {
        if (value & 0x80000000u) {
            // One more digit would not fit; no body is that large, so the stream is damaged.
            reader.overrun = true;
            return value;
        }
        value = value * 2 + reader.readBit();
    } while (reader.readBit() != 0);
    return value;
}

UnpackResult unpackBody(const uint8_t* packed, size_t packedAvail, uint8_t* body, uint32_t bodySize) {
    UnpackResult result;
    if (bodySize == 0) return result;  // nothing to fill, nothing read
    if (packed == nullptr || packedAvail == 0 || body == nullptr) {
        result.ok = false;
        return result;
    }

    BitReader reader;
    reader.next = packed + 1;
    reader.end = packed + packedAvail;
    body[0] = packed[0];

    uint32_t pos = 1;
    uint64_t prevDistance = 0;  // 0: no match has carried a distance yet
    bool ok = true;
    while (pos < bodySize) {
        if (reader.readBit() == 0) {
            const uint8_t literal = reader.takeByte();
            if (reader.overrun) {
                ok = false;
                break;
            }
            body[pos++] = literal;
            continue;
        }

        const uint32_t g = readGamma(reader);
        uint64_t distance = prevDistance;
        uint32_t bonus = 0;
        if (g >= 3) {
            const uint64_t code = (static_cast<uint64_t>(g) - 3) * 256 + reader.takeByte();
            distance = code + 1;
            prevDistance = distance;
            bonus = 1 + (code >= kBonusCode2 ? 1 : 0) + (code >= kBonusCode3 ? 1 : 0);
        }
        uint64_t n = reader.readBit() * 2u;
        n += reader.readBit();
        if (n == 0) n = static_cast<uint64_t>(readGamma(reader)) + 2;
        if (reader.overrun) {
            ok = false;
            break;
        }

        const uint64_t length = n + bonus;
        // A match longer than the room left ends decoding without copying anything; the caller
        // learns of it only through the consumed count. Checked before the distance, so such a
        // final match never fails the stream: it reads nothing from the body.
        if (length > bodySize - pos) break;
        if (distance == 0 || distance > pos) {
            ok = false;  // no distance yet, or one reaching before the body start
            break;
        }

        uint8_t* out = body + pos;
        const uint8_t* from = out - distance;
        const uint32_t len = static_cast<uint32_t>(length);
        if (distance >= length) {
            std::memcpy(out, from, len);
        } else {
            // Overlapping: each byte copies one already written, so short distances repeat.
            for (uint32_t i = 0; i < len; ++i) out[i] = from[i];
        }
        pos += len;
    }

    result.consumed = static_cast<uint32_t>(reader.next - packed);
    result.ok = ok;
    return result;
}

}  // namespace deqaz
