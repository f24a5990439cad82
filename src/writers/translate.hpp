#pragma once
// Effect translation: the commands of one track group become one cell of the target format
// (note, instrument, volume column, effect, parameter).
#include <cstdint>

#include "common/diagnostics.hpp"
#include "container/module.hpp"
#include "container/track.hpp"

namespace deqaz {

struct EventCell {
    uint8_t note = 0;        // 0 none; 1 = lowest note; 254 cut; 255 off
    uint8_t instrument = 0;  // 0 none; 1-based
    uint8_t volume = 0;      // IT/S3M: IT volume value + 1; XM: the XM byte; 0 empty
    uint8_t effect = 0;      // IT/S3M: letter A=1...; XM/MOD/MTM: XM effect number
    uint8_t parameter = 0;
};

// The tone-portamento speeds IT's volume column can hold.
inline constexpr uint8_t PORTA_VOLUME_TABLE[10] = {0, 1, 4, 8, 16, 32, 64, 96, 128, 255};

enum class Target { IT, S3M, MODMTM, XM };
Target targetOf(uint32_t songFlags);

struct TranslateContext {
    Target target = Target::XM;
    const Diagnostics* diag = nullptr;  // warnings go to diag->err; silentCount mutes one
};

void translateEvent(EventCell& cell, TrackGroup group, const TranslateContext& ctx);
void setEffect(EventCell& cell, uint8_t effect, uint8_t parameter, const TranslateContext& ctx);
void moveVolumeToEffect(EventCell& cell, const TranslateContext& ctx);

}  // namespace deqaz
