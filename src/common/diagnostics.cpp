#include "common/diagnostics.hpp"

#include <cstdarg>
#include <cstring>

namespace deqaz {

void Diagnostics::setError(const char* message) {
    std::snprintf(errorText, sizeof errorText, "%s", message);
}

void Diagnostics::say(const char* text) const {
    if (!silent() && err) std::fputs(text, err);
}

void Diagnostics::note(const char* format, ...) {
    char text[200];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    notes.emplace_back(text);
}

}  // namespace deqaz
