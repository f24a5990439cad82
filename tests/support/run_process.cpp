#include "support/run_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

extern char** environ;

namespace deqaz::test {

namespace {

void closeFd(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options) {
    ProcessResult result;
    // A child that exits without reading all its input must not kill the test with SIGPIPE;
    // the child itself gets the default action back below.
    signal(SIGPIPE, SIG_IGN);

    int inPipe[2] = {-1, -1}, outPipe[2] = {-1, -1}, errPipe[2] = {-1, -1};
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0 ||
        (options.stdinData && pipe2(inPipe, O_CLOEXEC) != 0)) {
        ADD_FAILURE() << "pipe: " << std::strerror(errno);
        return result;
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.stdinData)
        posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
    else
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
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
    int rc = posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    closeFd(inPipe[0]);
    closeFd(outPipe[1]);
    closeFd(errPipe[1]);
    if (rc != 0) {
        ADD_FAILURE() << "posix_spawn " << args[0] << ": " << std::strerror(rc);
        closeFd(inPipe[1]);
        closeFd(outPipe[0]);
        closeFd(errPipe[0]);
        return result;
    }

    // Feed stdin and drain both outputs together, so no pipe can fill up and stall the child.
    size_t fed = 0;
    const std::string empty;
    const std::string& input = options.stdinData ? *options.stdinData : empty;
    if (inPipe[1] >= 0) {
        fcntl(inPipe[1], F_SETFL, O_NONBLOCK);
        if (input.empty()) closeFd(inPipe[1]);
    }
    while (outPipe[0] >= 0 || errPipe[0] >= 0 || inPipe[1] >= 0) {
        pollfd fds[3] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}, {inPipe[1], POLLOUT, 0}};
        if (poll(fds, 3, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        char buffer[65536];
        for (int i = 0; i < 2; ++i) {
            if (!fds[i].revents) continue;
            int& fd = i == 0 ? outPipe[0] : errPipe[0];
            ssize_t n = read(fd, buffer, sizeof buffer);
            if (n > 0)
                (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
            else if (n == 0 || errno != EINTR)
                closeFd(fd);
        }
        if (fds[2].revents) {
            ssize_t n = write(inPipe[1], input.data() + fed, input.size() - fed);
            if (n > 0) fed += static_cast<size_t>(n);
            if ((n < 0 && errno != EAGAIN && errno != EINTR) || fed == input.size()) closeFd(inPipe[1]);
        }
    }

    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

}  // namespace deqaz::test
