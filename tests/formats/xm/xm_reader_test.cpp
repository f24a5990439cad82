// XM reader: the older layouts of versions 1.02 and 1.03, trailing chunks. The corpus goes through
// corpus_fixpoint_test and, judged by libxmp, tests/tools/roundtrip_test.
#include <gtest/gtest.h>

#include <cstring>

#include "common/endian.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using test::Bytes;

struct Cell {
    uint8_t note = 0, ins = 0, vol = 0, fx = 0, fxp = 0;
};

void put16(Bytes& b, uint16_t v) { b.push_back(uint8_t(v)), b.push_back(uint8_t(v >> 8)); }
void put32(Bytes& b, uint32_t v) { put16(b, uint16_t(v)), put16(b, uint16_t(v >> 16)); }
void putText(Bytes& b, const char* s, size_t width) {
    for (size_t i = 0; i < width; ++i) b.push_back(i < std::strlen(s) ? uint8_t(s[i]) : 0);
}

// An XM file of two channels: one pattern whose channel 0 holds `cells` (one per row), one
// instrument with one three-point sample, then `trailer` bytes.
Bytes buildXm(const std::vector<Cell>& cells, const Bytes& trailer = {}) {
    Bytes b;
    putText(b, "Extended Module: ", 17);
    putText(b, "song", 20);
    b.push_back(0x1A);
    putText(b, "FastTracker v 2.00  ", 20);
    put16(b, 0x0104);
    put32(b, 276);
    put16(b, 1), put16(b, 0), put16(b, 2), put16(b, 1), put16(b, 1), put16(b, 1), put16(b, 6), put16(b, 125);
    b.resize(b.size() + 256, 0);
    Bytes packed;
    for (const Cell& c : cells) {
        const uint8_t f[5] = {c.note, c.ins, c.vol, c.fx, c.fxp};
        uint8_t flags = 0x80;
        for (int k = 0; k < 5; ++k) flags |= f[k] ? uint8_t(1 << k) : 0;
        packed.push_back(flags);
        for (uint8_t v : f)
            if (v) packed.push_back(v);
        packed.push_back(0x80);
    }
    put32(b, 9), b.push_back(0), put16(b, uint16_t(cells.size())), put16(b, uint16_t(packed.size()));
    b.insert(b.end(), packed.begin(), packed.end());
    // The instrument's 263-byte header as FastTracker writes it, one sample header, the data.
    const size_t ins = b.size();
    put32(b, 263);
    putText(b, "instr", 22);
    b.push_back(0), put16(b, 1), put32(b, 40);
    b.resize(ins + 263, 0);
    put32(b, 3), put32(b, 0), put32(b, 0);
    b.insert(b.end(), {64, 0, 0, 128, 0, 0});
    putText(b, "smp", 22);
    b.insert(b.end(), {1, 1, 1});
    b.insert(b.end(), trailer.begin(), trailer.end());
    return b;
}

ReadResult readOk(const Bytes& b) {
    ReadResult r = readXm(b.data(), b.size());
    EXPECT_TRUE(r.song) << r.error;
    return r;
}

// The file in the layout of version 1.03 (instruments and sample headers before the patterns,
// the sample data after them) or 1.02 (also an 8-byte pattern header holding rows less one).
Bytes olderLayout(const Bytes& xm, uint16_t version) {
    const size_t pattern = 336, instrument = pattern + 9 + rd16le(&xm[pattern + 7]), data = instrument + 263 + 40;
    Bytes b(xm.begin(), xm.begin() + pattern);
    wr16le(&b[58], version);
    b.insert(b.end(), xm.begin() + instrument, xm.begin() + data);
    Bytes header(xm.begin() + pattern, xm.begin() + pattern + 9);
    if (version == 0x0102) header = {8, 0, 0, 0, 0, uint8_t(rd16le(&header[5]) - 1), header[7], header[8]};
    b.insert(b.end(), header.begin(), header.end());
    b.insert(b.end(), xm.begin() + pattern + 9, xm.begin() + instrument);
    b.insert(b.end(), xm.begin() + data, xm.end());
    return b;
}

TEST(XmReaderRecords, OlderLayoutsReadAsTheSameModule) {
    const Bytes file = buildXm({{49, 1, 0x40, 0x0F, 3}, {50, 0, 0, 0, 0}, {}, {0, 0, 0x20, 0, 0}});
    const ReadResult current = readOk(file);
    test::XmpModule xmpCurrent, xmpOld;
    ASSERT_EQ(xmpCurrent.load(file), 0);
    for (uint16_t version : {0x0102, 0x0103}) {
        const Bytes old = olderLayout(file, version);
        ASSERT_EQ(xmpOld.load(old), 0);  // libxmp reads the layout the same way
        EXPECT_TRUE(test::xmpDifferences(xmpCurrent, xmpOld).empty()) << version;
        const ReadResult r = readOk(old);
        EXPECT_EQ(test::moduleDifference(*current.song, *r.song), "") << version;
        EXPECT_EQ(r.warnings.size(), current.warnings.size() + 1) << version;  // the layout written back as 1.04's
        for (size_t n = 0; n < old.size(); ++n) {  // cut anywhere: read (saying so) or refused
            const Bytes cut(old.begin(), old.begin() + static_cast<std::ptrdiff_t>(n));
            const ReadResult c = readXm(cut.data(), n);
            EXPECT_TRUE(c.song ? c.warnings.size() > r.warnings.size() : !c.error.empty()) << version << " " << n;
        }
    }
}

TEST(XmReaderRecords, TrailingChunksComeBack) {
    Bytes trailer;
    auto chunk = [&](const char* id, const Bytes& data) {
        putText(trailer, id, 4), put32(trailer, uint32_t(data.size()));
        trailer.insert(trailer.end(), data.begin(), data.end());
    };
    chunk("text", {'h', 'i', '\r', 'x', 0});
    Bytes midi(4896, 0);
    const char* globals[9] = {"FF", "FC", "", "9c n v", "9c n 0", "", "", "", "Cc p"};
    for (int i = 0; i < 9; ++i) std::memcpy(&midi[32 * i], globals[i], std::strlen(globals[i]));
    std::memcpy(&midi[32 * 9], "F0F000z", 7);
    std::memcpy(&midi[32 * 12], "F0F0fez", 7);
    std::memcpy(&midi[32 * 25], "F0F00000", 8);
    std::memcpy(&midi[32 * 26], "F0F0ffffff80", 12);  // below the bias: a 32-bit two's complement
    std::memcpy(&midi[32 * 30], "F0F0007f", 8);
    std::memcpy(&midi[32 * 152], "F0F0feff", 8);
    chunk("MIDI", midi);
    chunk("FX03", {1, 2, 3});
    chunk("CHFX", {9, 0, 0, 0, 8, 0, 0, 0});
    const Bytes file = buildXm({{}}, trailer);
    ReadResult r = readOk(file);
    EXPECT_TRUE(r.warnings.empty());  // the last chunk ends the file exactly
    EXPECT_EQ(r.song->message, "hi\rx");
    EXPECT_EQ(r.song->sfxMacro[0], 1);
    EXPECT_EQ(r.song->sfxMacro[3], 255);
    EXPECT_EQ(r.song->zxxMacro[0], 0x100);
    EXPECT_EQ(r.song->zxxMacro[1], 0x80);
    EXPECT_EQ(r.song->zxxMacro[5], 0x17F);
    EXPECT_EQ(r.song->zxxMacro[127], 0xFFFF);
    EXPECT_TRUE(r.song->flags & SH_EXTRA_CHUNKS);
    const Bytes out = test::runWriteModule(*r.song, 1).bytes;
    ASSERT_GE(out.size(), trailer.size());
    EXPECT_TRUE(std::equal(trailer.begin(), trailer.end(), out.end() - static_cast<std::ptrdiff_t>(trailer.size())));

    // A macro text the container cannot hold is reported, not kept.
    std::memcpy(&midi[32 * 10], "F0F001zz", 8);
    std::memcpy(&midi[32 * 11], "F0F0ffz", 7);   // SF2 = 0xFF + 1: past 8 bits
    std::memcpy(&midi[32 * 27], "F0F0ffff", 8);  // Z82 = 0xFFFF + 256: past 16 bits
    Bytes other;
    putText(other, "MIDI", 4), put32(other, 4896), other.insert(other.end(), midi.begin(), midi.end());
    putText(other, "FX20", 4), put32(other, 1), other.push_back(7);  // past the last slot, FX19
    putText(other, "PNAM", 4), put32(other, 1), other.push_back('p');
    putText(other, "XTPM", 4), put32(other, 0);  // OpenMPT's properties, which end what can be read
    ReadResult r2 = readOk(buildXm({{}}, other));
    EXPECT_EQ(r2.song->sfxMacro[1] + r2.song->sfxMacro[2] + r2.song->zxxMacro[2], 0);
    EXPECT_EQ(r2.warnings, (std::vector<std::string>{"XM: MIDI macros the container cannot hold dropped (3 times)",
                                                     "XM: plugin chunks FX20 and above dropped", "XM: pattern and channel names dropped",
                                                     "XM: OpenMPT extended properties dropped"}));
}

}  // namespace
}  // namespace deqaz
