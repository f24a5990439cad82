#include "common/diagnostics.hpp"

#include <cstring>

namespace deqaz {

void Diagnostics::setError(const char* message) {
    std::snprintf(errorText, sizeof errorText, "%s", message);
}

void Diagnostics::say(const char* text) const {
    if (!silent()) std::fputs(text, err);
}

}  // namespace deqaz
