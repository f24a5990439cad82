// Writes the seed corpora of the fuzz targets, one folder per target, every QAZ file and stream
// made by the project's own writers and encoders:
//   convert/  QAZ files: modules built in memory for every origin format and flag, every sample
//             coding (raw, delta, second-order, stereo, copies, the 0x8000 bit, lossy Vorbis with
//             and without shared header pages, Layer III), extra chunks, versions 4 and 5; and
//             QAZ files made from a handful of real modules of the shared corpus.
//   unpack/   packed bodies of those modules, prefixed with their body size.
//   predict/  streams of the four prediction encoders over assorted signals.
//   vorbis/   Ogg Vorbis streams, whole and split into header pages and audio pages.
//   layer3/   Layer III frame sequences for MPEG-1, MPEG-2 and MPEG-2.5, mono and stereo.
//   tracks/   encoded tracks using every command, and hand-made damaged ones.
//   readers/  the shared corpus's module files up to 16 KB (damaged ones included), as they are.
// The prefixes of each target's input are described in fuzz_paths.hpp.
//   make_seeds OUTDIR [CORPUS_DIR]
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "common/endian.hpp"
#include "container/pack.hpp"
#include "container/qaz_writer.hpp"
#include "container/track_encoder.hpp"
#include "fuzz_paths.hpp"
#include "readers/module_reader.hpp"
#include "samples/lossy_encode.hpp"
#include "samples/predict.hpp"
#include "support/module_builder.hpp"

using namespace deqaz;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

fs::path outRoot;
int written = 0;

void writeSeed(const char* target, const std::string& name, const Bytes& bytes) {
    const fs::path dir = outRoot / target;
    fs::create_directories(dir);
    std::ofstream f(dir / name, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!f) {
        std::fprintf(stderr, "cannot write %s\n", (dir / name).c_str());
        std::exit(2);
    }
    ++written;
}

Bytes le16(uint32_t v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)}; }
Bytes le32(uint32_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}
Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// A deterministic signal: a sine mixed with a little noise, then a step, so every coder sees
// smooth runs and jumps. 8-bit samples keep only the high byte, as decoding leaves them.
std::vector<int16_t> signal(size_t count, unsigned seed, bool eightBit) {
    std::vector<int16_t> v(count);
    uint32_t x = seed * 2654435761u + 7;
    for (size_t k = 0; k < count; ++k) {
        x = x * 1103515245u + 12345u;
        double s = std::sin(static_cast<double>(k) * (0.05 + 0.01 * seed)) * 20000.0;
        s += static_cast<double>(static_cast<int>((x >> 16) % 4001) - 2000);
        if (k > count * 3 / 4) s = (k % 16 < 8) ? 30000.0 : -30000.0;
        auto point = static_cast<int16_t>(std::clamp(s, -32768.0, 32767.0));
        v[k] = eightBit ? static_cast<int16_t>(point & 0xFF00) : point;
    }
    return v;
}

// ---- In-memory modules -------------------------------------------------------------------------

// Rows that between them use every command number with assorted parameters, competing commands
// in one row, note cut and note off, and the largest row a group holds.
std::vector<std::vector<TrackRow>> trackRows(unsigned samples) {
    std::vector<std::vector<TrackRow>> tracks;
    std::vector<TrackRow> every(64);
    for (unsigned r = 0; r < 64; ++r) {
        const auto cmd = static_cast<uint8_t>(3 + r % 49);
        const auto param = static_cast<uint8_t>(r * 37 + 5);
        every[r] = {{CMD_NOTE, static_cast<uint8_t>((r * 7) % 120)},
                    {CMD_INSTRUMENT, static_cast<uint8_t>(r % (samples ? samples : 1))},
                    {cmd, param}};
    }
    tracks.push_back(every);

    std::vector<TrackRow> clashes(64);
    const uint8_t pairs[][4] = {{15, 40, 20, 0x0F}, {6, 16, 34, 0x20}, {7, 4, 34, 0x02}, {11, 64, 11, 255},
                                {5, 8, 4, 0x10},    {6, 32, 7, 3},     {31, 5, 32, 9},   {21, 0xF0, 27, 0x0F},
                                {48, 4, 49, 3},     {50, 2, 15, 64},   {29, 1, 30, 2},   {47, 0x80, 51, 1}};
    for (unsigned r = 0; r < std::size(pairs); ++r)
        clashes[r * 2] = {{pairs[r][0], pairs[r][1]}, {pairs[r][2], pairs[r][3]}, {9, 0x11}};
    clashes[30] = {{CMD_NOTE, 254}};
    clashes[31] = {{CMD_NOTE, 255}, {CMD_INSTRUMENT, 0}};
    clashes[40] = TrackRow(15, TrackCommand{8, 0x33});
    clashes[41] = {{0, 0}, {CMD_NOTE, 60}};  // a command 0 ends the list
    clashes[42] = {{60, 1}, {255, 255}, {CMD_NOTE, 119}};
    tracks.push_back(clashes);

    std::vector<TrackRow> runs(48, TrackRow{{6, 0x20}});
    runs[0] = {{CMD_NOTE, 48}, {CMD_INSTRUMENT, 1}};
    runs[47] = {{18, 0x7D}};
    tracks.push_back(runs);
    return tracks;
}

// The rich test module, its third pattern playing tracks that use every command, clashes and
// long runs.
SongHeader richModule(uint32_t flags) {
    SongHeader song = test::makeRichModule(flags);
    unsigned c = 0;
    for (const auto& rows : trackRows(song.sampleCount)) song.patternTracks[2 * song.channels + c++] = test::addTrackRows(song, rows);
    return song;
}

struct OriginVariant {
    const char* name;
    uint32_t flags;
    unsigned channels;
};

const OriginVariant kOrigins[] = {
    {"it-ins", SH_ORIGIN_IT | SH_IT_INSTRUMENTS | SH_LINEAR_SLIDES | SH_EXTRA_CHUNKS | SH_IT_FLAG_1000, 8},
    {"it-smp", SH_ORIGIN_IT | SH_IT_NO_COMPAT_GXX | SH_IT_NO_OLD_EFFECTS, 5},
    {"s3m", SH_ORIGIN_S3M | SH_S3M_ST300_VOLSLIDES | SH_S3M_AMIGA_LIMITS, 8},
    {"s3m-plain", SH_ORIGIN_S3M | SH_EXTRA_CHUNKS, 4},
    {"mod", SH_ORIGIN_MOD, 4},
    {"mod-8ch", SH_ORIGIN_MOD | SH_EXTRA_CHUNKS, 8},
    {"mtm", SH_ORIGIN_MTM, 4},
    {"xm", SH_LINEAR_SLIDES | SH_XM_ALT_TRACKER_NAME | SH_EXTRA_CHUNKS, 6},
    {"xm-amiga", 0, 2},
};

// The packed body of a QAZ file as the unpack target takes it: the body size, then the packed
// bytes (the sample data after them is left out).
void writeUnpackSeed(const std::string& name, const SongHeader& song, uint8_t version) {
    std::vector<SampleStorage> storage;
    if (!planSampleStorage(song, {}, storage)) return;
    const Bytes body = buildBody(song, version, storage);
    if (body.empty() || body.size() > 0xFFFFF) return;
    writeSeed("unpack", name, concat({le32(static_cast<uint32_t>(body.size())), packBody(body.data(), body.size())}));
}

void writeModuleSeeds() {
    for (const OriginVariant& o : kOrigins) {
        for (uint8_t version : {uint8_t{5}, uint8_t{4}}) {
            const std::string base = std::string(o.name) + "-v" + std::to_string(version);
            SongHeader rich = richModule(o.flags);
            QazWriteOptions options;
            options.version = version;
            writeSeed("convert", base + ".qaz", writeQaz(rich, options));
            writeUnpackSeed(base + ".bin", rich, version);
            SongHeader minimal = test::makeOnePatternSong(o.flags, o.channels);
            test::addSample(minimal, 0, 48);
            writeSeed("convert", base + "-minimal.qaz", writeQaz(minimal, options));
        }
    }
    // Lossy storage on a few origins (every sample with data of its own becomes lossy).
    const struct {
        const char* name;
        LossyCoding coding;
        bool share;
    } lossy[] = {{"vorbis", LossyCoding::Vorbis, false},
                 {"vorbis-shared", LossyCoding::Vorbis, true},
                 {"layer3", LossyCoding::Layer3, false}};
    for (const auto& l : lossy) {
        for (const OriginVariant& o : {kOrigins[0], kOrigins[2], kOrigins[7]}) {
            SongHeader song = richModule(o.flags);
            QazWriteOptions options;
            options.lossy = l.coding;
            options.shareVorbisHeaders = l.share;
            options.lossyOnlyWhenSmaller = false;
            options.vorbisQuality = -0.1f;
            options.layer3Bitrate = 32;
            const Bytes file = writeQaz(song, options);
            if (file.empty()) {
                std::fprintf(stderr, "make_seeds: the %s encoder refused %s\n", l.name, o.name);
                continue;
            }
            writeSeed("convert", std::string(o.name) + "-" + l.name + ".qaz", file);
        }
    }
}

// QAZ files from real modules: the smallest few of each format that the readers accept, each
// stored once as it is read and once with its samples prediction-coded.
void writeCorpusSeeds(const fs::path& corpus) {
    if (!fs::is_directory(corpus)) {
        std::fprintf(stderr, "make_seeds: no corpus at %s, skipping corpus seeds\n", corpus.c_str());
        return;
    }
    std::vector<std::pair<uintmax_t, fs::path>> files;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
        files.emplace_back(entry.file_size(), entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<std::pair<std::string, int>> taken = {{".it", 0}, {".xm", 0}, {".s3m", 0}, {".mod", 0}, {".mtm", 0}};
    for (const auto& [bytes, path] : files) {
        std::string ext = path.extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char ch) { return std::tolower(ch); });
        auto slot = std::find_if(taken.begin(), taken.end(), [&](const auto& t) { return t.first == ext; });
        if (slot == taken.end() || bytes > 40000) continue;
        std::ifstream f(path, std::ios::binary);
        const Bytes data((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        // The module files themselves seed the readers (damaged ones included).
        if (bytes <= 16000) writeSeed("readers", path.stem().string() + ext, data);
        if (slot->second >= 3) continue;
        ReadResult read = readModule(data.data(), data.size());
        if (!read.song) continue;
        const std::string name = "corpus-" + path.stem().string();
        // Small seeds keep the fuzzer's input length limit, and so each execution, short.
        const Bytes plain = writeQaz(*read.song);
        if (plain.empty() || plain.size() > 48000) continue;
        writeSeed("convert", name + ".qaz", plain);
        writeUnpackSeed(name + ".bin", *read.song, 5);
        for (SampleRecord& smp : read.song->samples)
            if (smp.storedSize >= 0 && !smp.isCoded()) smp.flags |= (smp.flags & SF_16BIT) ? SF_PREDICT : SF_DELTA;
        writeSeed("convert", name + "-coded.qaz", writeQaz(*read.song));
        ++slot->second;
    }
}

// ---- Per-decoder seeds ---------------------------------------------------------------------------

void writeUnpackExamples() {
    // The two worked examples of the unpacker's format, and a body that is one byte.
    writeSeed("unpack", "example-abab.bin", concat({le32(8), {0x41, 0x62, 0x42, 0x01}}));
    writeSeed("unpack", "example-reuse.bin", concat({le32(10), {0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}}));
    writeSeed("unpack", "one-byte.bin", concat({le32(1), {0x5A}}));
    // Long runs and far matches: a body with repeats 40000 bytes apart (distance codes of 32000+).
    Bytes body(90000);
    for (size_t k = 0; k < body.size(); ++k) body[k] = static_cast<uint8_t>((k % 40000) * 7 / 3 ^ (k / 1000));
    writeSeed("unpack", "far-matches.bin", concat({le32(static_cast<uint32_t>(body.size())), packBody(body.data(), body.size())}));
}

void writePredictSeeds() {
    using Encoder = std::vector<uint8_t> (*)(const int16_t*, size_t);
    const struct {
        const char* name;
        Encoder encode;
        bool eightBit;
    } coders[] = {{"delta8", packDelta8, true},
                  {"delta16", packDelta16, false},
                  {"predict8", packPredict8, true},
                  {"predict16", packPredict16, false}};
    for (const auto& c : coders) {
        for (size_t count : {size_t{1}, size_t{7}, size_t{300}, size_t{2000}}) {
            std::vector<int16_t> v = signal(count, static_cast<unsigned>(count), c.eightBit);
            writeSeed("predict", std::string(c.name) + "-" + std::to_string(count) + ".bin",
                      concat({le16(static_cast<uint32_t>(count)), c.encode(v.data(), v.size())}));
        }
        // Extremes: full-scale alternation makes the widest differences.
        std::vector<int16_t> extreme(200);
        for (size_t k = 0; k < extreme.size(); ++k) extreme[k] = static_cast<int16_t>(k % 2 ? -32768 : 32767);
        if (c.eightBit)
            for (int16_t& x : extreme) x = static_cast<int16_t>(x & 0xFF00);
        writeSeed("predict", std::string(c.name) + "-extreme.bin",
                  concat({le16(200), c.encode(extreme.data(), extreme.size())}));
    }
}

void writeVorbisSeeds() {
    const struct {
        int channels;
        long rate;
        float quality;
        size_t frames;
    } streams[] = {{1, 8363, -0.1f, 600}, {2, 44100, 0.4f, 1500}, {1, 22050, 1.0f, 300}};
    int n = 0;
    for (const auto& s : streams) {
        std::vector<int16_t> pcm = signal(s.frames * static_cast<size_t>(s.channels), 3 + n, false);
        VorbisEncoded enc = encodeVorbis(pcm.data(), s.frames, s.channels, s.rate, s.quality);
        if (!enc.ok) continue;
        const size_t outBytes = s.frames * static_cast<size_t>(s.channels) * 2;
        const std::string base = "stream" + std::to_string(n++);
        const Bytes stream = enc.stream();
        // Whole stream, buffer exactly the audio; then split at the header pages; then a buffer
        // smaller than the audio (decoding stops early) and one larger (silence after it).
        writeSeed("vorbis", base + "-whole.bin", concat({{0}, le16(0), le16(static_cast<uint32_t>(outBytes / 4)), stream}));
        writeSeed("vorbis", base + "-split.bin",
                  concat({{1}, le16(static_cast<uint32_t>(enc.header.size())), le16(static_cast<uint32_t>(outBytes / 4)), enc.header, enc.audio}));
        writeSeed("vorbis", base + "-short.bin", concat({{2}, le16(0), le16(static_cast<uint32_t>(outBytes / 16)), stream}));
        writeSeed("vorbis", base + "-long.bin", concat({{6}, le16(0), le16(static_cast<uint32_t>(outBytes / 2)), stream}));
        // Page CRCs rewritten after mutation, whole and split, so damaged packets reach libvorbis.
        writeSeed("vorbis", base + "-crc.bin", concat({{8}, le16(0), le16(static_cast<uint32_t>(outBytes / 4)), stream}));
        writeSeed("vorbis", base + "-split-crc.bin",
                  concat({{9}, le16(static_cast<uint32_t>(enc.header.size())), le16(static_cast<uint32_t>(outBytes / 4)), enc.header, enc.audio}));
    }
}

void writeLayer3Seeds() {
    const struct {
        int channels;
        long rate;  // 44100: MPEG-1; 22050: MPEG-2; 8000: MPEG-2.5
        int bitrate;
        bool crc;
        size_t frames;
    } streams[] = {{1, 44100, 64, false, 3000}, {2, 44100, 128, true, 2500}, {1, 22050, 32, false, 2000},
                   {2, 22050, 48, true, 1500},  {1, 8000, 8, false, 1500},   {2, 11025, 16, false, 1200}};
    int n = 0;
    for (const auto& s : streams) {
        std::vector<int16_t> pcm = signal(s.frames * static_cast<size_t>(s.channels), 11 + n, false);
        Layer3Encoded enc = encodeLayer3(pcm.data(), s.frames, s.channels, s.rate, s.bitrate, s.crc);
        if (!enc.ok || enc.delayBytes > 0xFFFF) continue;
        const size_t outBytes = s.frames * static_cast<size_t>(s.channels) * 2;
        const std::string base = "stream" + std::to_string(n++);
        writeSeed("layer3", base + ".bin",
                  concat({le16(enc.delayBytes), le16(static_cast<uint32_t>(outBytes / 4)), {0}, enc.frames}));
        // No bytes dropped and a buffer longer than the audio; junk before the first frame.
        writeSeed("layer3", base + "-nodrop.bin",
                  concat({le16(0), le16(static_cast<uint32_t>(outBytes / 2)), {3}, {0x00, 0xFF, 0xE0, 0x12}, enc.frames}));
    }
}

void writeTrackSeeds() {
    int n = 0;
    for (const auto& rows : trackRows(13)) {
        const Bytes track = encodeTrack(rows);
        writeSeed("tracks", "rows" + std::to_string(n) + ".bin", concat({{static_cast<uint8_t>(n)}, track}));
        ++n;
    }
    writeSeed("tracks", "example.bin", {0, 0x21, 0x01, 0x30, 0x10, 0x12, 0x01, 0x32, 0x02, 0x00, 0x00});
    writeSeed("tracks", "rowcount0.bin", {1, 0x02, 0x01, 0x30, 0x02, 0x05, 0x31, 0x01, 0x30, 0x00});
    writeSeed("tracks", "unterminated.bin", {3, 0xF0, 0x12, 0x01, 0x30, 0x00, 0x00, 0xF3, 0x01, 0x20});
    writeSeed("tracks", "empty.bin", {6, 0x00});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: make_seeds OUTDIR [CORPUS_DIR]\n");
        return 1;
    }
    outRoot = argv[1];
    initLossyDecoders();
    writeModuleSeeds();
    writeCorpusSeeds(argc > 2 ? fs::path(argv[2]) : fs::path(DEQAZ_CORPUS));
    writeUnpackExamples();
    writePredictSeeds();
    writeVorbisSeeds();
    writeLayer3Seeds();
    writeTrackSeeds();
    std::printf("make_seeds: %d seed files in %s\n", written, outRoot.c_str());
    return 0;
}
