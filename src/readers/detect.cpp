// Format detection: the signature decides which reader runs. IT, XM, S3M and MTM carry theirs
// at the start (S3M at 44); MOD carries a four-character tag at 1080, and the oldest MODs carry
// none, so a file no other reader claims is tried as a MOD last.
#include <cctype>
#include <cstring>

#include "readers/module_reader.hpp"

namespace deqaz {

namespace {

bool startsWithNoCase(const uint8_t* data, size_t size, const char* text) {
    const size_t n = std::strlen(text);
    if (size < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(data[i]) != std::tolower(static_cast<unsigned char>(text[i]))) return false;
    return true;
}

// Files crunched with Pack-Ice (an Atari ST and Amiga packer) are common among old MODs. Versions
// 2.x mark the start with "Ice!" or "ICE!" followed by the packed and unpacked sizes; 1.x put "Ice!"
// at the end. Only a file that no reader claims is looked at, so a module whose name happens to
// begin with "Ice!" still reads.
bool packIce(const uint8_t* data, size_t size) {
    if (size < 12) return false;
    return std::memcmp(data, "Ice!", 4) == 0 || std::memcmp(data, "ICE!", 4) == 0 ||
           std::memcmp(data + size - 4, "Ice!", 4) == 0;
}

}  // namespace

ReadResult readModule(const uint8_t* data, size_t size) {
    struct Format {
        bool (*claims)(const uint8_t*, size_t);
        ReadResult (*read)(const uint8_t*, size_t);
    };
    static constexpr Format FORMATS[] = {
        {[](const uint8_t* d, size_t n) { return n >= 4 && std::memcmp(d, "IMPM", 4) == 0; }, readIt},
        {[](const uint8_t* d, size_t n) { return startsWithNoCase(d, n, "Extended Module: "); }, readXm},
        {[](const uint8_t* d, size_t n) { return n >= 48 && std::memcmp(d + 44, "SCRM", 4) == 0; }, readS3m},
        // "MTM" and a version byte whose major number is 1.
        {[](const uint8_t* d, size_t n) { return n >= 4 && std::memcmp(d, "MTM", 3) == 0 && (d[3] >> 4) == 1; }, readMtm},
    };
    for (const Format& format : FORMATS)
        if (format.claims(data, size)) return format.read(data, size);
    ReadResult mod = readMod(data, size);
    if (mod.otherFormat)
        mod.error = packIce(data, size) ? "packed with Pack-Ice, not a module: unpack it first"
                                        : "unknown module format: no IT, XM, S3M, MTM or MOD signature";
    return mod;
}

}  // namespace deqaz
