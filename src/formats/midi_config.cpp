#include "formats/midi_config.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>

namespace deqaz::midi {

namespace {

bool sameText(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b)
        if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b))) return false;
    return *a == *b;
}

bool hexValue(const char* text, size_t digits, uint32_t& value) {
    value = 0;
    for (size_t i = 0; i < digits; ++i) {
        const int c = std::tolower(static_cast<unsigned char>(text[i]));
        if (c >= '0' && c <= '9')
            value = value * 16 + static_cast<uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            value = value * 16 + static_cast<uint32_t>(c - 'a' + 10);
        else
            return false;
    }
    return true;
}

}  // namespace

unsigned readConfig(const uint8_t* block, size_t size, SongHeader& song) {
    std::array<char, BLOCK_SIZE> text{};
    std::memcpy(text.data(), block, std::min(size, BLOCK_SIZE));
    char e[ENTRY_SIZE + 1];
    char rebuilt[ENTRY_SIZE + 8];
    auto entry = [&](size_t i) {
        std::memcpy(e, text.data() + i * ENTRY_SIZE, ENTRY_SIZE);
        e[ENTRY_SIZE] = '\0';
    };
    unsigned lost = 0;
    for (size_t i = 0; i < GLOBALS; ++i) {
        entry(i);
        if (!sameText(e, DEFAULT_GLOBALS[i])) ++lost;
    }
    for (size_t i = 0; i < SFX_MACROS; ++i) {
        entry(GLOBALS + i);
        if (!e[0]) continue;
        uint32_t v = 0;
        if (std::strlen(e) == 7 && hexValue(e + 4, 2, v) && v < 0xFF) {
            std::snprintf(rebuilt, sizeof rebuilt, "F0F0%02xz", static_cast<unsigned>(v));
            if (sameText(e, rebuilt)) {
                song.sfxMacro[i] = static_cast<uint8_t>(v + 1);
                continue;
            }
        }
        ++lost;
    }
    for (size_t j = 0; j < ZXX_MACROS; ++j) {
        entry(GLOBALS + SFX_MACROS + j);
        if (!e[0]) continue;
        const size_t length = std::strlen(e);
        uint32_t v = 0;
        if ((length == 8 || length == 12) && hexValue(e + 4, length - 4, v)) {
            const uint32_t w = v + 256;  // modulo 2^32: "ffffff80" is the slot value 0x80
            if (w >= 1 && w <= 0xFFFF) {
                std::snprintf(rebuilt, sizeof rebuilt, "F0F0%04x", static_cast<unsigned>(static_cast<int32_t>(w) - 256));
                if (sameText(e, rebuilt)) {
                    song.zxxMacro[j] = static_cast<uint16_t>(w);
                    continue;
                }
            }
        }
        ++lost;
    }
    return lost;
}

}  // namespace deqaz::midi
