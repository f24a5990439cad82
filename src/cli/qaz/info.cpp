// qaz info: what QAZ files and modules hold, as a table or as one JSON object per file.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "cli/qaz/qaz.hpp"
#include "container/module_info.hpp"
#include "container/loader.hpp"
#include "container/unpack.hpp"
#include "readers/module_reader.hpp"

namespace deqaz::cli {

// A JSON string: quotes, backslashes and control bytes escaped; names are in the tracker's code
// page, not UTF-8, so bytes past ASCII are given as the Latin-1 code points of the same number.
std::string json(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') out += '\\', out += static_cast<char>(c);
        else if (c >= 0x20 && c < 0x7F) out += static_cast<char>(c);
        else {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        }
    }
    return out + "\"";
}

namespace {

// Describes a QAZ file (its records only: no sample is decoded) or a module file; 0, or the
// exit code of the failure with its reason in `why`.
int describeFile(const std::string& name, ModuleInfo& info, std::string& why) {
    std::vector<uint8_t> data;
    std::FILE* in = std::fopen(name.c_str(), "rb");
    const bool readOk = in && readAll(in, data);
    if (in) std::fclose(in);
    if (!readOk) return why = std::strerror(errno ? errno : EIO), 2;
    if (hasQazMagic(data.data(), data.size())) {
        Diagnostics diag;
        diag.err = nullptr;
        InputStream stream{data.data(), static_cast<uint32_t>(std::min<size_t>(data.size(), UINT32_MAX)), 0};
        const std::unique_ptr<SongHeader> song = loadModule(stream, diag, false);
        if (!song) return why = diag.errorText, 3;
        info = describeModule(*song, data[3], data.data(), data.size());
        return 0;
    }
    ReadResult read = readModule(data.data(), data.size());
    if (!read.song) return why = read.error, 3;
    info = describeModule(*read.song, -1, nullptr, 0);
    return 0;
}

void printInfo(const std::string& file, const ModuleInfo& m, bool asJson) {
    uint64_t stored = 0, decoded = 0;
    for (const SampleInfo& s : m.samples) stored += s.storedSize, decoded += s.decodedSize;
    const std::string counts[][2] = {{"channels", std::to_string(m.channels)},       {"orders", std::to_string(m.orders)},
                                     {"patterns", std::to_string(m.patterns)},       {"instruments", std::to_string(m.instruments)},
                                     {"samples", std::to_string(m.samples.size())}};
    if (asJson) {
        std::string line = "{\"file\":" + json(file) + ",\"container\":" + (m.version < 0 ? "null" : std::to_string(m.version)) +
                           ",\"format\":\"" + originExtension(m.origin) + "\",\"name\":" + json(m.name);
        for (const auto& [key, value] : counts) line += ",\"" + key + "\":" + value;
        line += ",\"stored\":" + std::to_string(stored) + ",\"decoded\":" + std::to_string(decoded) + ",\"sample_list\":[";
        for (size_t i = 0; i < m.samples.size(); ++i) {
            const SampleInfo& s = m.samples[i];
            line += std::string(i ? "," : "") + "{\"name\":" + json(s.name) + ",\"coding\":\"" + s.coding + "\"" +
                    (s.copyOf >= 0 ? ",\"copy_of\":" + std::to_string(s.copyOf + 1) : "") + ",\"bits\":" + std::to_string(s.bits) +
                    ",\"channels\":" + std::to_string(s.channels) + ",\"length\":" + std::to_string(s.length) +
                    ",\"stored\":" + std::to_string(s.storedSize) + ",\"decoded\":" + std::to_string(s.decodedSize) + "}";
        }
        std::printf("%s]}\n", line.c_str());
        return;
    }
    std::printf("%s: %s, %s module \"%s\"\n ", file.c_str(),
                m.version < 0 ? "module file" : ("QAZ version " + std::to_string(m.version)).c_str(), originExtension(m.origin),
                m.name.c_str());
    for (const auto& [key, value] : counts) std::printf(" %s %s", value.c_str(), key.c_str());
    std::printf("; sample data %llu bytes stored, %llu decoded\n", static_cast<unsigned long long>(stored),
                static_cast<unsigned long long>(decoded));
    if (!m.samples.empty()) std::printf("  %6s %-10s %4s %2s %10s %10s %10s  %s\n", "sample", "coding", "bits", "ch", "length", "stored", "decoded", "name");
    for (size_t i = 0; i < m.samples.size(); ++i) {
        const SampleInfo& s = m.samples[i];
        const std::string coding = s.copyOf >= 0 ? "copy of " + std::to_string(s.copyOf + 1) : s.coding;
        std::printf("  %6zu %-10s %4d %2d %10u %10llu %10llu  %s\n", i + 1, coding.c_str(), s.bits, s.channels, s.length,
                    static_cast<unsigned long long>(s.storedSize), static_cast<unsigned long long>(s.decodedSize), s.name.c_str());
    }
}

}  // namespace

// qaz info [--json] FILE...: every file described, or its failure named; the exit code is the
// highest of the failures' (2 unreadable, 3 neither a QAZ file nor a module qaz reads).
int runInfo(int argc, char** argv) {
    bool asJson = false, options = true;
    std::vector<std::string> files;
    for (int i = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        if (options && arg == "--") options = false;
        else if (options && arg == "--json") asJson = true;
        else if (options && arg.size() > 1 && arg[0] == '-') return refuse("unknown option '" + arg + "' for info");
        else files.push_back(arg);
    }
    if (files.empty()) return refuse("info needs a file");
    int status = 0;
    for (const std::string& file : files) {
        ModuleInfo info;
        std::string why;
        errno = 0;
        const int code = describeFile(file, info, why);
        if (code == 0) printInfo(file, info, asJson);
        else if (asJson) std::printf("{\"file\":%s,\"error\":%s}\n", json(file).c_str(), json(why).c_str());
        else std::fprintf(stderr, "qaz: %s: %s\n", file.c_str(), why.c_str());
        status = std::max(status, code);
    }
    return status;
}

}  // namespace deqaz::cli
