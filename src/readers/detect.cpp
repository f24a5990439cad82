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
    if (size >= 4 && std::memcmp(data, "IMPM", 4) == 0) return readIt(data, size);
    if (startsWithNoCase(data, size, "Extended Module: ")) return readXm(data, size);
    if (size >= 48 && std::memcmp(data + 44, "SCRM", 4) == 0) return readS3m(data, size);
    // "MTM" and a version byte whose major number is 1.
    if (size >= 4 && std::memcmp(data, "MTM", 3) == 0 && (data[3] >> 4) == 1) return readMtm(data, size);
    ReadResult mod = readMod(data, size);
    if (!mod.song && mod.error.rfind("not a MOD file", 0) == 0)
        mod.error = packIce(data, size) ? "packed with Pack-Ice, not a module: unpack it first"
                                        : "unknown module format: no IT, XM, S3M, MTM or MOD signature";
    return mod;
}

}  // namespace deqaz
