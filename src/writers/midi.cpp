#include <algorithm>
#include <cstdio>
#include <cstring>

#include "formats/midi_config.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

using midi::ENTRY_SIZE;

// Appends `size` bytes of which the first `available` come from `data`, the rest zero, so a
// block always matches the size in its header.
void appendPadded(OutputBuffer& out, const uint8_t* data, size_t available, uint32_t size) {
    const size_t copied = std::min<size_t>(available, size);
    if (copied) out.appendOutput(data, copied);
    out.skip(size - copied);
}

}  // namespace

void writeMidiConfig(const SongHeader& song, OutputBuffer& out) {
    char block[midi::BLOCK_SIZE] = {};
    char* entry = block;
    for (const char* text : midi::DEFAULT_GLOBALS) {
        std::memcpy(entry, text, std::strlen(text));
        entry += ENTRY_SIZE;
    }
    // The stored slots keep only the byte that varies; the texts are rebuilt around it. The
    // numbers are printed from signed 32-bit values, so a slot below its bias prints as the
    // eight digits of its two's complement.
    for (uint8_t v : song.sfxMacro) {
        if (v) std::snprintf(entry, ENTRY_SIZE, "F0F0%02xz", static_cast<unsigned>(int32_t{v} - 1));
        entry += ENTRY_SIZE;
    }
    for (uint16_t w : song.zxxMacro) {
        if (w) std::snprintf(entry, ENTRY_SIZE, "F0F0%04x", static_cast<unsigned>(int32_t{w} - 256));
        entry += ENTRY_SIZE;
    }
    out.appendOutput(block, sizeof block);
}

void writeExtensionBlocks(const SongHeader& song, OutputBuffer& out) {
    for (int k = 0; k < MAX_CHUNK_SLOTS; ++k) {
        const ChunkSlot& slot = song.fxSlots[k];
        if (!slot.present && !slot.data) continue;  // a size without data is no block
        const char id[4] = {'F', 'X', static_cast<char>('0' + k / 10), static_cast<char>('0' + k % 10)};
        out.appendOutput(id, 4);
        out.put32(slot.size);
        appendPadded(out, slot.data.data(), slot.data.size(), slot.size);
    }
    if (song.channelFx) {
        const uint32_t size = static_cast<uint32_t>(song.channels) * 4;
        out.appendOutput("CHFX", 4);
        out.put32(size);
        appendPadded(out, song.channelFx.data(), song.channelFx.size(), size);
    }
}

}  // namespace deqaz
