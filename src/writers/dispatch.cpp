#include "writers/writers.hpp"

#include <algorithm>
#include <cstring>

namespace deqaz {

WriterFn writerFor(uint32_t songFlags) {
    switch (originOf(songFlags)) {
        case Origin::IT: return &writeIt;
        case Origin::S3M: return &writeS3m;
        case Origin::MOD: return &writeMod;
        case Origin::MTM: return &writeMtm;
        case Origin::XM: break;
    }
    return &writeXm;
}

bool writeModule(const SongHeader& song, OutputBuffer& out, Diagnostics& diag, bool forPlayers) {
    out.reset();
    WriteContext ctx{song, out, diag, forPlayers};
    writerFor(song.flags)(ctx);
    return !out.failed();
}

void copyName(uint8_t* field, size_t width, const std::string& name) {
    std::memset(field, 0, width);
    // Like strncpy: the name ends at its first zero byte, and a name that fills the field has no
    // terminator.
    const size_t length = std::min(width, ::strnlen(name.c_str(), name.size()));
    std::memcpy(field, name.data(), length);
}

TrackCursor patternCursor(const SongHeader& song, unsigned pattern, unsigned channel) {
    const size_t entry = static_cast<size_t>(pattern) * song.channels + channel;
    if (channel >= song.channels || entry >= song.patternTracks.size()) return {};
    const uint16_t t = song.patternTracks[entry];
    return t < song.tracks.size() ? TrackCursor(song.tracks[t]) : TrackCursor{};
}

const std::string& sampleNameOrInstrument(const SongHeader& song, unsigned index) {
    const SampleRecord& smp = song.samples[index];
    const size_t instruments = std::min<size_t>(song.instrumentCount, song.instruments.size());
    if (smp.name.empty() && index < instruments) return song.instruments[index].name;
    return smp.name;
}

}  // namespace deqaz
