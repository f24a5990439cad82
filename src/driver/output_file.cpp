#include "driver/output_file.hpp"

#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cstring>

namespace deqaz {

void stripExtension(std::string& name) {
    size_t dot = name.rfind('.');
    if (dot == std::string::npos) return;
    if (name.find_first_of("/\\", dot) != std::string::npos) return;
    name.resize(dot);
}

bool formOutputName(const char* inputName, const char* outputArg, const char* extension, std::string& name) {
    name.clear();
    if (outputArg) {
        if (std::strlen(outputArg) > OUTPUT_NAME_MAX) return false;
        name = outputArg;
        return true;
    }
    std::string formed = inputName;
    stripExtension(formed);
    formed += '.';
    formed += extension;
    if (formed.size() > OUTPUT_NAME_MAX) return false;
    name = std::move(formed);
    return true;
}

namespace {

// Raw single-key input on a terminal for the lifetime of the object. When the stream is not a
// terminal (a pipe, a file) its settings cannot be had, so nothing is changed or restored.
class RawTerminal {
public:
    explicit RawTerminal(int fd) : fd_(fd) {
        if (fd_ < 0 || tcgetattr(fd_, &saved_) != 0) return;
        haveSaved_ = true;
        termios raw = saved_;
        cfmakeraw(&raw);
        tcsetattr(fd_, TCSANOW, &raw);
    }
    ~RawTerminal() { restore(); }
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

    void restore() {
        if (!haveSaved_) return;
        tcsetattr(fd_, TCSANOW, &saved_);
        haveSaved_ = false;
    }

private:
    int fd_;
    termios saved_{};
    bool haveSaved_ = false;
};

}  // namespace

bool confirmOverwrite(const char* name, std::FILE* in, std::FILE* err) {
    if (access(name, F_OK) != 0) return true;
    std::fprintf(err, "%s exists, overwrite? (Y/N) ", name);
    std::fflush(err);

    RawTerminal terminal(fileno(in));
    for (;;) {
        int c = std::fgetc(in);
        // The end of input or a read error can never bring a "y": take it as no, so nothing
        // is overwritten without the user's word.
        bool yes = false;
        if (c != EOF) {
            c = std::tolower(static_cast<unsigned char>(c));
            if (c != 'y' && c != 'n') continue;
            yes = c == 'y';
        }
        // The key is not echoed; the answer is written in its place, on a restored terminal.
        terminal.restore();
        std::fputs(yes ? "Yes\n" : "No\n", err);
        std::fflush(err);
        return yes;
    }
}

bool writeOutputFile(const char* name, const uint8_t* data, size_t size, std::FILE* out) {
    if (std::strcmp(name, "STDOUT") == 0) {
        if (size) std::fwrite(data, 1, size, out);
        std::fflush(out);
        return true;
    }
    std::FILE* file = std::fopen(name, "wb");
    if (!file) return false;
    if (size) std::fwrite(data, 1, size, file);
    std::fclose(file);
    return true;
}

}  // namespace deqaz
