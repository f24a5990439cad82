// Writes the bundled example: a short IT tune built in memory, stored as a QAZ file with the
// project's own QAZ writer (prediction-coded samples, version 5).
//   make_example OUTPUT.qaz
#include <cmath>
#include <cstdio>
#include <numbers>

#include "container/qaz_writer.hpp"
#include "container/track_encoder.hpp"

using namespace deqaz;

namespace {

void addSample(SongHeader& song, const char* name, uint16_t flags, uint32_t length, double (*wave)(double)) {
    SampleRecord& s = song.samples.emplace_back();
    s.name = name;
    s.flags = static_cast<uint16_t>(flags | SF_LOOP);
    s.length = length;
    s.loopStart = 0;
    s.loopEnd = length;
    s.frequency = 8363 * 8;
    s.volume = 64;
    s.globalVolume = 64;
    s.pan = -1;
    (void)s.pcm[0].allocate(length);
    for (uint32_t k = 0; k < length; ++k) {
        double v = wave(static_cast<double>(k) / length) * 0.6;
        auto point = static_cast<int16_t>(std::lround(v * 32767));
        if (!(flags & SF_16BIT)) point = static_cast<int16_t>(point & 0xFF00);
        s.pcm[0][k] = point;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_example OUTPUT.qaz\n");
        return 1;
    }
    SongHeader song;
    song.name = "DEQAZ example";
    song.message = "A short tune made by the DEQAZ example tool.";
    song.flags = SH_ORIGIN_IT | SH_LINEAR_SLIDES;
    song.channels = 4;
    song.initialSpeed = 6;
    song.initialTempo = 125;
    song.globalVolume = 128;
    song.separation = 128;
    song.mixVolume = 20;
    for (int c = 0; c < 64; ++c) {
        song.channelVolume[c] = 64;
        song.channelPan[c] = static_cast<uint8_t>(c % 2 ? 192 : 64);
    }

    addSample(song, "square", SF_DELTA, 64, [](double t) { return t < 0.5 ? 1.0 : -1.0; });
    addSample(song, "sine", SF_PREDICT | SF_16BIT, 256, [](double t) { return std::sin(2 * std::numbers::pi * t); });
    song.sampleCount = static_cast<uint16_t>(song.samples.size());

    // Track 0 is empty; the others are a bass line, a melody and a counter-melody per pattern.
    const int melody[2][8] = {{60, 64, 67, 72, 71, 67, 64, 62}, {65, 69, 72, 77, 76, 72, 69, 67}};
    std::vector<std::vector<uint8_t>> tracks = {{0}};
    for (int p = 0; p < 2; ++p) {
        std::vector<TrackRow> bass(64), lead(64), echo(64);
        for (int r = 0; r < 64; r += 8) bass[r] = {{CMD_NOTE, static_cast<uint8_t>(36 + 5 * p)}, {CMD_INSTRUMENT, 0}};
        for (int i = 0; i < 8; ++i) {
            lead[i * 8] = {{CMD_NOTE, static_cast<uint8_t>(melody[p][i])}, {CMD_INSTRUMENT, 1}, {CMD_SET_VOLUME, 48}};
            lead[i * 8 + 4] = {{CMD_VIBRATO, 0x44}};
            echo[i * 8 + 2] = {{CMD_NOTE, static_cast<uint8_t>(melody[p][i] - 12)}, {CMD_INSTRUMENT, 1}, {CMD_SET_VOLUME, 24}};
        }
        echo[63] = {{CMD_IT_SPECIAL, 0x80}};
        tracks.push_back(encodeTrack(bass));
        tracks.push_back(encodeTrack(lead));
        tracks.push_back(encodeTrack(echo));
    }
    song.trackCount = static_cast<uint16_t>(tracks.size());
    song.tracks.resize(tracks.size());
    for (size_t t = 0; t < tracks.size(); ++t) (void)song.tracks[t].dupBuffer(tracks[t].data(), tracks[t].size());

    song.patternCount = 2;
    (void)song.patternRows.allocate(2);
    (void)song.patternTracks.allocate(8);
    for (int p = 0; p < 2; ++p) {
        song.patternRows[p] = 64;
        for (int c = 0; c < 3; ++c) song.patternTracks[p * 4 + c] = static_cast<uint16_t>(1 + 3 * p + c);
        song.patternTracks[p * 4 + 3] = 0;
    }
    const uint8_t orders[] = {0, 1, 0, 1};
    song.orderCount = 4;
    (void)song.orders.dupBuffer(orders, 4);

    std::vector<uint8_t> file = writeQaz(song);
    std::FILE* f = std::fopen(argv[1], "wb");
    if (!f || std::fwrite(file.data(), 1, file.size(), f) != file.size()) {
        std::fprintf(stderr, "cannot write %s\n", argv[1]);
        if (f) std::fclose(f);
        return 2;
    }
    std::fclose(f);
    return 0;
}
