#pragma once
// What a module holds, without converting it: the song's counts and, per sample, how its data is
// stored (the coding, stored and decoded sizes). Used by the library's inspection call and by
// `qaz info`.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "container/module.hpp"

namespace deqaz {

struct SampleInfo {
    std::string name;
    const char* coding = "empty";  // "empty", "raw", "delta", "predict", "vorbis", "mp3", "copy", "unknown"
    int copyOf = -1;               // for "copy": the sample whose data this one repeats
    int bits = 8, channels = 1;
    uint32_t length = 0;       // frames
    uint64_t storedSize = 0;   // bytes of stored data (a copy stores none)
    uint64_t decodedSize = 0;  // bytes of sample data in the module
};

struct ModuleInfo {
    int version = -1;  // the container version; -1 for a module file
    Origin origin = Origin::XM;
    std::string name;
    unsigned channels = 0, orders = 0, patterns = 0, instruments = 0;
    std::vector<SampleInfo> samples;
};

// `file`/`size`: the QAZ file the samples' data offsets point into (null for a module file, whose
// samples are all raw as read).
ModuleInfo describeModule(const SongHeader& song, int version, const uint8_t* file, size_t size);

}  // namespace deqaz
