#include "container/module_info.hpp"

#include <cstring>

namespace deqaz {

namespace {

// The coding the loader's sample decoder would pick: compressed first (Ogg Vorbis when the data
// starts with an Ogg page, else Layer III), then delta, then second-order prediction.
const char* codingOf(const SampleRecord& smp, const uint8_t* file, size_t size) {
    if (smp.length == 0) return "empty";
    if (smp.storedSize < 0) return "copy";
    if (smp.flags & SF_COMPRESSED) {
        const bool ogg = file && smp.dataOffset < size && size - smp.dataOffset >= 4 && smp.storedSize >= 4 &&
                         std::memcmp(file + smp.dataOffset, "OggS", 4) == 0;
        return ogg ? "vorbis" : "mp3";
    }
    if (smp.flags & SF_DELTA) return "delta";
    if (smp.flags & SF_PREDICT) return "predict";
    return smp.isCoded() ? "unknown" : "raw";
}

}  // namespace

ModuleInfo describeModule(const SongHeader& song, int version, const uint8_t* file, size_t size) {
    ModuleInfo info;
    info.version = version;
    info.origin = song.origin();
    info.name = song.name;
    info.channels = song.channels;
    info.orders = song.orderCount;
    info.patterns = song.patternCount;
    info.instruments = static_cast<unsigned>(song.instruments.size());
    for (size_t i = 0; i < song.samples.size(); ++i) {
        const SampleRecord& smp = song.samples[i];
        SampleInfo s;
        s.name = smp.name;
        s.coding = codingOf(smp, file, size);
        s.bits = (smp.flags & SF_16BIT) ? 16 : 8;
        s.channels = (smp.flags & SF_STEREO) ? 2 : 1;
        s.length = smp.length;
        s.decodedSize = smp.rawStoredBytes();
        if (smp.storedSize < 0) s.copyOf = static_cast<int>(static_cast<int64_t>(i) + smp.storedSize);
        else s.storedSize = smp.storedSize > 0 ? static_cast<uint64_t>(smp.storedSize) : smp.rawStoredBytes();
        info.samples.push_back(std::move(s));
    }
    return info;
}

}  // namespace deqaz
