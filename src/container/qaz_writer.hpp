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

enum class LossyCoding { None, Vorbis, Layer3 };

struct QazWriteOptions {
    uint8_t version = 5;  // 4 or 5 (0-4 share one layout)
    // Lossy coding for samples with data of its own (their flags then become SF_COMPRESSED;
    // the sample's own coding flags are replaced).
    LossyCoding lossy = LossyCoding::None;
    float vorbisQuality = 0.4f;   // libvorbis VBR quality, -0.1 to 1.0
    bool shareVorbisHeaders = false;  // later samples borrow the first compatible sample's header pages
    int layer3Bitrate = 128;      // kbit/s
    // Lossy coding only where the stream is smaller than the sample's own lossless coding;
    // false codes every sample lossily whatever it costs.
    bool lossyOnlyWhenSmaller = true;
    // Per sample index: coded bytes to store as they stand (a lossy stream made elsewhere). A
    // sample with coded data gets storedSize = its size; its flags and codecParam are kept.
    std::vector<std::optional<std::vector<uint8_t>>> codedData;
};

// How one sample is stored: the record fields the storage decides, and the stored bytes.
struct SampleStorage {
    int32_t storedSize = 0;
    uint16_t flags = 0;
    uint16_t codecParam = 0;
    int16_t headerSource = 0;
    std::vector<uint8_t> data;
};

// Decides every sample's storage: copies keep their negative storedSize, coded data from the
// options is stored as it stands, lossy coding encodes the PCM, and otherwise the sample's own
// flags choose raw or prediction coding. False when a lossy encoder refuses a sample.
bool planSampleStorage(const SongHeader& song, const QazWriteOptions& options, std::vector<SampleStorage>& out);

// Builds the unpacked body: strings, song header, orders, pattern tables, tracks, instruments,
// samples and the extra chunk list. Records are stored as the module holds them, except the
// fields `storage` decides (one entry per sample; missing entries keep the record's own), and, before version 5,
// the logarithmic frequency form of IT modules with linear slides (unless `encodeFrequency`
// is false, which stores the field as held).
std::vector<uint8_t> buildBody(const SongHeader& song, uint8_t version, const std::vector<SampleStorage>& storage,
                               bool encodeFrequency = true);

// A QAZ file from an unpacked body and the sample data that follows it.
std::vector<uint8_t> assembleQaz(const std::vector<uint8_t>& body, uint8_t version, const std::vector<uint8_t>& sampleData);

// The stored data of one sample, coded by its flags from its PCM (raw left then right channel;
// prediction coding of 2 * length planar values for stereo).
std::vector<uint8_t> codeSampleData(const SampleRecord& sample);

// Gives each sample with data of its own the smallest lossless coding: raw, delta or
// second-order prediction, whichever stores fewest bytes (on a tie the first of them in that
// order, so raw, which needs no decoding, wins any tie). A sample whose length, layout and PCM
// repeat an earlier sample's becomes a copy of it and stores nothing.
void chooseSmallestLossless(SongHeader& song);

// The whole QAZ file; empty when a lossy encoder refuses a sample.
std::vector<uint8_t> writeQaz(const SongHeader& song, const QazWriteOptions& options = {});

}  // namespace deqaz
