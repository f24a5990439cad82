#pragma once
// The MIDI configuration block of IT files (and of ModPlug's "MIDI" chunk in XM files): nine
// global macro texts, 16 parametered (SFx) and 128 fixed (Zxx) macro texts, 32 bytes each. The
// module keeps, of each parametered macro, the byte of "F0F0xxz" and, of each fixed macro, the
// number of "F0F0xxxx"; the globals are always written as IT's defaults.
#include <cstddef>
#include <cstdint>

#include "container/module.hpp"

namespace deqaz::midi {

inline constexpr size_t ENTRY_SIZE = 32;
inline constexpr size_t GLOBALS = 9, SFX_MACROS = 16, ZXX_MACROS = 128;
inline constexpr size_t BLOCK_SIZE = (GLOBALS + SFX_MACROS + ZXX_MACROS) * ENTRY_SIZE;
static_assert(BLOCK_SIZE == 4896);

// IT's standard global macros: start, stop, (tick), note on, note off, (volume), (pan), (bank),
// program change.
inline constexpr const char* DEFAULT_GLOBALS[GLOBALS] = {"FF", "FC", "", "9c n v", "9c n 0", "", "", "", "Cc p"};

// Reads the block's first `size` bytes (the rest reads as zeros) into the song's macro slots.
// Returns how many texts the module cannot hold (globals other than the defaults, macros of
// other forms); those are dropped.
unsigned readConfig(const uint8_t* block, size_t size, SongHeader& song);

}  // namespace deqaz::midi
