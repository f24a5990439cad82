#pragma once
// Building small in-memory modules for tests: a song with plausible defaults, tracks from raw
// bytes or from rows of commands, patterns from a grid of cells, samples with generated PCM, and
// running a writer into a fresh output buffer with its messages captured.
#include <cstdint>
#include <string>
#include <vector>

#include "container/module.hpp"
#include "container/track_encoder.hpp"
#include "writers/writers.hpp"

namespace deqaz::test {

// Command pairs for track rows.
inline TrackCommand note(uint8_t n) { return {CMD_NOTE, n}; }
inline TrackCommand instrument(uint8_t i) { return {CMD_INSTRUMENT, i}; }
inline TrackCommand cmd(uint8_t command, uint8_t parameter) { return {command, parameter}; }

// A song with the given flags and channels: speed 6, tempo 125, global volume 128, separation
// 128, channel volume 64 and pan 128 everywhere; no orders, patterns, tracks or records.
SongHeader makeSong(uint32_t flags, unsigned channels);
// The same with track 0 the empty track, one 64-row pattern playing it on every channel, order 0.
SongHeader makeOnePatternSong(uint32_t flags, unsigned channels);

// Appends a track made of exactly these bytes (the caller includes the terminator) or encoded
// from rows; returns its index and keeps trackCount in step.
uint16_t addTrackBytes(SongHeader& song, const std::vector<uint8_t>& bytes);
uint16_t addTrackRows(SongHeader& song, const std::vector<TrackRow>& rows);

// Rows x channels of cells, each a list of command pairs (empty: nothing in the cell).
class PatternGrid {
public:
    PatternGrid(unsigned rows, unsigned channels) : rows_(rows), channels_(channels), cells_(size_t{rows} * channels) {}
    TrackRow& at(unsigned row, unsigned channel) { return cells_.at(size_t{row} * channels_ + channel); }
    const TrackRow& at(unsigned row, unsigned channel) const { return cells_.at(size_t{row} * channels_ + channel); }
    unsigned rows() const { return rows_; }
    unsigned channels() const { return channels_; }

private:
    unsigned rows_;
    unsigned channels_;
    std::vector<TrackRow> cells_;
};

// Appends a pattern of `rows` rows whose channel c plays track tracks[c] (one per channel);
// returns its index and keeps patternCount in step.
unsigned addPattern(SongHeader& song, uint16_t rows, const std::vector<uint16_t>& tracks);
// Encodes every channel of the grid as a new track and appends the pattern.
unsigned addPattern(SongHeader& song, const PatternGrid& grid);

void setOrders(SongHeader& song, const std::vector<uint8_t>& orders);

// Gives the sample `length` frames of a deterministic wandering signal derived from `seed` (both
// channels for SF_STEREO; an 8-bit sample's values in the high byte, as decoding leaves them).
void fillPcm(SampleRecord& smp, uint32_t seed);
// Appends a sample with fillPcm's data. The reference stays valid until the next sample is added.
SampleRecord& addSample(SongHeader& song, uint16_t flags, uint32_t length, unsigned seed = 1);
// The same with SF_LOOP added and the loop set.
SampleRecord& addLoopedSample(SongHeader& song, uint16_t flags, uint32_t length, uint32_t loopStart, uint32_t loopEnd,
                              unsigned seed = 1);
// Appends an instrument with every note mapped to itself and to no sample.
InstrumentRecord& addInstrument(SongHeader& song);

// Name and message, orders, three patterns over shared tracks, two instruments with envelopes,
// samples of every lossless coding (raw 8/16-bit, delta, second-order, stereo raw and coded), a
// copy, an empty sample, loops, and extra chunks with channelFx (rich_module.cpp).
SongHeader makeRichModule(uint32_t originFlags = SH_ORIGIN_IT | SH_IT_INSTRUMENTS | SH_LINEAR_SLIDES);

// Diagnostics whose message stream is a temporary file; text() reads back what was printed.
class MessageCapture {
public:
    explicit MessageCapture(int silentCount = 0);
    ~MessageCapture();
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;
    std::string text() const;
    Diagnostics diag;
};

// Output of one writer run: the file bytes and what went to the message stream.
struct WriteResult {
    std::vector<uint8_t> bytes;
    std::string messages;
    std::vector<std::string> notes;  // the diagnostics' notes
    bool failed = false;
};
// Runs writeModule: the writer of the song's origin.
WriteResult runWriteModule(const SongHeader& song, int silentCount = 0);

}  // namespace deqaz::test
