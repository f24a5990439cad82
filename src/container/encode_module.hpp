#pragma once
// Packing a module file held in memory into a QAZ file: read it, give every sample the chosen
// coding, write the container. What qaz does per file, and what the library's packing call does.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "container/qaz_writer.hpp"

namespace deqaz {

struct EncodeSettings {
    // The lossless coding every sample with data of its own gets, or AUTO: the smallest for each.
    static constexpr uint16_t AUTO = 0xFFFF;
    uint16_t lossless = AUTO;
    QazWriteOptions write;  // lossy coding, container version
};

// Parses a coding as the command line gives it: "auto", "raw", "delta", "predict",
// "vorbis[:QUALITY]" (-0.1 to 1.0, header pages shared between samples) or "mp3[:KBPS]" (8 to
// 320). False, `settings` unchanged, for anything else (a bad or trailing value included).
bool parseCoding(const std::string& text, EncodeSettings& settings);

struct EncodeResult {
    std::unique_ptr<SongHeader> song;  // the module as read (null when it could not be)
    std::vector<std::string> warnings; // what the reader clamped or dropped
    std::vector<uint8_t> qaz;          // the QAZ file; empty on failure
    std::string error;                 // why, on failure
    int code = 0;                      // 0, 2 not a module that can be read, 3 a sample not encodable
};

EncodeResult encodeModule(const uint8_t* data, size_t size, const EncodeSettings& settings);

}  // namespace deqaz
