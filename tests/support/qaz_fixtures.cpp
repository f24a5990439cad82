#include "support/qaz_fixtures.hpp"

#include <gtest/gtest.h>

#include "container/track_encoder.hpp"

namespace deqaz::testing {

namespace {

void setTrack(SongHeader& song, size_t index, const std::vector<uint8_t>& bytes) {
    ASSERT_TRUE(song.tracks[index].dupBuffer(bytes.data(), bytes.size()));
}

}  // namespace

void fillPcm(SampleRecord& smp, uint32_t seed) {
    const int channels = (smp.flags & SF_STEREO) ? 2 : 1;
    uint32_t x = seed * 2654435761u + 1;
    for (int c = 0; c < channels; ++c) {
        ASSERT_TRUE(smp.pcm[c].allocate(smp.length));
        int32_t v = 0;
        for (uint32_t k = 0; k < smp.length; ++k) {
            x = x * 1103515245u + 12345u;
            v += static_cast<int32_t>((x >> 16) % 2001) - 1000;  // a wandering, correlated signal
            if (v > 32767) v = 32767;
            if (v < -32768) v = -32768;
            int16_t point = static_cast<int16_t>(v);
            if (!(smp.flags & SF_16BIT)) point = static_cast<int16_t>(point & 0xFF00);
            smp.pcm[c][k] = point;
        }
    }
}

SongHeader makeMinimalModule(uint32_t originFlags) {
    SongHeader song;
    song.channels = 4;
    song.flags = originFlags;
    song.orderCount = 1;
    song.patternCount = 1;
    song.trackCount = 1;
    song.initialSpeed = 6;
    song.initialTempo = 125;
    song.globalVolume = 64;
    song.name = "minimal";
    EXPECT_TRUE(song.orders.allocZeroed(1));
    song.hasOrders = true;
    EXPECT_TRUE(song.patternTracks.allocZeroed(4));
    EXPECT_TRUE(song.patternRows.allocZeroed(1));
    song.patternRows[0] = 64;
    song.tracks.resize(1);
    const uint8_t end = 0;
    EXPECT_TRUE(song.tracks[0].dupBuffer(&end, 1));
    return song;
}

SongHeader makeRichModule(uint32_t originFlags) {
    SongHeader song;
    song.name = "every record kind";
    song.message = "line one\rline two";
    song.channels = 3;
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

    const std::vector<uint8_t> orders = {0, 1, 2, 1, 0xFE, 0xFF};
    song.orderCount = static_cast<uint16_t>(orders.size());
    EXPECT_TRUE(song.orders.dupBuffer(orders.data(), orders.size()));
    song.hasOrders = true;

    song.patternCount = 3;
    song.trackCount = 4;
    EXPECT_TRUE(song.patternRows.allocate(3));
    song.patternRows[0] = 64;
    song.patternRows[1] = 32;
    song.patternRows[2] = 200;
    EXPECT_TRUE(song.patternTracks.allocate(9));
    const uint16_t table[9] = {1, 2, 0, 3, 0, 1, 2, 2, 3};  // shared tracks
    for (int i = 0; i < 9; ++i) song.patternTracks[i] = table[i];
    song.tracks.resize(4);
    setTrack(song, 0, {0x00});
    std::vector<TrackRow> rows(64);
    rows[0] = {{CMD_NOTE, 48}, {CMD_INSTRUMENT, 0}, {15, 40}};
    rows[4] = {{CMD_NOTE, 255}};
    rows[8] = {{CMD_NOTE, 60}, {CMD_INSTRUMENT, 1}, {43, 0xF2}};
    setTrack(song, 1, encodeTrack(rows));
    std::vector<TrackRow> runs(32, TrackRow{{6, 0x20}});
    runs[31] = {{CMD_NOTE, 254}};
    setTrack(song, 2, encodeTrack(runs));
    setTrack(song, 3, {0xF0, 0xF0, 0x31, 0x01, 0x30, 0x02, 0x01, 0x30, 0x03, 0x04, 0x00});

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
        smp.frequency = static_cast<uint32_t>(8363 + i * 1000);
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
            EXPECT_TRUE(song.samples[7].pcm[c].dupBuffer(song.samples[6].pcm[c].data(), song.samples[6].length));
        }
    }

    EXPECT_TRUE(song.channelFx.allocate(song.channels * 4));
    for (size_t k = 0; k < song.channelFx.size(); ++k) song.channelFx[k] = static_cast<uint8_t>(k * 7);
    const uint8_t chunk[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    EXPECT_TRUE(song.fxSlots[2].data.dupBuffer(chunk, 10));
    song.fxSlots[2].size = 10;
    song.fxSlots[2].present = true;
    song.fxSlots[19].present = true;  // a chunk of 0 bytes
    return song;
}

void expectSameModule(const SongHeader& e, const SongHeader& a) {
    EXPECT_EQ(e.name, a.name);
    EXPECT_EQ(e.message, a.message);
    EXPECT_EQ(e.channels, a.channels);
    EXPECT_EQ(e.orderCount, a.orderCount);
    EXPECT_EQ(e.restartPos, a.restartPos);
    EXPECT_EQ(e.patternCount, a.patternCount);
    EXPECT_EQ(e.trackCount, a.trackCount);
    EXPECT_EQ(e.instrumentCount, a.instrumentCount);
    EXPECT_EQ(e.sampleCount, a.sampleCount);
    EXPECT_EQ(e.initialSpeed, a.initialSpeed);
    EXPECT_EQ(e.initialTempo, a.initialTempo);
    EXPECT_EQ(e.flags, a.flags);
    EXPECT_EQ(e.globalVolume, a.globalVolume);
    EXPECT_EQ(e.separation, a.separation);
    EXPECT_EQ(e.mixVolume, a.mixVolume);
    EXPECT_EQ(e.channelVolume, a.channelVolume);
    EXPECT_EQ(e.channelPan, a.channelPan);
    EXPECT_EQ(e.sfxMacro, a.sfxMacro);
    EXPECT_EQ(e.zxxMacro, a.zxxMacro);
    ASSERT_EQ(e.orders.size(), a.orders.size());
    for (size_t i = 0; i < e.orders.size(); ++i) EXPECT_EQ(e.orders[i], a.orders[i]) << "order " << i;
    ASSERT_EQ(e.patternTracks.size(), a.patternTracks.size());
    for (size_t i = 0; i < e.patternTracks.size(); ++i) EXPECT_EQ(e.patternTracks[i], a.patternTracks[i]);
    ASSERT_EQ(e.patternRows.size(), a.patternRows.size());
    for (size_t i = 0; i < e.patternRows.size(); ++i) EXPECT_EQ(e.patternRows[i], a.patternRows[i]);
    ASSERT_EQ(e.tracks.size(), a.tracks.size());
    for (size_t t = 0; t < e.tracks.size(); ++t)
        EXPECT_EQ(std::vector<uint8_t>(e.tracks[t].begin(), e.tracks[t].end()),
                  std::vector<uint8_t>(a.tracks[t].begin(), a.tracks[t].end()))
            << "track " << t;
    ASSERT_EQ(e.instruments.size(), a.instruments.size());
    for (size_t i = 0; i < e.instruments.size(); ++i) EXPECT_TRUE(e.instruments[i] == a.instruments[i]) << "instrument " << i;
    ASSERT_EQ(e.samples.size(), a.samples.size());
    for (size_t i = 0; i < e.samples.size(); ++i) {
        const SampleRecord& x = e.samples[i];
        const SampleRecord& y = a.samples[i];
        SCOPED_TRACE("sample " + std::to_string(i));
        EXPECT_EQ(x.frequency, y.frequency);
        EXPECT_EQ(x.relativeNote, y.relativeNote);
        EXPECT_EQ(x.volume, y.volume);
        EXPECT_EQ(x.pan, y.pan);
        EXPECT_EQ(x.length, y.length);
        EXPECT_EQ(x.loopStart, y.loopStart);
        EXPECT_EQ(x.loopEnd, y.loopEnd);
        EXPECT_EQ(x.flags, y.flags);
        EXPECT_EQ(x.vibratoType, y.vibratoType);
        EXPECT_EQ(x.vibratoSweep, y.vibratoSweep);
        EXPECT_EQ(x.vibratoDepth, y.vibratoDepth);
        EXPECT_EQ(x.vibratoSpeed, y.vibratoSpeed);
        EXPECT_EQ(x.globalVolume, y.globalVolume);
        EXPECT_EQ(x.sustainStart, y.sustainStart);
        EXPECT_EQ(x.sustainEnd, y.sustainEnd);
        EXPECT_EQ(x.codecParam, y.codecParam);
        EXPECT_EQ(x.headerSource, y.headerSource);
        EXPECT_EQ(x.name, y.name);
        EXPECT_EQ(x.fileName, y.fileName);
        for (int c = 0; c < 2; ++c) {
            ASSERT_EQ(x.pcm[c].size(), y.pcm[c].size()) << "channel " << c;
            for (size_t k = 0; k < x.pcm[c].size(); ++k)
                ASSERT_EQ(x.pcm[c][k], y.pcm[c][k]) << "channel " << c << " frame " << k;
        }
    }
    EXPECT_EQ(e.channelFx.size(), a.channelFx.size());
    for (size_t k = 0; k < e.channelFx.size() && k < a.channelFx.size(); ++k) EXPECT_EQ(e.channelFx[k], a.channelFx[k]);
    for (int k = 0; k < MAX_CHUNK_SLOTS; ++k) {
        EXPECT_EQ(e.fxSlots[k].present, a.fxSlots[k].present) << "slot " << k;
        EXPECT_EQ(std::vector<uint8_t>(e.fxSlots[k].data.begin(), e.fxSlots[k].data.end()),
                  std::vector<uint8_t>(a.fxSlots[k].data.begin(), a.fxSlots[k].data.end()))
            << "slot " << k;
    }
}

}  // namespace deqaz::testing
