#pragma once
// A written module file held for checking byte by byte: every read is bounds-checked (a read past
// the end throws, failing the test rather than reading outside the buffer) and the writer's
// messages come with it. Format views derive from FileView and add where their sections lie.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/endian.hpp"
#include "support/module_builder.hpp"

namespace deqaz::test {

using Bytes = std::vector<uint8_t>;

struct FileView {
    Bytes b;
    std::string messages;
    std::vector<std::string> notes;

    void need(size_t o, size_t n) const {
        if (o > b.size() || n > b.size() - o) throw std::out_of_range("read past the written file");
    }
    uint8_t u8(size_t o) const { return need(o, 1), b[o]; }
    uint16_t u16(size_t o) const { return need(o, 2), rd16le(&b[o]); }
    uint32_t u32(size_t o) const { return need(o, 4), rd32le(&b[o]); }
    uint16_t u16be(size_t o) const { return need(o, 2), rd16be(&b[o]); }
    Bytes bytes(size_t o, size_t n) const { return need(o, n), Bytes(b.begin() + o, b.begin() + o + n); }
    std::string text(size_t o, size_t n) const { return need(o, n), std::string(b.begin() + o, b.begin() + o + n); }
};

// Runs the writer of the song's origin, which must not fail the output buffer, and views the result.
template <class View = FileView>
View writeFile(const SongHeader& song, int silentCount = 0) {
    WriteResult r = runWriteModule(song, silentCount);
    EXPECT_FALSE(r.failed);
    View v;
    v.b = std::move(r.bytes);
    v.messages = std::move(r.messages);
    v.notes = std::move(r.notes);
    return v;
}

}  // namespace deqaz::test
