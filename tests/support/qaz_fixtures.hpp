#pragma once
// Modules for tests that go through a QAZ file: one using every record kind, and the check that a
// loaded module holds everything the written one did.
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

// Compares everything loading restores (PCM included); reports differences as test failures.
void expectSameModule(const SongHeader& expected, const SongHeader& actual);

}  // namespace deqaz::test
