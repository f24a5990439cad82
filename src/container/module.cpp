#include "container/module.hpp"

#include "common/endian.hpp"

namespace deqaz {

Origin originOf(uint32_t songFlags) {
    if (songFlags & SH_ORIGIN_IT) return Origin::IT;
    if (songFlags & SH_ORIGIN_S3M) return Origin::S3M;
    if (songFlags & SH_ORIGIN_MOD) return Origin::MOD;
    if (songFlags & SH_ORIGIN_MTM) return Origin::MTM;
    return Origin::XM;
}

const char* originExtension(Origin origin) {
    switch (origin) {
        case Origin::IT: return "it";
        case Origin::S3M: return "s3m";
        case Origin::MOD: return "mod";
        case Origin::MTM: return "mtm";
        case Origin::XM: break;
    }
    return "xm";
}

void parseSongHeader(const uint8_t* p, SongHeader& s) {
    s.channels = p[0];
    s.orderCount = rd16le(p + 1);
    s.restartPos = rd16le(p + 3);
    s.patternCount = rd16le(p + 5);
    s.trackCount = rd16le(p + 7);
    s.instrumentCount = rd16le(p + 9);
    s.sampleCount = rd16le(p + 11);
    s.initialSpeed = p[13];
    s.initialTempo = p[14];
    s.flags = rd32le(p + 15);
    s.globalVolume = p[19];
    s.separation = p[20];
    s.mixVolume = static_cast<int8_t>(p[21]);
    for (int i = 0; i < 64; ++i) s.channelVolume[i] = p[22 + i];
    for (int i = 0; i < 64; ++i) s.channelPan[i] = p[86 + i];
    for (int i = 0; i < 16; ++i) s.sfxMacro[i] = p[150 + i];
    for (int i = 0; i < 128; ++i) s.zxxMacro[i] = rd16le(p + 166 + 2 * i);
}

void storeSongHeader(const SongHeader& s, uint8_t* p) {
    p[0] = s.channels;
    wr16le(p + 1, s.orderCount);
    wr16le(p + 3, s.restartPos);
    wr16le(p + 5, s.patternCount);
    wr16le(p + 7, s.trackCount);
    wr16le(p + 9, s.instrumentCount);
    wr16le(p + 11, s.sampleCount);
    p[13] = s.initialSpeed;
    p[14] = s.initialTempo;
    wr32le(p + 15, s.flags);
    p[19] = s.globalVolume;
    p[20] = s.separation;
    p[21] = static_cast<uint8_t>(s.mixVolume);
    for (int i = 0; i < 64; ++i) p[22 + i] = s.channelVolume[i];
    for (int i = 0; i < 64; ++i) p[86 + i] = s.channelPan[i];
    for (int i = 0; i < 16; ++i) p[150 + i] = s.sfxMacro[i];
    for (int i = 0; i < 128; ++i) wr16le(p + 166 + 2 * i, s.zxxMacro[i]);
}

namespace {

void parseEnvelope(const uint8_t* p, Envelope& e) {
    e.flags = p[0];
    e.pointCount = p[1];
    e.sustainStart = p[2];
    e.sustainEnd = p[3];
    e.loopStart = p[4];
    e.loopEnd = p[5];
    for (int k = 0; k < 25; ++k) {
        e.points[k].tick = rd16le(p + 6 + 4 * k);
        e.points[k].value = rd16le(p + 8 + 4 * k);
    }
}

void storeEnvelope(const Envelope& e, uint8_t* p) {
    p[0] = e.flags;
    p[1] = e.pointCount;
    p[2] = e.sustainStart;
    p[3] = e.sustainEnd;
    p[4] = e.loopStart;
    p[5] = e.loopEnd;
    for (int k = 0; k < 25; ++k) {
        wr16le(p + 6 + 4 * k, e.points[k].tick);
        wr16le(p + 8 + 4 * k, e.points[k].value);
    }
}

}  // namespace

void parseInstrument(const uint8_t* p, InstrumentRecord& r) {
    r.flags = rd32le(p);
    for (int i = 0; i < 120; ++i) {
        r.noteMap[i].note = rd16le(p + 4 + 4 * i);
        r.noteMap[i].sample = rd16le(p + 6 + 4 * i);
    }
    parseEnvelope(p + 484, r.volumeEnvelope);
    parseEnvelope(p + 590, r.panningEnvelope);
    parseEnvelope(p + 696, r.pitchEnvelope);
    r.vibratoType = p[802];
    r.vibratoSweep = p[803];
    r.vibratoDepth = p[804];
    r.vibratoRate = p[805];
    r.fadeout = rd16le(p + 806);
    r.midiChannel = p[808];
    r.midiBank = p[809];
    r.midiProgram = p[810];
    r.midiBendRange = p[811];
    r.globalVolume = p[812];
    r.pan = static_cast<int16_t>(rd16le(p + 813));
    r.newNoteAction = p[815];
    r.pitchPanSeparation = p[816];
    r.pitchPanCentre = p[817];
    r.duplicateCheckType = p[818];
    r.duplicateCheckAction = p[819];
    r.randomVolume = rd16le(p + 820);
    r.randomPan = rd16le(p + 822);
    r.filterCutoff = p[824];
    r.filterResonance = p[825];
}

void storeInstrument(const InstrumentRecord& r, uint8_t* p) {
    wr32le(p, r.flags);
    for (int i = 0; i < 120; ++i) {
        wr16le(p + 4 + 4 * i, r.noteMap[i].note);
        wr16le(p + 6 + 4 * i, r.noteMap[i].sample);
    }
    storeEnvelope(r.volumeEnvelope, p + 484);
    storeEnvelope(r.panningEnvelope, p + 590);
    storeEnvelope(r.pitchEnvelope, p + 696);
    p[802] = r.vibratoType;
    p[803] = r.vibratoSweep;
    p[804] = r.vibratoDepth;
    p[805] = r.vibratoRate;
    wr16le(p + 806, r.fadeout);
    p[808] = r.midiChannel;
    p[809] = r.midiBank;
    p[810] = r.midiProgram;
    p[811] = r.midiBendRange;
    p[812] = r.globalVolume;
    wr16le(p + 813, static_cast<uint16_t>(r.pan));
    p[815] = r.newNoteAction;
    p[816] = r.pitchPanSeparation;
    p[817] = r.pitchPanCentre;
    p[818] = r.duplicateCheckType;
    p[819] = r.duplicateCheckAction;
    wr16le(p + 820, r.randomVolume);
    wr16le(p + 822, r.randomPan);
    p[824] = r.filterCutoff;
    p[825] = r.filterResonance;
}

void parseSample(const uint8_t* p, SampleRecord& s) {
    s.frequency = rd32le(p);
    s.relativeNote = static_cast<int8_t>(p[4]);
    s.volume = p[5];
    s.pan = static_cast<int16_t>(rd16le(p + 6));
    s.length = rd32le(p + 8);
    s.loopStart = rd32le(p + 12);
    s.loopEnd = rd32le(p + 16);
    s.flags = rd16le(p + 20);
    s.vibratoType = p[22];
    s.vibratoSweep = p[23];
    s.vibratoDepth = p[24];
    s.vibratoSpeed = p[25];
    s.globalVolume = p[26];
    s.sustainStart = rd32le(p + 27);
    s.sustainEnd = rd32le(p + 31);
    s.storedSize = static_cast<int32_t>(rd32le(p + 35));
    s.codecParam = rd16le(p + 39);
}

void storeSample(const SampleRecord& s, uint8_t* p) {
    wr32le(p, s.frequency);
    p[4] = static_cast<uint8_t>(s.relativeNote);
    p[5] = s.volume;
    wr16le(p + 6, static_cast<uint16_t>(s.pan));
    wr32le(p + 8, s.length);
    wr32le(p + 12, s.loopStart);
    wr32le(p + 16, s.loopEnd);
    wr16le(p + 20, s.flags);
    p[22] = s.vibratoType;
    p[23] = s.vibratoSweep;
    p[24] = s.vibratoDepth;
    p[25] = s.vibratoSpeed;
    p[26] = s.globalVolume;
    wr32le(p + 27, s.sustainStart);
    wr32le(p + 31, s.sustainEnd);
    wr32le(p + 35, static_cast<uint32_t>(s.storedSize));
    wr16le(p + 39, s.codecParam);
}

}  // namespace deqaz
