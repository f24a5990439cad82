// The container's LZ packer against xz -9 on the same bytes: the unpacked bodies (song header,
// orders, pattern tables, tracks, instrument and sample records) of every corpus module qaz
// reads, packed by the packer and, one file each, by `xz -9`. Prints the totals and the
// packer's speed; scripts/sizes.sh puts them in docs/sizes.md.
//   body_bench [corpus]
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "container/pack.hpp"
#include "container/qaz_writer.hpp"
#include "readers/module_reader.hpp"

using namespace deqaz;
namespace fs = std::filesystem;

namespace {

// Bytes of `xz -9` of `data`, through a temporary file.
size_t xzSize(const std::vector<uint8_t>& data, const fs::path& temp) {
    std::ofstream(temp, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    std::FILE* p = popen(("xz -9 -c '" + temp.string() + "' | wc -c").c_str(), "r");
    unsigned long long n = 0;
    if (!p || std::fscanf(p, "%llu", &n) != 1) n = 0;
    if (p) pclose(p);
    return static_cast<size_t>(n);
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path corpus = argc > 1 ? argv[1] : DEQAZ_BENCH_CORPUS;
    const fs::path temp = fs::temp_directory_path() / ("body_bench_" + std::to_string(::getpid()));
    size_t modules = 0, body = 0, packed = 0, xz = 0;
    double seconds = 0;
    for (const auto& e : fs::recursive_directory_iterator(corpus)) {
        if (!e.is_regular_file()) continue;
        std::ifstream f(e.path(), std::ios::binary);
        const std::vector<uint8_t> data{std::istreambuf_iterator<char>(f), {}};
        ReadResult read = readModule(data.data(), data.size());
        if (!read.song) continue;
        chooseSmallestLossless(*read.song);
        std::vector<SampleStorage> storage;
        if (!planSampleStorage(*read.song, {}, storage)) continue;
        const std::vector<uint8_t> bytes = buildBody(*read.song, 5, storage);
        const auto start = std::chrono::steady_clock::now();
        packed += packBody(bytes.data(), bytes.size()).size();
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        body += bytes.size();
        xz += xzSize(bytes, temp);
        ++modules;
    }
    fs::remove(temp);
    std::printf("modules %zu\nbody %zu\npacker %zu\nxz %zu\npacker_mb_per_s %.2f\n", modules, body, packed, xz,
                static_cast<double>(body) / 1e6 / seconds);
    return 0;
}
