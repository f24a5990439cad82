#pragma once
// Hostile QAZ inputs, made from a sound file by cutting, flipping and lying about sizes and
// counts: shared by the hostile-input tests (right message, no crash) and the benchmark that
// times each case and measures its peak memory.
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "common/endian.hpp"
#include "container/qaz_writer.hpp"

namespace deqaz::hostile {

inline constexpr const char* BROKEN = "Something is wrong with this file!";
inline constexpr const char* NOT_QAZ = "This is not a QAZ file!";
inline constexpr const char* ANY = "";  // any failure message, or a successful load

struct Case {
    std::string name;
    std::vector<uint8_t> file;
    const char* expectedError;  // null: the file loads (damage the format tolerates)
};

// The smallest module these cases start from: one channel, one pattern over the empty track,
// one raw 8-bit sample of 64 frames whose data follows the body; no names, no message.
inline SongHeader oneSampleSong(uint32_t flags = SH_ORIGIN_IT) {
    SongHeader song;
    song.flags = flags;
    song.channels = 1;
    song.orderCount = song.patternCount = song.trackCount = 1;
    (void)song.orders.allocZeroed(1);
    (void)song.patternTracks.allocZeroed(1);
    (void)song.patternRows.allocZeroed(1);
    song.patternRows[0] = 64;
    song.tracks.resize(1);
    const uint8_t end = 0;
    (void)song.tracks[0].dupBuffer(&end, 1);
    SampleRecord& s = song.samples.emplace_back();
    s.length = 64;
    song.sampleCount = 1;
    return song;
}

// Body offsets in a version 5 body of oneSampleSong (empty name and message, no chunks).
inline constexpr size_t HEADER_AT = 2;
inline size_t sampleRecordAt(const std::vector<uint8_t>& body) { return body.size() - SAMPLE_STORED_SIZE; }
inline size_t trackCountAt(const std::vector<uint8_t>& body) { return sampleRecordAt(body) - 2 - 1 - 4; }

// A version 5 file of oneSampleSong whose body `patch` has changed before packing.
template <class Patch>
std::vector<uint8_t> patchedFile(Patch patch, uint32_t flags = SH_ORIGIN_IT) {
    SongHeader song = oneSampleSong(flags);
    std::vector<uint8_t> body = buildBody(song, 5, {});
    patch(body);
    return assembleQaz(body, 5, std::vector<uint8_t>(64, 0x40));
}

// Every case, from the sound file `good`, a version 5 QAZ file.
inline std::vector<Case> makeCases(const std::vector<uint8_t>& good) {
    std::vector<Case> cases;
    const size_t bodyEnd = 12 + rd32le(good.data() + 8);

    // Cut at every sixteenth: inside the header or packed body the load fails; inside the sample
    // data it succeeds with the missing data silent.
    for (int k = 1; k < 16; ++k) {
        size_t cut = good.size() * k / 16;
        const char* expected = cut < 12 ? NOT_QAZ : cut < bodyEnd ? BROKEN : nullptr;
        cases.push_back({"cut at " + std::to_string(k) + "/16", {good.begin(), good.begin() + static_cast<long>(cut)}, expected});
    }
    // Random bit flips: any message, or a load, but never a crash.
    std::mt19937 rng(2024);
    for (int k = 0; k < 16; ++k) {
        std::vector<uint8_t> f = good;
        for (int flips = 0; flips <= k; ++flips) f[rng() % f.size()] ^= static_cast<uint8_t>(1u << (rng() % 8));
        cases.push_back({"bit flips " + std::to_string(k), std::move(f), ANY});
    }
    std::vector<uint8_t> huge = good;
    wr32le(huge.data() + 4, 0xFFFFFFF0u);
    cases.push_back({"huge unpackedSize", std::move(huge), BROKEN});

    // Counts far beyond the body: the missing records read as zeros, nothing large is decoded.
    cases.push_back({"huge counts", patchedFile([](std::vector<uint8_t>& b) {
                         b[HEADER_AT] = 255;  // channels
                         for (size_t at : {1, 7, 9, 11}) wr16le(&b[HEADER_AT + at], 0xFFFF);
                     }), nullptr});
    // ... but patterns are written out row by row: 65,535 of them on 255 channels would be
    // gigabytes of empty rows from a few bytes.
    cases.push_back({"huge pattern count", patchedFile([](std::vector<uint8_t>& b) {
                         b[HEADER_AT] = 255;
                         wr16le(&b[HEADER_AT + 5], 0xFFFF);
                     }, SH_ORIGIN_MOD), BROKEN});
    cases.push_back({"huge sample length", patchedFile([](std::vector<uint8_t>& b) {
                         wr32le(&b[sampleRecordAt(b) + 8], 0xFFFFFFF0u);
                     }), BROKEN});
    cases.push_back({"huge stereo coded sample", patchedFile([](std::vector<uint8_t>& b) {
                         wr32le(&b[sampleRecordAt(b) + 8], 0x40000000u);
                         wr16le(&b[sampleRecordAt(b) + 20], SF_DELTA | SF_STEREO | SF_16BIT);
                         wr32le(&b[sampleRecordAt(b) + 35], 64);
                     }), BROKEN});
    cases.push_back({"track length past the end", patchedFile([](std::vector<uint8_t>& b) {
                         wr32le(&b[trackCountAt(b)], 0x7FFFFFFFu);
                     }), nullptr});
    cases.push_back({"copy source outside the table", patchedFile([](std::vector<uint8_t>& b) {
                         wr32le(&b[sampleRecordAt(b) + 35], static_cast<uint32_t>(-5));
                     }), BROKEN});
    cases.push_back({"chunk count past the end", patchedFile([](std::vector<uint8_t>& b) {
                         // The empty chunk list (flag byte, terminator) becomes one chunk that
                         // claims 4 GiB and holds 3 bytes.
                         b.pop_back();
                         for (uint8_t x : {1, 0xFF, 0xFF, 0xFF, 0xFF, 7, 8, 9}) b.push_back(x);
                     }, SH_ORIGIN_IT | SH_EXTRA_CHUNKS), nullptr});
    cases.push_back({"stored size past the end", patchedFile([](std::vector<uint8_t>& b) {
                         wr16le(&b[sampleRecordAt(b) + 20], SF_PREDICT | SF_16BIT);
                         wr32le(&b[sampleRecordAt(b) + 35], 0x7FFFFFFFu);
                     }), nullptr});
    return cases;
}

}  // namespace deqaz::hostile
