// Writes the seed corpora of the fuzz targets, one folder per target, every QAZ file and stream
// made by the project's own writers and encoders:
//   convert/  QAZ files of the smallest modules of the shared corpus: versions 4 and 5, the
//             smallest lossless coding, lossy Vorbis (with and without shared header pages) and
//             Layer III.
//   unpack/   packed bodies of those modules, prefixed with their body size; the worked streams.
//   predict/  streams of the four prediction encoders over assorted signals.
//   vorbis/   Ogg Vorbis streams, whole and split into header pages and audio pages.
//   layer3/   Layer III frame sequences for MPEG-1, MPEG-2 and MPEG-2.5, mono and stereo.
//   tracks/   those modules' tracks, and hand-made damaged ones.
//   readers/  the shared corpus's module files up to 16 KB (damaged ones included), as they are.
// The prefixes of each target's input are described in fuzz_paths.hpp.
//   make_seeds OUTDIR [CORPUS_DIR]
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "container/pack.hpp"
#include "container/qaz_writer.hpp"
#include "fuzz_paths.hpp"
#include "readers/module_reader.hpp"
#include "samples/lossy_encode.hpp"
#include "samples/predict.hpp"
#include "support/signals.hpp"

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

// Little-endian prefix fields followed by payloads.
Bytes seed(std::initializer_list<std::pair<uint32_t, int>> fields, std::initializer_list<Bytes> parts) {
    Bytes out;
    for (auto [value, width] : fields)
        for (int k = 0; k < width; ++k) out.push_back(static_cast<uint8_t>(value >> (8 * k)));
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Musical test audio at a rate that varies with the seed. 8-bit samples keep only the high byte,
// as decoding leaves them.
std::vector<int16_t> signal(size_t count, unsigned seed, bool eightBit) {
    std::vector<int16_t> v = test::musicalSignal(count, 1, 8000.0 + 1000.0 * (seed % 16));
    if (eightBit)
        for (int16_t& point : v) point = static_cast<int16_t>(point & 0xFF00);
    return v;
}

// The packed body of a QAZ file as the unpack target takes it (the sample data left out).
void writeUnpackSeed(const std::string& name, const SongHeader& song, uint8_t version) {
    std::vector<SampleStorage> storage;
    if (!planSampleStorage(song, {}, storage)) return;
    const Bytes body = buildBody(song, version, storage);
    if (body.empty() || body.size() > 0xFFFFF) return;
    writeSeed("unpack", name, seed({{static_cast<uint32_t>(body.size()), 4}}, {packBody(body.data(), body.size())}));
}

// One small corpus module as QAZ seeds: as read in versions 5 and 4, in the smallest lossless
// coding, and (for the first of each format) in Vorbis, Vorbis with shared header pages and
// Layer III; its packed body; and its tracks for the track walk.
void writeModuleSeeds(const std::string& name, SongHeader& song, bool lossy) {
    for (uint8_t version : {uint8_t{5}, uint8_t{4}}) {
        QazWriteOptions options;
        options.version = version;
        writeSeed("convert", name + "-v" + std::to_string(version) + ".qaz", writeQaz(song, options));
    }
    writeUnpackSeed(name + ".bin", song, 5);
    for (size_t t = 0; t < song.tracks.size() && t < 8; ++t)
        writeSeed("tracks", name + "-" + std::to_string(t) + ".bin",
                  seed({{static_cast<uint32_t>(t), 1}}, {Bytes(song.tracks[t].data(), song.tracks[t].data() + song.tracks[t].size())}));
    for (int l = 0; lossy && l < 3; ++l) {
        QazWriteOptions options;
        options.lossy = l < 2 ? LossyCoding::Vorbis : LossyCoding::Layer3;
        options.shareVorbisHeaders = l == 1;
        options.lossyOnlyWhenSmaller = false;
        options.vorbisQuality = -0.1f;
        options.layer3Bitrate = 32;
        const Bytes file = writeQaz(song, options);
        if (!file.empty()) writeSeed("convert", name + "-lossy" + std::to_string(l) + ".qaz", file);
    }
    chooseSmallestLossless(song);
    writeSeed("convert", name + "-coded.qaz", writeQaz(song));
}

// The smallest three modules of each format that the readers accept make the QAZ seeds; the
// module files up to 16 KB seed the readers.
void writeCorpusSeeds(const fs::path& corpus) {
    if (!fs::is_directory(corpus)) {
        std::fprintf(stderr, "make_seeds: no corpus at %s, skipping corpus seeds\n", corpus.c_str());
        return;
    }
    std::vector<std::pair<uintmax_t, fs::path>> files;
    for (const auto& entry : fs::recursive_directory_iterator(corpus))
        if (entry.is_regular_file() && entry.path().extension() != ".md") files.emplace_back(entry.file_size(), entry.path());
    std::sort(files.begin(), files.end());
    std::map<std::string, int> taken;
    for (const auto& [bytes, path] : files) {
        std::string ext = path.extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char ch) { return std::tolower(ch); });
        if (bytes > 40000 || (ext != ".it" && ext != ".xm" && ext != ".s3m" && ext != ".mod" && ext != ".mtm")) continue;
        std::ifstream f(path, std::ios::binary);
        const Bytes data((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        if (bytes <= 16000) writeSeed("readers", path.stem().string() + ext, data);
        ReadResult read = readModule(data.data(), data.size());
        if (taken[ext] >= 3 || !read.song || read.song->samples.empty()) continue;
        if (writeQaz(*read.song).size() > 48000) continue;  // small seeds keep each execution short
        writeModuleSeeds("corpus-" + path.stem().string(), *read.song, taken[ext]++ == 0);
    }
}

void writeStreamSeeds() {
    // The unpacker's worked streams, and far matches (distance codes of 32000 and more).
    writeSeed("unpack", "example-abab.bin", seed({{8, 4}}, {{0x41, 0x62, 0x42, 0x01}}));
    writeSeed("unpack", "example-reuse.bin", seed({{10, 4}}, {{0x41, 0x36, 0x42, 0x43, 0x02, 0x78, 0x90}}));
    Bytes body(90000);
    for (size_t k = 0; k < body.size(); ++k) body[k] = static_cast<uint8_t>((k % 40000) * 7 / 3 ^ (k / 1000));
    writeSeed("unpack", "far-matches.bin", seed({{static_cast<uint32_t>(body.size()), 4}}, {packBody(body.data(), body.size())}));

    using Encoder = std::vector<uint8_t> (*)(const int16_t*, size_t);
    const std::pair<Encoder, bool> coders[] = {{packDelta8, true}, {packDelta16, false}, {packPredict8, true}, {packPredict16, false}};
    for (size_t c = 0; c < std::size(coders); ++c) {
        for (size_t count : {size_t{1}, size_t{7}, size_t{300}, size_t{2000}}) {
            const std::vector<int16_t> v = signal(count, static_cast<unsigned>(count), coders[c].second);
            writeSeed("predict", std::to_string(c) + "-" + std::to_string(count) + ".bin",
                      seed({{static_cast<uint32_t>(count), 2}}, {coders[c].first(v.data(), v.size())}));
        }
    }

    // Vorbis: whole, split at the header pages, a buffer short of the audio, one longer, and
    // page CRCs rewritten after mutation so damaged packets reach libvorbis.
    int n = 0;
    for (auto [channels, rate, quality] : {std::tuple{1, 8363L, -0.1f}, std::tuple{2, 44100L, 0.4f}}) {
        const size_t frames = 1000, words = frames * static_cast<size_t>(channels) / 2;
        const std::vector<int16_t> pcm = signal(frames * static_cast<size_t>(channels), 3 + n, false);
        const VorbisEncoded enc = encodeVorbis(pcm.data(), frames, channels, rate, quality);
        if (!enc.ok) continue;
        const auto header = static_cast<uint32_t>(enc.header.size());
        const std::string base = "stream" + std::to_string(n++);
        for (auto [options, out] : {std::pair{0u, words}, {2u, words / 4}, {6u, words * 2}, {8u, words}})
            writeSeed("vorbis", base + "-" + std::to_string(options) + ".bin",
                      seed({{options, 1}, {0, 2}, {static_cast<uint32_t>(out), 2}}, {enc.stream()}));
        for (uint32_t options : {1u, 9u})
            writeSeed("vorbis", base + "-split" + std::to_string(options) + ".bin",
                      seed({{options, 1}, {header, 2}, {static_cast<uint32_t>(words), 2}}, {enc.header, enc.audio}));
    }

    // Layer III at 44100 (MPEG-1), 22050 (MPEG-2) and 8000 Hz (MPEG-2.5); with no bytes dropped,
    // a longer buffer and junk before the first frame too.
    n = 0;
    for (auto [channels, rate, bitrate, crc] : {std::tuple{1, 44100L, 64, false}, {2, 44100L, 128, true},
                                                {2, 22050L, 48, true}, {1, 8000L, 8, false}}) {
        const size_t frames = 2000, words = frames * static_cast<size_t>(channels) / 2;
        const std::vector<int16_t> pcm = signal(frames * static_cast<size_t>(channels), 11 + n, false);
        const Layer3Encoded enc = encodeLayer3(pcm.data(), frames, channels, rate, bitrate, crc);
        if (!enc.ok || enc.delayBytes > 0xFFFF) continue;
        const std::string base = "stream" + std::to_string(n++);
        writeSeed("layer3", base + ".bin", seed({{enc.delayBytes, 2}, {static_cast<uint32_t>(words), 2}, {0, 1}}, {enc.frames}));
        writeSeed("layer3", base + "-nodrop.bin",
                  seed({{0, 2}, {static_cast<uint32_t>(words * 2), 2}, {3, 1}}, {{0x00, 0xFF, 0xE0, 0x12}, enc.frames}));
    }

    writeSeed("tracks", "example.bin", {0, 0x21, 0x01, 0x30, 0x10, 0x12, 0x01, 0x32, 0x02, 0x00, 0x00});
    writeSeed("tracks", "rowcount0.bin", {1, 0x02, 0x01, 0x30, 0x02, 0x05, 0x31, 0x01, 0x30, 0x00});
    writeSeed("tracks", "unterminated.bin", {3, 0xF0, 0x12, 0x01, 0x30, 0x00, 0x00, 0xF3, 0x01, 0x20});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: make_seeds OUTDIR [CORPUS_DIR]\n");
        return 1;
    }
    outRoot = argv[1];
    initLossyDecoders();
    writeCorpusSeeds(argc > 2 ? fs::path(argv[2]) : fs::path(DEQAZ_CORPUS));
    writeStreamSeeds();
    std::printf("make_seeds: %d seed files in %s\n", written, outRoot.c_str());
    return 0;
}
