#pragma once
// Module readers: IT, XM, S3M, MOD and MTM files into the in-memory module model, the inverse of
// the writers. Patterns become run-length tracks (identical tracks shared), effects become the
// container's command numbers so that writing the module back gives the source's effects, and
// sample data becomes 16-bit PCM (8-bit points as value * 256).
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "container/module.hpp"
#include "container/track_encoder.hpp"

namespace deqaz {

struct ReadResult {
    std::unique_ptr<SongHeader> song;  // null when the file is not a module that can be read
    std::string error;                 // why, when song is null
    std::vector<std::string> warnings; // constructs that were clamped or dropped
};

// Detects the format from the file's signature and reads it.
ReadResult readModule(const uint8_t* data, size_t size);

ReadResult readIt(const uint8_t* data, size_t size);
ReadResult readXm(const uint8_t* data, size_t size);
ReadResult readS3m(const uint8_t* data, size_t size);
ReadResult readMod(const uint8_t* data, size_t size);
ReadResult readMtm(const uint8_t* data, size_t size);

// Collects pattern cells and turns them into the module's tracks and pattern tables: each
// channel of each pattern becomes a track, and identical tracks are stored once.
class PatternBuilder {
public:
    explicit PatternBuilder(unsigned channels) : channels_(channels) {}

    // Starts a new pattern of `rows` rows; cells default to empty.
    void beginPattern(unsigned rows);
    // The commands of one cell of the current pattern (at most 15 are kept).
    TrackRow& cell(unsigned row, unsigned channel);
    // Moves the tracks and tables into the song (sets trackCount, patternCount, patternRows,
    // patternTracks, tracks). Track 0 is always the empty track. False when there are more
    // distinct tracks than a 16-bit count holds.
    bool finish(SongHeader& song);

private:
    void flushPattern();

    unsigned channels_;
    unsigned rows_ = 0;
    bool open_ = false;
    std::vector<TrackRow> grid_;
    std::vector<std::vector<uint8_t>> tracks_{{0}};
    std::vector<uint16_t> patternRows_;
    std::vector<uint16_t> patternTracks_;
    std::map<std::vector<uint8_t>, uint16_t> lookup_{{{0}, 0}};  // track bytes -> index
};

// Bounded little-endian reading of a module file: reads past the end yield zeros and set
// `overrun`, so a truncated file is detected without reading outside it.
class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    size_t size() const { return size_; }
    size_t pos() const { return pos_; }
    void seek(size_t pos) { pos_ = pos; }
    bool overrun() const { return overrun_; }
    bool has(size_t count) const { return pos_ <= size_ && size_ - pos_ >= count; }
    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    uint16_t u16be();
    void bytes(void* dest, size_t count);
    std::string text(size_t width);  // a fixed-width name field, cut at its first zero byte
    const uint8_t* at(size_t pos) const { return pos < size_ ? data_ + pos : nullptr; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    bool overrun_ = false;
};

}  // namespace deqaz
