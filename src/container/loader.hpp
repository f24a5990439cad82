#pragma once
// Loading a QAZ file held whole in memory into a module: header, body unpacking, records, tracks,
// extra chunks, then every sample decoded to PCM (stereo split, copies made, loops clamped).
#include <memory>

#include "common/diagnostics.hpp"
#include "container/input_stream.hpp"
#include "container/module.hpp"

namespace deqaz {

// Caps a caller may set in place of the resource bounds (0 keeps the bound): the unpacked body,
// the decoded PCM of all samples and the pattern cells the writers would turn out.
struct LoadLimits {
    uint64_t maxBody = 0;
    uint64_t maxPcm = 0;
    uint64_t maxCells = 0;
};

// `in` describes the whole file, position 0. Returns the module, or null with the message in
// diag.errorText ("This is not a QAZ file!", "Something is wrong with this file!" or
// "Insufficient memory"). On return `in` again describes the whole file. Without `sampleData` the
// samples keep their records and data offsets but are not decoded (inspection).
std::unique_ptr<SongHeader> loadModule(InputStream& in, Diagnostics& diag, bool sampleData = true,
                                       const LoadLimits& limits = {});

}  // namespace deqaz
