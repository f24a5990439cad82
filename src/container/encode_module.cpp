#include "container/encode_module.hpp"

#include <cerrno>
#include <cstdlib>

#include "readers/module_reader.hpp"

namespace deqaz {

namespace {

// The whole of `text` as a number; false for an empty, partial or out-of-range value.
bool wholeNumber(const char* text, double& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtod(text, &end);
    return end != text && *end == 0 && errno == 0;
}

}  // namespace

bool parseCoding(const std::string& text, EncodeSettings& settings) {
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const bool hasValue = colon != std::string::npos;
    double value = 0;
    if (hasValue && !wholeNumber(text.c_str() + colon + 1, value)) return false;
    EncodeSettings s = settings;
    if (name == "vorbis") {
        if (hasValue && !(value >= -0.1 && value <= 1.0)) return false;
        s.write.lossy = LossyCoding::Vorbis;
        s.write.shareVorbisHeaders = true;
        if (hasValue) s.write.vorbisQuality = static_cast<float>(value);
    } else if (name == "mp3") {
        if (hasValue && !(value >= 8 && value <= 320 && value == static_cast<int>(value))) return false;
        s.write.lossy = LossyCoding::Layer3;
        if (hasValue) s.write.layer3Bitrate = static_cast<int>(value);
    } else if (hasValue) {
        return false;
    } else if (name == "auto" || name == "raw" || name == "delta" || name == "predict") {
        s.lossless = name == "auto" ? EncodeSettings::AUTO : name == "raw" ? 0 : name == "delta" ? SF_DELTA : SF_PREDICT;
    } else {
        return false;
    }
    settings = s;
    return true;
}

EncodeResult encodeModule(const uint8_t* data, size_t size, const EncodeSettings& settings) {
    EncodeResult result;
    ReadResult read = readModule(data, size);
    result.warnings = std::move(read.warnings);
    if (!read.song) {
        result.error = read.error;
        result.code = 2;
        return result;
    }
    SongHeader& song = *read.song;
    if (settings.lossless == EncodeSettings::AUTO) {
        chooseSmallestLossless(song);
    } else {
        for (SampleRecord& s : song.samples)
            if (s.storedSize >= 0) s.flags = static_cast<uint16_t>((s.flags & ~SF_CODING_MASK) | settings.lossless);
    }
    // Lossy coding keeps a sample lossless where the codec would not make it smaller.
    result.qaz = writeQaz(song, settings.write);
    if (result.qaz.empty()) {
        result.error = "A sample could not be encoded!";
        result.code = 3;
    }
    result.song = std::move(read.song);
    return result;
}

}  // namespace deqaz
