#pragma once
// Runs a program as a user would from a shell: arguments, a working directory, standard input
// fed from a string (or /dev/null), standard output and error captured, the exit status.
#include <optional>
#include <string>
#include <vector>

namespace deqaz::test {

struct ProcessOptions {
    std::string cwd;                       // empty: the current directory
    std::optional<std::string> stdinData;  // fed through a pipe, then closed; none: /dev/null
};

struct ProcessResult {
    int exitCode = -1;  // exit status, or -1 when the process did not exit normally
    int signal = 0;     // the signal that ended it, if any
    std::string out;
    std::string err;
};

// The path of a program: a name with a slash as it is, else the first executable of that name on
// PATH; empty when there is none.
std::string findProgram(const std::string& name);

// args[0] is the program: a path, or a name looked up on PATH. Fails the calling test (gtest
// ADD_FAILURE) when it is missing, naming the Debian package that provides it, or cannot start.
ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options = {});

}  // namespace deqaz::test
