#pragma once
// The code paths the fuzz targets drive, one function per target, each taking one raw input.
// The libFuzzer entry points and the regression test (tests/regression) both call these, so a
// saved crash input replays through exactly the code that found it.
//
// Every function returns false when a property it checks does not hold (the fuzz target then
// aborts, so libFuzzer saves the input); crashes and sanitizer reports need no return value.
// Buffers handed to the code under test are separate heap blocks of exactly the size given, so
// AddressSanitizer sees a read or write one byte past any of them.
#include <ogg/ogg.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/diagnostics.hpp"
#include "common/endian.hpp"
#include "common/heap_array.hpp"
#include "container/input_stream.hpp"
#include "container/loader.hpp"
#include "container/pack.hpp"
#include "container/track.hpp"
#include "container/unpack.hpp"
#include "readers/module_reader.hpp"
#include "samples/lossy.hpp"
#include "samples/predict.hpp"
#include "writers/output_buffer.hpp"
#include "writers/translate.hpp"
#include "writers/writers.hpp"

namespace deqaz::fuzz {

// Input layouts (all numbers little-endian). A prefix shorter than its layout reads as zeros.
//   convert: the whole input is a QAZ file.
//   unpack:  u32 body size (low 20 bits: at most 1 MiB - 1), then the packed data.
//   predict: u16 value count (low 13 bits: at most 8191, as many as a few KiB of stream code),
//            then the stored bit stream (given to all four decoders).
//   vorbis:  u8 options (bit 0: split, bits 1-2: added to outBytes, bit 3: fix page CRCs),
//            u16 header size (with bit 0 set: the first that many data bytes are the borrowed
//            header pages), u16 outBytes / 4, then the stream bytes.
//   layer3:  u16 codecParam, u16 outBytes / 4, u8 (low 2 bits added to outBytes), then frames.
//   tracks:  u8 options (bits 0-1: row step - 1 of the second cursor, bit 2: silent), then the
//            track bytes.
//   readers: the whole input is a module file (IT, XM, S3M, MOD or MTM) for the encoder.
inline constexpr size_t UNPACK_PREFIX = 4;
inline constexpr size_t PREDICT_PREFIX = 2;
inline constexpr size_t VORBIS_PREFIX = 5;
inline constexpr size_t LAYER3_PREFIX = 5;
inline constexpr size_t TRACKS_PREFIX = 1;

// Every message of the code under test goes here: printing is exercised, nothing is shown.
inline std::FILE* nullStream() {
    static std::FILE* sink = std::fopen("/dev/null", "w");
    return sink;
}

// The first `width` bytes as a little-endian number; missing bytes read as zero.
inline uint32_t prefixValue(const uint8_t* data, size_t size, size_t offset, size_t width) {
    uint32_t v = 0;
    for (size_t i = 0; i < width; ++i)
        if (offset + i < size) v |= static_cast<uint32_t>(data[offset + i]) << (8 * i);
    return v;
}

// An exact-size heap copy of a byte range (null when empty), so reads past it are caught.
inline HeapArray<uint8_t> exactCopy(const uint8_t* data, size_t size) {
    HeapArray<uint8_t> copy;
    if (size) (void)copy.dupBuffer(data, size);
    return copy;
}

// Output cap of the convert path. A short body reads as zeros past its end, so a file of a few
// dozen bytes may declare 65535 instruments, samples and patterns and convert, as it should, to
// tens of megabytes. The buffer grows in 64 KiB steps, which costs nothing with glibc's realloc
// (mremap) but copies the whole buffer on every step under AddressSanitizer: uncapped, such
// inputs take minutes each. Past the cap the buffer fails, as when memory runs out, and the
// writer runs on with every further write dropped — a path worth fuzzing in itself.
inline constexpr uint64_t CONVERT_OUTPUT_LIMIT = 4u << 20;

// The whole in-memory run: load, then write the module in its own format.
inline bool runConvert(const uint8_t* data, size_t size) {
    if (size > 0xFFFFFFFFu) return true;
    InputStream in{data, static_cast<uint32_t>(size), 0};
    Diagnostics diag;
    diag.err = nullStream();
    std::unique_ptr<SongHeader> song = loadModule(in, diag);
    if (!song) return true;
    OutputBuffer out;
    out.setLimit(CONVERT_OUTPUT_LIMIT);
    (void)writeModule(*song, out, diag);
    return true;
}

// The unpacker on arbitrary packed data, then the packer on the input taken as a body: packing
// must unpack to the same bytes and consume exactly the packed size.
inline bool runUnpack(const uint8_t* data, size_t size) {
    const uint32_t bodySize = prefixValue(data, size, 0, 4) & 0xFFFFF;
    const size_t packedSize = size > UNPACK_PREFIX ? size - UNPACK_PREFIX : 0;
    HeapArray<uint8_t> packed = exactCopy(data + (size > UNPACK_PREFIX ? UNPACK_PREFIX : size), packedSize);
    HeapArray<uint8_t> body;
    if (!body.allocate(bodySize)) return true;
    UnpackResult r = unpackBody(packed.data(), packedSize, body.data(), bodySize);
    if (r.consumed > packedSize) return false;
    if (bodySize == 0 && r.consumed != 0) return false;

    if (size == 0) return true;
    const std::vector<uint8_t> repacked = packBody(data, size);
    HeapArray<uint8_t> packedCopy = exactCopy(repacked.data(), repacked.size());
    HeapArray<uint8_t> roundTrip;
    if (!roundTrip.allocate(size)) return true;
    UnpackResult back = unpackBody(packedCopy.data(), repacked.size(), roundTrip.data(), static_cast<uint32_t>(size));
    return back.ok && back.consumed == repacked.size() && std::memcmp(roundTrip.data(), data, size) == 0;
}

// The four prediction decoders on the same stream; each result must survive its encoder: the
// values re-encoded and decoded again come back unchanged.
inline bool runPredict(const uint8_t* data, size_t size) {
    const size_t count = prefixValue(data, size, 0, 2) & 0x1FFF;
    const size_t storedSize = size > PREDICT_PREFIX ? size - PREDICT_PREFIX : 0;
    HeapArray<uint8_t> stored = exactCopy(data + (size > PREDICT_PREFIX ? PREDICT_PREFIX : size), storedSize);

    using Decoder = void (*)(const uint8_t*, size_t, int16_t*, size_t);
    using Encoder = std::vector<uint8_t> (*)(const int16_t*, size_t);
    const struct {
        Decoder decode;
        Encoder encode;
    } coders[] = {{unpackDelta8, packDelta8},
                  {unpackDelta16, packDelta16},
                  {unpackPredict8, packPredict8},
                  {unpackPredict16, packPredict16}};
    for (const auto& coder : coders) {
        HeapArray<int16_t> out, again;
        if (!out.allocate(count) || !again.allocate(count)) return true;
        coder.decode(stored.data(), storedSize, out.data(), count);
        const std::vector<uint8_t> recoded = coder.encode(out.data(), count);
        HeapArray<uint8_t> recodedCopy = exactCopy(recoded.data(), recoded.size());
        coder.decode(recodedCopy.data(), recoded.size(), again.data(), count);
        if (count && std::memcmp(out.data(), again.data(), count * sizeof(int16_t)) != 0) return false;
    }
    return true;
}

// Runs a lossy decoder twice, into a buffer first filled with 0x00 and then with 0xFF: the two
// results must be the same, so the decoder writes every byte of the buffer (audio or silence)
// and never leaves allocation contents in a module.
template <class Decode>
bool fillsWholeBuffer(size_t outBytes, Decode decode) {
    HeapArray<uint8_t> first, second;
    if (!first.allocate(outBytes) || !second.allocate(outBytes)) return true;
    if (outBytes == 0) {
        decode(nullptr);
        return true;
    }
    std::memset(first.data(), 0x00, outBytes);
    std::memset(second.data(), 0xFF, outBytes);
    decode(reinterpret_cast<int16_t*>(first.data()));
    decode(reinterpret_cast<int16_t*>(second.data()));
    return std::memcmp(first.data(), second.data(), outBytes) == 0;
}

// Rewrites the CRC of every whole Ogg page in `bytes`. A mutated page fails its CRC and libogg
// drops it unread, so without this almost no damaged packet would reach libvorbis; with it, the
// damaged headers and audio packets a crafted file can hold are decoded.
inline void fixOggCrcs(uint8_t* bytes, size_t size) {
    constexpr size_t kHeader = 27;  // fixed part; the segment table follows
    for (size_t pos = 0; pos + kHeader <= size; ++pos) {
        if (std::memcmp(bytes + pos, "OggS", 4) != 0) continue;
        ogg_page page{bytes + pos, static_cast<long>(kHeader + bytes[pos + 26]), nullptr, 0};
        if (pos + static_cast<size_t>(page.header_len) > size) break;
        for (long k = kHeader; k < page.header_len; ++k) page.body_len += bytes[pos + static_cast<size_t>(k)];
        if (pos + static_cast<size_t>(page.header_len + page.body_len) > size) break;
        page.body = page.header + page.header_len;
        ogg_page_checksum_set(&page);
        pos += static_cast<size_t>(page.header_len + page.body_len) - 1;
    }
}

// The Vorbis sample decoder, with or without borrowed header pages.
inline bool runVorbis(const uint8_t* data, size_t size) {
    const uint32_t options = prefixValue(data, size, 0, 1);
    const size_t outBytes = prefixValue(data, size, 3, 2) * 4u + ((options >> 1) & 3);
    const uint8_t* stream = data + (size > VORBIS_PREFIX ? VORBIS_PREFIX : size);
    const size_t streamSize = size > VORBIS_PREFIX ? size - VORBIS_PREFIX : 0;
    size_t headerSize = 0;
    if (options & 1) {
        headerSize = prefixValue(data, size, 1, 2);
        if (headerSize > streamSize) headerSize = streamSize;
    }
    HeapArray<uint8_t> header = exactCopy(stream, headerSize);
    HeapArray<uint8_t> stored = exactCopy(stream + headerSize, streamSize - headerSize);
    if (options & 8) {
        fixOggCrcs(header.data(), headerSize);
        fixOggCrcs(stored.data(), streamSize - headerSize);
    }
    return fillsWholeBuffer(outBytes, [&](int16_t* out) {
        decodeVorbisSample(header.data(), headerSize, stored.data(), streamSize - headerSize, out, outBytes);
    });
}

// The Layer III sample decoder.
inline bool runLayer3(const uint8_t* data, size_t size) {
    const auto codecParam = static_cast<uint16_t>(prefixValue(data, size, 0, 2));
    const size_t outBytes = prefixValue(data, size, 2, 2) * 4u + (prefixValue(data, size, 4, 1) & 3);
    const size_t storedSize = size > LAYER3_PREFIX ? size - LAYER3_PREFIX : 0;
    HeapArray<uint8_t> stored = exactCopy(data + (size > LAYER3_PREFIX ? LAYER3_PREFIX : size), storedSize);
    return fillsWholeBuffer(outBytes, [&](int16_t* out) {
        decodeLayer3Sample(stored.data(), storedSize, codecParam, out, outBytes);
    });
}

// Track walks: a cursor asked every row and a cursor asked every step-th row must give exactly
// what cellAt gives; every group found is translated for each target format.
inline bool runTracks(const uint8_t* data, size_t size) {
    const uint32_t options = prefixValue(data, size, 0, 1);
    const size_t trackSize = size > TRACKS_PREFIX ? size - TRACKS_PREFIX : 0;
    HeapArray<uint8_t> track = exactCopy(data + (size > TRACKS_PREFIX ? TRACKS_PREFIX : size), trackSize);
    const uint8_t* bytes = track.data();

    // Rows the groups cover, so the walk reaches past the last group; bounded so the quadratic
    // cellAt reference stays cheap.
    uint64_t covered = 0;
    for (size_t pos = 0; pos < trackSize && bytes[pos] != 0;) {
        const size_t len = 1 + 2 * static_cast<size_t>(bytes[pos] & 0x0F);
        if (len > trackSize - pos) break;
        covered += bytes[pos] >> 4;
        pos += len;
    }
    const uint32_t lastRow = static_cast<uint32_t>(covered + 2 < 4096 ? covered + 2 : 4096);

    Diagnostics diag;
    diag.err = nullStream();
    diag.silentCount = (options & 4) ? 1 : 0;
    const Target targets[] = {Target::IT, Target::S3M, Target::MODMTM, Target::XM};

    const uint32_t step = (options & 3) + 1;
    TrackCursor every(bytes, trackSize), stepped(bytes, trackSize);
    for (uint32_t row = 0; row <= lastRow; ++row) {
        const TrackGroup expected = cellAt(bytes, trackSize, row);
        if (every.at(row).bytes != expected.bytes) return false;
        if (row % step == 0 && stepped.at(row).bytes != expected.bytes) return false;
        if (expected) {
            if (expected.bytes < bytes || expected.bytes + 1 + 2 * expected.pairCount() > bytes + trackSize) return false;
            for (Target target : targets) {
                EventCell cell;
                translateEvent(cell, expected, TranslateContext{target, &diag});
            }
        }
    }
    // Far beyond every group, both walks agree the row is empty.
    if (cellAt(bytes, trackSize, 0xFFFFFFFFu) || every.at(0xFFFFFFFFu) || stepped.at(0xFFFFFFFFu)) return false;
    return true;
}

// The encoder's side: any bytes through format detection and the module readers, then the
// writers. What a reader takes must write within bounds, and the written file must read again.
inline bool runReaders(const uint8_t* data, size_t size) {
    HeapArray<uint8_t> file = exactCopy(data, size);
    ReadResult read = readModule(file.data(), size);
    if (!read.song) return !read.error.empty();
    Diagnostics diag;
    diag.err = nullStream();
    OutputBuffer out;
    out.setLimit(CONVERT_OUTPUT_LIMIT);
    if (!writeModule(*read.song, out, diag) || out.failed()) return true;
    HeapArray<uint8_t> written = exactCopy(out.outputData(), out.outputSize());
    return readModule(written.data(), out.outputSize()).song != nullptr;
}

}  // namespace deqaz::fuzz
