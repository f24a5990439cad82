#pragma once
// Writer dispatch and the per-format writers. Each writer appends a whole module file to the
// output buffer, reading the loaded module and leaving it as it was, so writing it twice gives
// the same bytes; none can fail (a buffer that cannot grow is reported by the buffer itself).
// What a format has no room for is recorded in the diagnostics' notes, never printed.
#include "common/diagnostics.hpp"
#include "container/module.hpp"
#include "container/track.hpp"
#include "writers/output_buffer.hpp"

namespace deqaz {

struct WriteContext {
    const SongHeader& song;
    OutputBuffer& out;
    Diagnostics& diag;
    // Two header bytes as players need them rather than as this converter has always written
    // them: MTM beats per track 64 (not 0), S3M empty sample slots typed 0 (not 1). Each fix
    // applied is noted.
    bool forPlayers = false;
};

// Resets the buffer and runs the writer chosen by the origin flags. Returns false only when the
// output buffer failed (no memory, or output past 32-bit offsets).
bool writeModule(const SongHeader& song, OutputBuffer& out, Diagnostics& diag, bool forPlayers = false);

void writeIt(WriteContext& ctx);
void writeXm(WriteContext& ctx);
void writeMod(WriteContext& ctx);
void writeMtm(WriteContext& ctx);
void writeS3m(WriteContext& ctx);

// The writer writeModule runs for a song flag word: the first origin flag set in the order IT,
// S3M, MOD, MTM decides; none is XM.
using WriterFn = void (*)(WriteContext&);
WriterFn writerFor(uint32_t songFlags);

// MIDI configuration block (4896 bytes) and the extension blocks (FX00..FX19, CHFX).
void writeMidiConfig(const SongHeader& song, OutputBuffer& out);
void writeExtensionBlocks(const SongHeader& song, OutputBuffer& out);

// A cursor over the track that plays `channel` of `pattern`: one per channel keeps a pattern
// rebuild linear in the track length. An empty cursor (every row empty) when the pattern table
// or the track list does not hold it.
TrackCursor patternCursor(const SongHeader& song, unsigned pattern, unsigned channel);

// A sample's name, or, when it has none, the name of the instrument with the same index (the MOD,
// MTM and S3M writers' rule).
const std::string& sampleNameOrInstrument(const SongHeader& song, unsigned index);

// Bounded name copy: at most `width` bytes, zero-padded, unterminated when full.
void copyName(uint8_t* field, size_t width, const std::string& name);

}  // namespace deqaz
