// Converts the round-trip set — every corpus module the encoder reads, as a QAZ file — with the
// converter's own run (arguments, file in, file out), and compares that with the I/O floor: a
// plain copy of the same output bytes from file to file. Each phase runs in a child process of
// its own so its peak memory is its own; each is timed over several rounds, the best kept.
//   roundtrip_bench [corpus] [rounds]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "container/qaz_writer.hpp"
#include "driver/run.hpp"
#include "readers/module_reader.hpp"

using namespace deqaz;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

std::vector<uint8_t> readBytes(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool writeBytes(const fs::path& p, const std::vector<uint8_t>& bytes) {
    std::ofstream out(p, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

struct Phase {
    double seconds;
    double peakMiB;
    bool ok;
};

// Runs `work` `rounds` times in a child; the child reports its best time through a pipe.
template <class Work>
Phase inChild(int rounds, Work work) {
    int fds[2];
    if (pipe(fds) != 0) return {0, 0, false};
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        double best = 1e30;
        for (int r = 0; r < rounds; ++r) {
            const auto t = Clock::now();
            if (!work()) _exit(1);
            best = std::min(best, std::chrono::duration<double>(Clock::now() - t).count());
        }
        if (write(fds[1], &best, sizeof best) != sizeof best) _exit(1);
        _exit(0);
    }
    close(fds[1]);
    double best = 0;
    const bool got = read(fds[0], &best, sizeof best) == sizeof best;
    close(fds[0]);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    return {best, usage.ru_maxrss / 1024.0, got && WIFEXITED(status) && WEXITSTATUS(status) == 0};
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path corpus = argc > 1 ? argv[1] : DEQAZ_BENCH_CORPUS;
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
    const fs::path work = fs::temp_directory_path() / ("deqaz-roundtrip-bench-" + std::to_string(getpid()));
    fs::create_directories(work);

    // The set, made once (not timed): each module the reader takes, coded losslessly.
    std::vector<std::string> names;
    size_t moduleBytes = 0, qazBytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        const std::vector<uint8_t> module = readBytes(entry.path());
        ReadResult read = readModule(module.data(), module.size());
        if (!read.song) continue;
        const std::vector<uint8_t> qaz = writeQaz(*read.song);
        const std::string name = std::to_string(names.size());
        if (qaz.empty() || !writeBytes(work / (name + ".qaz"), qaz)) continue;
        names.push_back(name);
        moduleBytes += module.size();
        qazBytes += qaz.size();
    }

    const Phase convert = inChild(rounds, [&] {
        for (const std::string& n : names) {
            std::string in = (work / (n + ".qaz")).string(), out = (work / (n + ".out")).string();
            char prog[] = "deqaz", silent[] = "-s";
            char* args[] = {prog, silent, in.data(), out.data(), nullptr};
            if (runDeqaz(4, args, StandardStreams{}) != 0) return false;
        }
        return true;
    });
    size_t outputBytes = 0;
    for (const std::string& n : names) outputBytes += fs::file_size(work / (n + ".out"));

    const Phase copy = inChild(rounds, [&] {
        for (const std::string& n : names)
            if (!writeBytes(work / (n + ".copy"), readBytes(work / (n + ".out")))) return false;
        return true;
    });
    fs::remove_all(work);
    if (!convert.ok || !copy.ok) {
        std::fprintf(stderr, "a phase failed\n");
        return 1;
    }
    std::printf("set: %zu modules, %.1f MiB as modules, %.1f MiB as QAZ files, %.1f MiB written back\n", names.size(),
                moduleBytes / 1048576.0, qazBytes / 1048576.0, outputBytes / 1048576.0);
    std::printf("deqaz over the set: %.3f s (best of %d), peak RSS %.1f MiB\n", convert.seconds, rounds, convert.peakMiB);
    std::printf("plain copy of the output bytes: %.3f s, peak RSS %.1f MiB\n", copy.seconds, copy.peakMiB);
    std::printf("conversion / I/O floor: %.2f\n", convert.seconds / copy.seconds);
    return 0;
}
