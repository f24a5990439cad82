// Converts a large IT module (200 patterns x 256 rows x 64 channels, every track different) from
// its QAZ file and reports the time of each stage and the peak memory. The pattern rebuild walks
// each track with a cursor, so the conversion grows linearly with the pattern data.
//   it_convert_bench [patterns] [rows] [channels]
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "container/loader.hpp"
#include "container/qaz_writer.hpp"
#include "container/track_encoder.hpp"
#include "writers/writers.hpp"

using namespace deqaz;
using Clock = std::chrono::steady_clock;

namespace {

double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

SongHeader makeBigModule(unsigned patterns, unsigned rows, unsigned channels) {
    SongHeader song;
    song.name = "benchmark";
    song.flags = SH_ORIGIN_IT | SH_LINEAR_SLIDES;
    song.channels = static_cast<uint8_t>(channels);
    song.initialSpeed = 6;
    song.initialTempo = 125;
    song.globalVolume = 128;
    song.patternCount = static_cast<uint16_t>(patterns);
    (void)song.patternRows.allocate(patterns);
    (void)song.patternTracks.allocate(static_cast<size_t>(patterns) * channels);
    std::mt19937 rng(42);
    song.tracks.resize(static_cast<size_t>(patterns) * channels);
    for (size_t t = 0; t < song.tracks.size(); ++t) {
        std::vector<TrackRow> cells(rows);
        for (unsigned r = 0; r < rows; ++r) {
            switch (rng() % 4) {
                case 0: cells[r] = {{CMD_NOTE, static_cast<uint8_t>(24 + rng() % 72)}, {CMD_INSTRUMENT, static_cast<uint8_t>(rng() % 4)}}; break;
                case 1: cells[r] = {{15, static_cast<uint8_t>(rng() % 65)}, {34, 0x0F}}; break;
                case 2: cells[r] = {{CMD_NOTE, 60}, {7, 0x44}}; break;
                default: break;
            }
        }
        std::vector<uint8_t> bytes = encodeTrack(cells);
        (void)song.tracks[t].dupBuffer(bytes.data(), bytes.size());
    }
    song.trackCount = static_cast<uint16_t>(song.tracks.size() > 65535 ? 65535 : song.tracks.size());
    song.tracks.resize(song.trackCount);
    for (unsigned p = 0; p < patterns; ++p) {
        song.patternRows[p] = static_cast<uint16_t>(rows);
        for (unsigned c = 0; c < channels; ++c)
            song.patternTracks[static_cast<size_t>(p) * channels + c] =
                static_cast<uint16_t>((static_cast<size_t>(p) * channels + c) % song.trackCount);
    }
    song.orderCount = static_cast<uint16_t>(patterns);
    (void)song.orders.allocate(patterns);
    for (unsigned p = 0; p < patterns; ++p) song.orders[p] = static_cast<uint8_t>(p);
    for (int i = 0; i < 4; ++i) {
        SampleRecord& s = song.samples.emplace_back();
        s.length = 20000;
        s.flags = SF_16BIT | SF_PREDICT;
        s.frequency = 22050;
        s.volume = 64;
        s.globalVolume = 64;
        (void)s.pcm[0].allocate(s.length);
        for (uint32_t k = 0; k < s.length; ++k) s.pcm[0][k] = static_cast<int16_t>((k * (i + 3) * 97) & 0x3FFF);
    }
    song.sampleCount = 4;
    return song;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned patterns = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 200;
    unsigned rows = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 256;
    unsigned channels = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 64;

    auto t0 = Clock::now();
    std::vector<uint8_t> qaz;
    {
        SongHeader source = makeBigModule(patterns, rows, channels);
        qaz = writeQaz(source);
    }
    double encode = secondsSince(t0);

    Diagnostics diag;
    diag.err = stderr;
    auto t1 = Clock::now();
    InputStream in{qaz.data(), static_cast<uint32_t>(qaz.size()), 0};
    std::unique_ptr<SongHeader> song = loadModule(in, diag);
    if (!song) {
        std::fprintf(stderr, "load failed: %s\n", diag.errorText);
        return 1;
    }
    double load = secondsSince(t1);

    OutputBuffer out;
    auto t2 = Clock::now();
    if (!writeModule(*song, out, diag)) {
        std::fprintf(stderr, "write failed\n");
        return 1;
    }
    double write = secondsSince(t2);

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("module: %u patterns x %u rows x %u channels, QAZ %zu bytes, IT %u bytes\n", patterns, rows, channels,
                qaz.size(), out.outputSize());
    std::printf("encode (setup) %.3f s, load %.3f s, write IT %.3f s, peak RSS %.1f MiB\n", encode, load, write,
                usage.ru_maxrss / 1024.0);
    return 0;
}
