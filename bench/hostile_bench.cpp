// Runs every hostile-input case (cut, flipped and lying QAZ files) through loading and writing,
// each in a child process of its own, and reports the outcome, the time and the peak memory of
// each. Targets: under 2 s and under 512 MiB each.
//   hostile_bench [GOOD.qaz]   (default examples/example.qaz, a version 5 file)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "container/loader.hpp"
#include "hostile_cases.hpp"
#include "writers/writers.hpp"

using namespace deqaz;

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "examples/example.qaz";
    std::ifstream f(path, std::ios::binary);
    std::vector<uint8_t> good{std::istreambuf_iterator<char>(f), {}};
    if (good.size() < 12 || good[3] != 5) {
        std::fprintf(stderr, "need a version 5 QAZ file: %s\n", path);
        return 2;
    }
    double worstSeconds = 0;
    long worstKb = 0;
    std::printf("%-32s %-36s %9s %10s\n", "case", "outcome", "seconds", "peak MiB");
    for (const hostile::Case& c : hostile::makeCases(good)) {
        int pipefd[2];
        if (pipe(pipefd) != 0) return 2;
        auto start = std::chrono::steady_clock::now();
        pid_t pid = fork();
        if (pid == 0) {
            close(pipefd[0]);
            InputStream in{c.file.data(), static_cast<uint32_t>(c.file.size()), 0};
            Diagnostics diag;
            diag.err = std::fopen("/dev/null", "w");
            std::unique_ptr<SongHeader> song = loadModule(in, diag);
            char outcome[240];
            if (!song) {
                std::snprintf(outcome, sizeof outcome, "error: %s", diag.errorText);
            } else {
                OutputBuffer out;
                bool ok = writeModule(*song, out, diag);
                std::snprintf(outcome, sizeof outcome, ok ? "loaded, wrote %u bytes" : "write failed", out.outputSize());
            }
            ssize_t n = write(pipefd[1], outcome, std::strlen(outcome));
            (void)n;
            _exit(0);
        }
        close(pipefd[1]);
        char outcome[240] = {};
        ssize_t n = read(pipefd[0], outcome, sizeof outcome - 1);
        close(pipefd[0]);
        int status = 0;
        rusage usage{};
        wait4(pid, &status, 0, &usage);
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (n <= 0 || !WIFEXITED(status)) std::snprintf(outcome, sizeof outcome, "CRASHED (status %d)", status);
        std::printf("%-32s %-36.36s %9.3f %10.1f\n", c.name.c_str(), outcome, seconds, usage.ru_maxrss / 1024.0);
        if (seconds > worstSeconds) worstSeconds = seconds;
        if (usage.ru_maxrss > worstKb) worstKb = usage.ru_maxrss;
    }
    std::printf("worst: %.3f s, %.1f MiB\n", worstSeconds, worstKb / 1024.0);
    return worstSeconds < 2.0 && worstKb < 512 * 1024 ? 0 : 1;
}
