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
#include <utility>
#include <vector>

#include "container/module.hpp"
#include "container/track_encoder.hpp"

namespace deqaz {

struct ReadResult {
    std::unique_ptr<SongHeader> song;  // null when the file is not a module that can be read
    std::string error;                 // why, when song is null
    std::vector<std::string> warnings; // constructs that were clamped or dropped
    bool otherFormat = false;          // null because the file is not of the reader's format
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
    // The data at `pos`; the end itself is a valid place to read zero bytes from.
    const uint8_t* at(size_t pos) const { return pos <= size_ ? data_ + pos : nullptr; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    bool overrun_ = false;
};

// A reader's warnings: each distinct text is kept once, in the order first met, with the number
// of times it was met ("text (N times)" when more than once), so a construct repeated in every
// cell of a song gives one line.
class ReadWarnings {
public:
    void add(const std::string& text, unsigned times = 1);
    // The read's result: the song, with these warnings.
    ReadResult result(std::unique_ptr<SongHeader> song);

private:
    std::vector<std::pair<std::string, unsigned>> items_;
    std::map<std::string, size_t> index_;
};

// A new song of the given origin flags and channel count with the defaults of the formats that
// store none: speed 6, tempo 125, global and channel volumes 64.
std::unique_ptr<SongHeader> newSong(uint32_t flags, unsigned channels);

// Makes a sample's loop fit its data the way loading a container does: a loop end past the
// sample's length is cut to it, and a loop that is then empty is switched off (likewise the
// sustain loop). A sample of length 0 is left alone. True when a loop end was cut.
bool fitLoops(SampleRecord& sample);

// Shared by the IT and S3M readers, whose effect letters are the same (A = 1 ... Z = 26).
// Appends to `row` the track commands that the IT/S3M effect translation turns back into this
// letter and parameter in the effect column (K and L become vibrato or tone portamento followed
// by a volume slide, which the translation merges). False for a letter outside A..Z.
bool appendItEffect(TrackRow& row, uint8_t letter, uint8_t parameter);
// Appends the command for an IT volume-column byte; false for a byte no command can hold (255).
bool appendItVolume(TrackRow& row, uint8_t volume);

// How a sample's raw data is laid out: points of 8 or 16 bits, signed or unsigned, 16-bit ones
// little- or big-endian, optionally stored as deltas; a stereo sample holds its left channel
// whole, then its right one.
struct RawPcmLayout {
    bool sixteenBit = false;
    bool stereo = false;
    bool isSigned = true;
    bool bigEndian = false;
    bool delta = false;
    bool keepLength = false;  // a file that ends early pads the sample with silence instead
};

// Reads `smp.length` frames of raw data at `offset` into smp.pcm (16-bit, 8-bit points as
// value * 256). A file that ends early shortens the sample to the frames of its first channel
// that are present, or with `keepLength` keeps it (missing frames and a missing right channel read
// as silence), and sets `truncated`. False only when a buffer cannot be allocated.
bool readRawSample(const uint8_t* data, size_t size, size_t offset, const RawPcmLayout& layout, SampleRecord& smp,
                   bool& truncated);

// ModPlug's 4-bit ADPCM sample packing, used in IT, XM, S3M and MOD files: a table of 16 signed
// deltas, then two points a byte (low nibble first), each the previous point plus its nibble's
// delta in 8-bit arithmetic. Decodes `points` points as 16-bit values; the table and
// (points + 1) / 2 bytes after it must be present.
void decodeAdpcm4(const uint8_t* table, size_t points, int16_t* out);
inline constexpr size_t ADPCM_TABLE = 16;

// An 8-bit mono sample of smp.length points packed as above at `offset`; a file that ends early
// leaves the points whose bytes are present (none without the whole table) and sets `cut`.
// False when memory runs out.
bool readAdpcmSample(const uint8_t* data, size_t size, size_t offset, SampleRecord& smp, bool& cut);

}  // namespace deqaz
