#pragma once
// Loading QAZ files in tests, and comparing two modules: what a loaded module must hold of the
// written one, and what a module read again from its written copy must hold of the first.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "container/module.hpp"
#include "support/module_builder.hpp"

namespace deqaz::test {

// Loads a QAZ file held in memory as the program does (its messages captured, not shown).
struct Loaded {
    std::unique_ptr<SongHeader> song;
    std::string error;  // the failure message when `song` is null
};
Loaded loadQaz(const uint8_t* data, size_t size);
inline Loaded loadQaz(const std::vector<uint8_t>& file) { return loadQaz(file.data(), file.size()); }

// The commands of one cell, decoded from the module's track for that pattern and channel.
std::vector<TrackCommand> cellCommands(const SongHeader& song, unsigned pattern, unsigned row, unsigned channel);

// The first difference between two modules, or "": every stored record field, names, message,
// orders, pattern tables, track bytes, instruments, sample PCM and the extension chunks.
std::string moduleDifference(const SongHeader& a, const SongHeader& b);

}  // namespace deqaz::test
