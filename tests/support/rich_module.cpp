// A module using every record kind, for tests and for the fuzzers' seeds (no GoogleTest here:
// make_seeds links it too).
#include <new>

#include "support/module_builder.hpp"

namespace deqaz::test {

namespace {
void need(bool allocated) {
    if (!allocated) throw std::bad_alloc();
}
}  // namespace

SongHeader makeRichModule(uint32_t originFlags) {
    SongHeader song = makeSong(0, 3);
    song.name = "every record kind";
    song.message = "line one\rline two";
    song.flags = originFlags | SH_EXTRA_CHUNKS | 0x80000000u;  // an unassigned bit is carried too
    song.restartPos = 1;
    song.initialSpeed = 5;
    song.initialTempo = 140;
    song.globalVolume = 100;
    song.separation = 96;
    song.mixVolume = -7;
    for (int c = 0; c < 64; ++c) {
        song.channelVolume[c] = static_cast<uint8_t>(64 - c);
        song.channelPan[c] = static_cast<uint8_t>(c * 4);
    }
    song.sfxMacro[0] = 1;
    song.sfxMacro[15] = 255;
    song.zxxMacro[0] = 0x100;
    song.zxxMacro[127] = 0xFFFF;

    setOrders(song, {0, 1, 2, 1, 0xFE, 0xFF});
    addTrackBytes(song, {0x00});
    std::vector<TrackRow> rows(64);
    rows[0] = {note(48), instrument(0), cmd(15, 40)};
    rows[4] = {note(255)};
    rows[8] = {note(60), instrument(1), cmd(43, 0xF2)};
    addTrackRows(song, rows);
    std::vector<TrackRow> runs(32, TrackRow{cmd(6, 0x20)});
    runs[31] = {note(254)};
    addTrackRows(song, runs);
    addTrackBytes(song, {0xF0, 0xF0, 0x31, 0x01, 0x30, 0x02, 0x01, 0x30, 0x03, 0x04, 0x00});
    addPattern(song, 64, {1, 2, 0});  // shared tracks
    addPattern(song, 32, {3, 0, 1});
    addPattern(song, 200, {2, 2, 3});

    song.instrumentCount = 2;
    song.instruments.resize(2);
    for (int i = 0; i < 2; ++i) {
        InstrumentRecord& ins = song.instruments[i];
        ins.flags = static_cast<uint32_t>(i + 1);
        for (int n = 0; n < 120; ++n) ins.noteMap[n] = {static_cast<uint16_t>(n), static_cast<uint16_t>(n < 60 ? i : 0xFFFF)};
        ins.volumeEnvelope.flags = 0x07;
        ins.volumeEnvelope.pointCount = 3;
        ins.volumeEnvelope.points[0] = {0, 64};
        ins.volumeEnvelope.points[1] = {10, 32};
        ins.volumeEnvelope.points[2] = {20, 0};
        ins.volumeEnvelope.sustainStart = ins.volumeEnvelope.sustainEnd = 1;
        ins.volumeEnvelope.loopEnd = 2;
        ins.panningEnvelope.flags = 0x21;
        ins.panningEnvelope.pointCount = 2;
        ins.panningEnvelope.points[1] = {5, 64};
        ins.pitchEnvelope.flags = 0x11;
        ins.pitchEnvelope.pointCount = 25;
        for (int k = 0; k < 25; ++k) ins.pitchEnvelope.points[k] = {static_cast<uint16_t>(k * 3), static_cast<uint16_t>(2048 + k)};
        ins.vibratoType = 1;
        ins.vibratoSweep = 2;
        ins.vibratoDepth = 3;
        ins.vibratoRate = 4;
        ins.fadeout = 1024;
        ins.midiChannel = static_cast<uint8_t>(i * 3);
        ins.midiBank = 7;
        ins.midiProgram = 9;
        ins.midiBendRange = 2;
        ins.globalVolume = 128;
        ins.pan = i ? -1 : 200;
        ins.newNoteAction = 2;
        ins.pitchPanSeparation = 0xF8;
        ins.pitchPanCentre = 60;
        ins.duplicateCheckType = 1;
        ins.duplicateCheckAction = 2;
        ins.randomVolume = 25;
        ins.randomPan = 40;
        ins.filterCutoff = 0xFF;
        ins.filterResonance = 0x80;
        ins.name = i ? "" : "lead";
        ins.fileName = i ? "inst2.iti" : "";
    }

    // Samples: raw 8, raw 16, raw stereo 16, delta 8, delta 16 stereo, predict 8, predict 16,
    // a copy of the one before, an empty one, and an 0x8000-coded one (silence).
    const uint16_t kinds[] = {0,
                              SF_16BIT,
                              SF_16BIT | SF_STEREO,
                              SF_DELTA,
                              SF_DELTA | SF_16BIT | SF_STEREO,
                              SF_PREDICT,
                              SF_PREDICT | SF_16BIT,
                              SF_PREDICT | SF_16BIT,
                              0,
                              SF_PREDICT | SF_STEREO};
    song.sampleCount = static_cast<uint16_t>(std::size(kinds));
    song.samples.resize(song.sampleCount);
    for (size_t i = 0; i < song.samples.size(); ++i) {
        SampleRecord& smp = song.samples[i];
        smp.flags = kinds[i];
        smp.length = i == 8 ? 0 : static_cast<uint32_t>(500 + 137 * i);
        // Every other sample at 8363 Hz, so that lossy coding can share Vorbis header pages.
        smp.frequency = static_cast<uint32_t>(i % 2 ? 8363 + i * 1000 : 8363);
        smp.relativeNote = static_cast<int8_t>(-3 + static_cast<int>(i));
        smp.volume = static_cast<uint8_t>(i * 6);
        smp.pan = i % 2 ? -1 : static_cast<int16_t>(i * 20);
        if (i % 3 == 0 && smp.length) {
            smp.flags |= SF_LOOP | (i % 2 ? SF_PINGPONG : 0);
            smp.loopStart = 10;
            smp.loopEnd = smp.length - 5;
        }
        if (i == 4) {
            smp.flags |= SF_SUSTAIN | SF_SUSTAIN_PINGPONG;
            smp.sustainStart = 3;
            smp.sustainEnd = 300;
        }
        smp.vibratoType = 1;
        smp.vibratoSweep = static_cast<uint8_t>(i);
        smp.vibratoDepth = 2;
        smp.vibratoSpeed = 3;
        smp.globalVolume = static_cast<uint8_t>(64 - i);
        smp.codecParam = 0;
        smp.name = i == 1 ? "" : "sample " + std::to_string(i);
        smp.fileName = i % 2 ? "s" + std::to_string(i) + ".wav" : "";
        if (i == 7) {
            smp.storedSize = -1;  // copies sample 6 (same length)
            smp.length = song.samples[6].length;
            continue;
        }
        fillPcm(smp, static_cast<uint32_t>(i + 1));
    }
    // The copy's PCM is what loading will make of it.
    for (int c = 0; c < 2; ++c) {
        if (song.samples[6].pcm[c]) {
            need(song.samples[7].pcm[c].dupBuffer(song.samples[6].pcm[c].data(), song.samples[6].length));
        }
    }

    need(song.channelFx.allocate(song.channels * 4));
    for (size_t k = 0; k < song.channelFx.size(); ++k) song.channelFx[k] = static_cast<uint8_t>(k * 7);
    const uint8_t chunk[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    need(song.fxSlots[2].data.dupBuffer(chunk, 10));
    song.fxSlots[2].size = 10;
    song.fxSlots[2].present = true;
    song.fxSlots[19].present = true;  // a chunk of 0 bytes
    return song;
}

}  // namespace deqaz::test
