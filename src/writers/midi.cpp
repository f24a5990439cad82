#include <algorithm>
#include <cstdio>
#include <cstring>

#include "writers/writers.hpp"

namespace deqaz {

namespace {

constexpr size_t MACRO_ENTRY_SIZE = 32;
constexpr size_t GLOBAL_MACROS = 9;
constexpr size_t SFX_MACROS = 16;
constexpr size_t ZXX_MACROS = 128;
constexpr size_t MIDI_CONFIG_SIZE = (GLOBAL_MACROS + SFX_MACROS + ZXX_MACROS) * MACRO_ENTRY_SIZE;
static_assert(MIDI_CONFIG_SIZE == 4896);

// IT's standard global macros: start, stop, (tick), note on, note off, (volume), (pan), (bank),
// program change.
constexpr const char* DEFAULT_MIDI_GLOBALS[GLOBAL_MACROS] = {"FF", "FC", "", "9c n v", "9c n 0", "", "", "", "Cc p"};

// Appends `size` bytes of which the first `available` come from `data`, the rest zero, so a
// block always matches the size in its header.
void appendPadded(OutputBuffer& out, const uint8_t* data, size_t available, uint32_t size) {
    const size_t copied = std::min<size_t>(available, size);
    if (copied) out.appendOutput(data, copied);
    out.skip(size - copied);
}

}  // namespace

void writeMidiConfig(const SongHeader& song, OutputBuffer& out) {
    char block[MIDI_CONFIG_SIZE] = {};
    char* entry = block;
    for (const char* text : DEFAULT_MIDI_GLOBALS) {
        std::memcpy(entry, text, std::strlen(text));
        entry += MACRO_ENTRY_SIZE;
    }
    // The stored slots keep only the byte that varies; the texts are rebuilt around it. The
    // numbers are printed from signed 32-bit values, so a slot below its bias prints as the
    // eight digits of its two's complement.
    for (uint8_t v : song.sfxMacro) {
        if (v) std::snprintf(entry, MACRO_ENTRY_SIZE, "F0F0%02xz", static_cast<unsigned>(int32_t{v} - 1));
        entry += MACRO_ENTRY_SIZE;
    }
    for (uint16_t w : song.zxxMacro) {
        if (w) std::snprintf(entry, MACRO_ENTRY_SIZE, "F0F0%04x", static_cast<unsigned>(int32_t{w} - 256));
        entry += MACRO_ENTRY_SIZE;
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
