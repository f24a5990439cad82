#include "writers/translate.hpp"

#include <cstdio>

#include "container/commands.hpp"

namespace deqaz {

namespace {

// Cell values of IT's volume column are the IT value + 1, so 0 can mean "empty".
constexpr uint8_t IT_VOL_PITCH_DOWN = 106;  // IT 105 + x: pitch slide down by 4x
constexpr uint8_t IT_VOL_PITCH_UP = 116;    // IT 115 + x: pitch slide up by 4x
constexpr uint8_t IT_VOL_PAN = 129;         // IT 128 + p: set panning 0-64
constexpr uint8_t IT_VOL_PORTA = 194;       // IT 193 + i: tone portamento, PORTA_VOLUME_TABLE[i]
constexpr uint8_t IT_VOL_VIBRATO = 204;     // IT 203 + d: vibrato depth 0-9

// Warnings have no sink when the caller gives no diagnostics.
void warn(const TranslateContext& ctx, const char* text, bool evenWhenSilent) {
    if (!ctx.diag || !ctx.diag->err) return;
    if (evenWhenSilent)
        std::fputs(text, ctx.diag->err);
    else
        ctx.diag->say(text);
}

int portaVolumeIndex(uint8_t p) {
    for (int i = 0; i < 10; ++i)
        if (PORTA_VOLUME_TABLE[i] == p) return i;
    return -1;
}

// The XM volume-column slide commands put their nibble in the high or low half depending on
// direction: a non-zero low nibble means the "down" variant.
uint8_t slideByte(uint8_t downBase, uint8_t upBase, uint8_t p) {
    if (p & 0x0F) return static_cast<uint8_t>(downBase | p);
    return static_cast<uint8_t>(upBase | (p >> 4));
}

}  // namespace

Target targetOf(uint32_t songFlags) {
    if (songFlags & SH_ORIGIN_IT) return Target::IT;
    if (songFlags & SH_ORIGIN_S3M) return Target::S3M;
    if (songFlags & (SH_ORIGIN_MOD | SH_ORIGIN_MTM)) return Target::MODMTM;
    return Target::XM;
}

void setEffect(EventCell& cell, uint8_t effect, uint8_t parameter, const TranslateContext& ctx) {
    if (cell.effect == 0 && cell.parameter == 0) {
        cell.effect = effect;
        cell.parameter = parameter;
        return;
    }
    // IT can hold a coarse portamento up/down in the volume column, which frees the effect
    // column for the new command.
    if (ctx.target == Target::IT && cell.volume == 0 && (cell.effect == 5 || cell.effect == 6)) {
        const uint8_t q = cell.parameter;
        if (q % 4 == 0 && q <= 36) {
            const uint8_t base = cell.effect == 5 ? IT_VOL_PITCH_DOWN : IT_VOL_PITCH_UP;
            cell.volume = static_cast<uint8_t>(base + q / 4);
            cell.effect = effect;
            cell.parameter = parameter;
            return;
        }
    }
    warn(ctx, "2 effects in 1 row!\n", true);
}

void moveVolumeToEffect(EventCell& cell, const TranslateContext& ctx) {
    const uint8_t v = cell.volume;
    if (v == 0) return;
    if (v <= 0x50)
        setEffect(cell, 12, static_cast<uint8_t>(v - 0x10), ctx);
    else if ((v >> 4) == 0xC)
        setEffect(cell, 8, static_cast<uint8_t>((v & 0x0F) << 4), ctx);
    else if ((v >> 4) == 0xF)
        setEffect(cell, 3, static_cast<uint8_t>((v & 0x0F) << 4), ctx);
    else
        warn(ctx, "warn: ClearXMVol\n", false);  // slides and vibrato have no effect twin here
    cell.volume = 0;
}

void translateEvent(EventCell& cell, TrackGroup group, const TranslateContext& ctx) {
    cell = EventCell{};
    if (!group) return;

    const Target t = ctx.target;
    const bool itSide = t == Target::IT || t == Target::S3M;
    const bool xm = t == Target::XM;
    auto effect = [&](uint8_t e, uint8_t p) { setEffect(cell, e, p, ctx); };

    const unsigned pairs = group.pairCount();
    const uint8_t* pair = group.bytes + 1;
    for (unsigned i = 0; i < pairs; ++i, pair += 2) {
        const uint8_t cmd = pair[0];
        const uint8_t p = pair[1];
        if (cmd == 0) break;
        switch (cmd) {
            case CMD_NOTE: cell.note = p <= 253 ? static_cast<uint8_t>(p + 1) : p; break;
            case CMD_INSTRUMENT: cell.instrument = static_cast<uint8_t>(p + 1); break;
            case CMD_ARPEGGIO: effect(itSide ? 10 : 0, p); break;  // arpeggio: IT J, XM 0
            case CMD_PORTA_UP: effect(1, p); break;
            case CMD_PORTA_DOWN: effect(2, p); break;
            case CMD_TONE_PORTA:  // tone portamento
                if (t == Target::IT && cell.volume == 0 && portaVolumeIndex(p) >= 0)
                    cell.volume = static_cast<uint8_t>(IT_VOL_PORTA + portaVolumeIndex(p));
                else if (xm && cell.volume == 0 && (p & 0x0F) == 0)
                    cell.volume = static_cast<uint8_t>(0xF0 | (p >> 4));
                else
                    effect(itSide ? 7 : 3, p);
                break;
            case CMD_VIBRATO:  // vibrato
                if (t == Target::IT && cell.volume == 0 && p <= 9)
                    cell.volume = static_cast<uint8_t>(IT_VOL_VIBRATO + p);
                else
                    effect(itSide ? 8 : 4, p);
                break;
            case CMD_TONE_PORTA_VOLUME_SLIDE: effect(5, p); break;
            case CMD_VIBRATO_VOLUME_SLIDE: effect(6, p); break;
            case CMD_TREMOLO: effect(itSide ? 18 : 7, p); break;  // tremolo
            case CMD_SET_PAN:                                     // set panning
                if (t == Target::IT && cell.volume == 0 && p % 4 == 0)
                    cell.volume = static_cast<uint8_t>(IT_VOL_PAN + p / 4);
                else if (t == Target::IT && cell.volume == 0 && p == 255)
                    cell.volume = IT_VOL_PAN + 64;
                else if (xm && cell.volume == 0 && (p & 0x0F) == 0)
                    cell.volume = static_cast<uint8_t>(0xC0 | (p >> 4));
                else
                    effect(itSide ? 24 : 8, p);
                break;
            case CMD_SAMPLE_OFFSET: effect(itSide ? 15 : 9, p); break;  // sample offset
            case CMD_VOLUME_SLIDE: effect(10, p); break;
            case CMD_POSITION_JUMP: effect(itSide ? 2 : 11, p); break;  // position jump
            case CMD_SET_VOLUME:                                     // set volume
                if (itSide)
                    cell.volume = static_cast<uint8_t>(p + 1);
                else if (xm && cell.volume == 0)
                    cell.volume = static_cast<uint8_t>(0x10 + p);
                else
                    effect(12, p);
                break;
            case CMD_PATTERN_BREAK: effect(itSide ? 3 : 13, p); break;  // pattern break
            case CMD_EXTENDED: effect(14, p); break;
            case CMD_SPEED_TEMPO: effect(itSide ? 20 : 15, p); break;  // speed / tempo
            case CMD_XM_TREMOR: effect(29, p); break;
            case CMD_VOLUME_COLUMN_SLIDE:
                moveVolumeToEffect(cell, ctx);
                cell.volume = slideByte(0x60, 0x70, p);
                break;
            case CMD_VOLUME_COLUMN_FINE_SLIDE:
                moveVolumeToEffect(cell, ctx);
                cell.volume = slideByte(0x80, 0x90, p);
                break;
            case CMD_SET_GLOBAL_VOLUME: effect(itSide ? 22 : 16, p); break;  // set global volume
            case CMD_XM_GLOBAL_VOLUME_SLIDE: effect(17, p); break;
            case CMD_KEY_OFF: effect(20, p); break;
            case CMD_SET_ENVELOPE_POSITION: effect(21, p); break;
            case CMD_XM_PAN_SLIDE: effect(25, p); break;
            case CMD_VOLUME_COLUMN_PAN_SLIDE:
                moveVolumeToEffect(cell, ctx);
                cell.volume = slideByte(0xD0, 0xE0, p);
                break;
            case CMD_MULTI_RETRIGGER: effect(27, p); break;
            case CMD_EXTRA_FINE_PORTA_UP: effect(33, static_cast<uint8_t>(p | 0x10)); break;
            case CMD_EXTRA_FINE_PORTA_DOWN: effect(33, static_cast<uint8_t>(p | 0x20)); break;
            case CMD_VOLUME_COLUMN_VIBRATO_SPEED:
                moveVolumeToEffect(cell, ctx);
                cell.volume = static_cast<uint8_t>(0xA0 | p);
                break;
            case CMD_VOLUME_COLUMN_VIBRATO_DEPTH:
                moveVolumeToEffect(cell, ctx);
                cell.volume = static_cast<uint8_t>(0xB0 | p);
                break;
            case CMD_IT_SET_SPEED: effect(1, p); break;
            case CMD_IT_VOLUME_SLIDE:  // IT D merges with G or H already in the row into L or K
                if (cell.effect == 7) {
                    cell.effect = 12;
                    cell.parameter = p;
                } else if (cell.effect == 8) {
                    cell.effect = 11;
                    cell.parameter = p;
                } else {
                    effect(4, p);
                }
                break;
            case CMD_IT_PORTA_DOWN: effect(5, p); break;
            case CMD_IT_PORTA_UP: effect(6, p); break;
            case CMD_IT_TREMOR: effect(9, p); break;
            case CMD_IT_RETRIGGER: effect(17, p); break;
            case CMD_IT_FINE_VIBRATO: effect(21, p); break;
            case CMD_IT_CHANNEL_VOLUME: effect(13, p); break;
            case CMD_IT_CHANNEL_VOLUME_SLIDE: effect(14, p); break;
            case CMD_IT_PAN_SLIDE: effect(16, p); break;
            case CMD_IT_SPECIAL: effect(19, p); break;
            case CMD_IT_TEMPO: effect(20, p); break;
            case CMD_IT_GLOBAL_VOLUME_SLIDE: effect(23, p); break;
            case CMD_IT_PANBRELLO: effect(25, p); break;
            case CMD_MIDI_MACRO: effect(itSide ? 26 : 35, p); break;  // MIDI macro: IT Z, XM Z (35)
            case CMD_IT_VOLUME_COLUMN_SLIDE: cell.volume = static_cast<uint8_t>(p + 66); break;
            case CMD_IT_VOLUME_COLUMN_PITCH_DOWN: cell.volume = static_cast<uint8_t>(p + IT_VOL_PITCH_DOWN); break;
            case CMD_IT_VOLUME_COLUMN_PITCH_UP: cell.volume = static_cast<uint8_t>(p + IT_VOL_PITCH_UP); break;
            case CMD_XM_W: effect(32, p); break;
            default: break;  // unknown commands are skipped
        }
    }
}

}  // namespace deqaz
