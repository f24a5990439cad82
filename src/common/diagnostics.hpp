#pragma once
// The run's message state: the silent-mode counter, the text of the one failure that ends the
// run, and the stream every message goes to (standard error in the program, a capture in tests).
#include <cstdio>
#include <string>
#include <vector>

namespace deqaz {

struct Diagnostics {
    int silentCount = 0;        // non-zero: silent mode
    char errorText[200] = {};   // the failure that ends the run
    std::FILE* err = stderr;    // every text of the program goes here; null: nothing is printed
    // What a writer left out or cut to fit its format, one line each. For the library's callers;
    // the converter's own run prints none of it.
    std::vector<std::string> notes;

    bool silent() const { return silentCount != 0; }
    // Copies a message into errorText, cut to fit.
    void setError(const char* message);
    // Prints text unless silent.
    void say(const char* text) const;
    // Records a note, printf-style.
    void note(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

}  // namespace deqaz
