#pragma once
// The QAZ writer: serialises an in-memory module into a QAZ file (header, packed body, stored
// sample data), the inverse of loading. Sample data is coded by each sample's flags: raw, delta
// or second-order prediction coding from its PCM; lossy samples take their coded stream from
// the options. A sample with a negative storedSize is a copy and stores nothing.
#include <cstdint>
#include <optional>
#include <vector>

#include "container/module.hpp"

namespace deqaz {

struct QazWriteOptions {
    uint8_t version = 5;  // 4 or 5 (0-4 share one layout)
    // Per sample index: coded bytes to store as they stand (lossy streams). A sample with
    // coded data gets storedSize = its size.
    std::vector<std::optional<std::vector<uint8_t>>> codedData;
};

// Builds the unpacked body: strings, song header, orders, pattern tables, tracks, instruments,
// samples and the extra chunk list. Records are stored as the module holds them, except each
// sample's storedSize, which `storedSizes` supplies (one per sample), and, before version 5,
// the logarithmic frequency form of IT modules with linear slides (unless `encodeFrequency`
// is false, which stores the field as held).
std::vector<uint8_t> buildBody(const SongHeader& song, uint8_t version, const std::vector<int32_t>& storedSizes,
                               bool encodeFrequency = true);

// A QAZ file from an unpacked body and the sample data that follows it.
std::vector<uint8_t> assembleQaz(const std::vector<uint8_t>& body, uint8_t version, const std::vector<uint8_t>& sampleData);

// The stored data of one sample, coded by its flags from its PCM (raw left then right channel;
// prediction coding of 2 * length planar values for stereo).
std::vector<uint8_t> codeSampleData(const SampleRecord& sample);

// The whole QAZ file.
std::vector<uint8_t> writeQaz(const SongHeader& song, const QazWriteOptions& options = {});

}  // namespace deqaz
