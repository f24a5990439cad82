#include "support/run_process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "support/temp_dir.hpp"

extern char** environ;

namespace deqaz::test {

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const char* path = std::getenv("PATH");
    std::string_view dirs = path && *path ? path : "/usr/bin:/bin";
    while (!dirs.empty()) {
        const size_t colon = dirs.find(':');
        const std::string dir(dirs.substr(0, colon));
        const std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
        dirs = colon == std::string_view::npos ? "" : dirs.substr(colon + 1);
    }
    return "";
}

// The Debian package that provides each outside program the tests run (scripts/setup.sh).
static const char* packageOf(const std::string& program) {
    static const std::pair<const char*, const char*> packages[] = {
        {"mpg123", "mpg123"}, {"lame", "lame"}, {"prlimit", "util-linux"}, {"env", "coreutils"}};
    for (const auto& [name, package] : packages)
        if (program == name) return package;
    return "?";
}

ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options) {
    ProcessResult result;
    const std::string program = findProgram(args.at(0));
    if (program.empty()) {
        ADD_FAILURE() << args[0] << " is not on PATH: install the Debian package " << packageOf(args[0]);
        return result;
    }
    // A child that exits without reading all its input must not kill the test with SIGPIPE;
    // the child itself gets the default action back below.
    signal(SIGPIPE, SIG_IGN);
    // Standard input is a pipe (fed by a thread, then closed); the outputs go to temporary files.
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    int in[2] = {-1, -1};
    if (!out || !err || (options.stdinData && pipe2(in, O_CLOEXEC) != 0)) {
        ADD_FAILURE() << "cannot set up the streams: " << std::strerror(errno);
        if (out) std::fclose(out);
        if (err) std::fclose(err);
        return result;
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.stdinData)
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    else
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fileno(out), 1);
    posix_spawn_file_actions_adddup2(&actions, fileno(err), 2);
    if (!options.cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, options.cwd.c_str());
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF);
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    pid_t pid = -1;
    const int rc = posix_spawn(&pid, program.c_str(), &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (in[0] >= 0) close(in[0]);
    std::thread feeder([fd = in[1], ok = rc == 0, &options] {
        if (fd < 0) return;
        const std::string& data = *options.stdinData;
        for (size_t fed = 0; ok && fed < data.size();) {
            const ssize_t n = write(fd, data.data() + fed, data.size() - fed);
            if (n < 0 && errno != EINTR) break;
            if (n > 0) fed += static_cast<size_t>(n);
        }
        close(fd);
    });
    if (rc != 0) {
        ADD_FAILURE() << "posix_spawn " << args[0] << ": " << std::strerror(rc);
    } else {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    }
    feeder.join();
    result.out = readStream(out);
    result.err = readStream(err);
    std::fclose(out);
    std::fclose(err);
    return result;
}

}  // namespace deqaz::test
