// qaz pack, unpack and verify: whole collections, through the library, on every core.
//   qaz pack   [-r] [-f] [-o DIR] [-j N] [--json] [--strict] [-c CODING] [-v VERSION] FILE|DIR...
//   qaz unpack [-r] [-f] [-o DIR] [-j N] [--json] [--exact] FILE|DIR...
//   qaz verify [-r] [-j N] [--json] [-c CODING] [-v VERSION] FILE|DIR...
// verify packs each module in memory, converts it back and compares: identical, or how many
// bytes differ, and whether the module as converted back packs to the same QAZ file again (what
// the container cannot hold is lost once, and only once); nothing is written.
// A folder gives the files in it with the mode's extensions (-r: also in its subfolders); a file
// named on the command line is taken whatever its name. Each output goes beside its input, or
// under DIR keeping its path below the folder it was found in. One bad file never stops the batch:
// it is reported with its name and reason and the others go on; the exit code is 3 when any file
// failed. Outputs are written to a temporary file and renamed, so a failure leaves no partial
// file; an existing file is replaced only with -f, and never when it is an input of the run or
// another file's output.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include "cli/qaz/qaz.hpp"
#include "container/encode_module.hpp"
#include "deqaz/deqaz.h"

namespace deqaz::cli {

namespace fs = std::filesystem;

namespace {

struct Job {
    fs::path input;
    fs::path relative;  // below the folder it was found in, or its file name
};

struct Batch {
    bool pack = true, verify = false, recurse = false, force = false, json = false, exact = false, strict = false;
    fs::path outDir;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    EncodeSettings settings;
    std::vector<Job> files;
    std::set<fs::path> inputs;  // canonical paths of every input

    std::mutex lock;  // guards what follows, and the terminal
    std::set<fs::path> claimed;
    size_t done = 0, failed = 0, differ = 0;
    uint64_t bytesIn = 0, bytesOut = 0;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    bool progress = false;
};

bool lowerExtensionIs(const fs::path& p, std::initializer_list<const char*> extensions) {
    std::string ext = p.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(extensions.begin(), extensions.end(), [&](const char* e) { return ext == e; });
}

bool wanted(const Batch& b, const fs::path& p) {
    return b.pack ? lowerExtensionIs(p, {".it", ".xm", ".s3m", ".mod", ".mtm"}) : lowerExtensionIs(p, {".qaz"});
}

// The files an operand names; false (with the reason) when it names nothing.
bool collect(Batch& b, const std::string& operand, std::string& why) {
    std::error_code ec;
    const fs::path root(operand);
    if (fs::is_directory(root, ec)) {
        auto take = [&](const fs::directory_entry& e) {
            if (e.is_regular_file(ec) && wanted(b, e.path())) b.files.push_back({e.path(), e.path().lexically_relative(root)});
        };
        if (b.recurse) {
            for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
                take(*it);
        } else {
            for (auto it = fs::directory_iterator(root, ec); !ec && it != fs::directory_iterator(); it.increment(ec)) take(*it);
        }
        if (ec) return why = ec.message(), false;
        return true;
    }
    if (!fs::exists(root, ec)) return why = std::strerror(ENOENT), false;
    b.files.push_back({root, root.filename()});
    return true;
}

bool readFile(const fs::path& p, std::vector<uint8_t>& data, std::string& why) {
    std::FILE* f = std::fopen(p.c_str(), "rb");
    const bool ok = f && readAll(f, data);
    if (!ok) why = std::strerror(errno ? errno : EIO);
    if (f) std::fclose(f);
    return ok;
}

// Writes `bytes` to a temporary file beside `target`, then renames it into place; `why` names the
// target and the system's reason when it cannot.
bool writeAtomically(const fs::path& target, const void* bytes, size_t size, std::string& why) {
    std::error_code ec;
    if (!target.parent_path().empty()) fs::create_directories(target.parent_path(), ec);
    std::string temp = (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
    const int fd = mkstemp(temp.data());
    if (fd < 0) return why = "cannot write " + target.string() + ": " + std::strerror(errno), false;
    const auto* p = static_cast<const char*>(bytes);
    size_t left = size;
    while (left) {
        const ssize_t n = ::write(fd, p, left);
        if (n <= 0) break;
        p += n;
        left -= static_cast<size_t>(n);
    }
    const int writeErrno = left ? (errno ? errno : ENOSPC) : 0;
    const bool closed = ::close(fd) == 0;
    if (left || !closed || std::rename(temp.c_str(), target.c_str()) != 0) {
        why = "cannot write " + target.string() + ": " + std::strerror(writeErrno ? writeErrno : errno);
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

// The output's path: the input's with its extension replaced, under -o DIR if given.
fs::path outputFor(const Batch& b, const Job& job, const std::string& ext) {
    fs::path name = job.relative;
    if (b.pack || lowerExtensionIs(name, {".qaz"})) name.replace_extension(ext);
    else name += "." + ext;
    return b.outDir.empty() ? job.input.parent_path() / name.filename() : b.outDir / name;
}

// Claims an output path for one file: not an input, not another file's output, not an existing
// file unless -f.
bool claim(Batch& b, const fs::path& out, std::string& why) {
    std::error_code ec;
    const fs::path canonical = fs::weakly_canonical(out, ec);
    std::lock_guard<std::mutex> guard(b.lock);
    if (b.inputs.count(canonical)) return why = out.string() + " is an input of this run", false;
    if (!b.claimed.insert(canonical).second) return why = out.string() + " is another file's output", false;
    if (!b.force && fs::exists(out, ec)) return why = out.string() + " exists (-f replaces it)", false;
    return true;
}

struct Outcome {
    fs::path output;
    std::string error, format;
    uint64_t in = 0, out = 0;
    std::vector<std::string> notes;
    int lossy = -1, lossless = 0;  // pack with a lossy coding: samples coded so, and not
    // verify: bytes of the converted module that differ from the original (its size counts as
    // differing bytes where the two lengths part), the first such offset, and whether it packs
    // to the same QAZ file again.
    uint64_t differing = 0, firstDifference = 0;
    bool stable = true;
};

std::vector<std::string> lines(const char* text) {
    std::vector<std::string> out;
    for (const char* p = text; p && *p;) {
        const char* end = std::strchr(p, '\n');
        out.emplace_back(p, end ? end : p + std::strlen(p));
        p = end ? end + 1 : p + std::strlen(p);
    }
    return out;
}

Outcome unpackOne(Batch& b, const Job& job) {
    Outcome o;
    std::vector<uint8_t> data;
    if (!readFile(job.input, data, o.error)) return o;
    o.in = data.size();
    deqaz_options options{};
    options.flags = b.exact ? 0u : DEQAZ_FOR_PLAYERS;
    deqaz_result r;
    const int code = deqaz_convert_ex(data.data(), data.size(), &options, &r);
    const std::vector<std::string> messages = lines(r.messages);
    o.notes = lines(r.notes);
    deqaz_free(r.messages), deqaz_free(r.notes);
    if (code != DEQAZ_OK) {
        o.error = messages.empty() ? "cannot be converted" : messages.back().substr(messages.back().find(' ') + 1);
        return o;
    }
    for (const std::string& m : messages) o.notes.push_back(m);
    o.format = r.ext;
    o.output = outputFor(b, job, r.ext);
    o.out = r.module_size;
    if (claim(b, o.output, o.error)) writeAtomically(o.output, r.module, r.module_size, o.error);
    deqaz_free(r.module);
    return o;
}

Outcome packOne(Batch& b, const Job& job) {
    Outcome o;
    std::vector<uint8_t> data;
    if (!readFile(job.input, data, o.error)) return o;
    o.in = data.size();
    const EncodeResult r = encodeModule(data.data(), data.size(), b.settings);
    o.notes = r.warnings;
    if (r.code != 0) return o.error = r.error, o;
    if (b.strict && !r.warnings.empty()) return o.error = "--strict: " + r.warnings.front(), o;
    o.format = originExtension(r.song->origin());
    o.out = r.qaz.size();
    if (b.settings.write.lossy != LossyCoding::None) {
        deqaz_info* info = nullptr;
        if (deqaz_inspect(r.qaz.data(), r.qaz.size(), &info) == DEQAZ_OK) {
            o.lossy = 0;
            for (int i = 0; i < info->sample_count; ++i) {
                const std::string coding = info->samples[i].coding;
                if (coding == "vorbis" || coding == "mp3") ++o.lossy;
                else if (coding != "copy" && coding != "empty") ++o.lossless;
            }
        }
        deqaz_free(info);
    }
    o.output = outputFor(b, job, "qaz");
    if (claim(b, o.output, o.error)) writeAtomically(o.output, r.qaz.data(), r.qaz.size(), o.error);
    return o;
}

Outcome verifyOne(Batch& b, const Job& job) {
    Outcome o;
    std::vector<uint8_t> data;
    if (!readFile(job.input, data, o.error)) return o;
    o.in = data.size();
    const EncodeResult first = encodeModule(data.data(), data.size(), b.settings);
    o.notes = first.warnings;
    if (first.code != 0) return o.error = first.error, o;
    o.format = originExtension(first.song->origin());
    deqaz_result r;
    const int code = deqaz_convert_ex(first.qaz.data(), first.qaz.size(), nullptr, &r);
    for (const std::string& n : lines(r.notes)) o.notes.push_back(n);
    deqaz_free(r.messages), deqaz_free(r.notes);
    if (code != DEQAZ_OK) return o.error = "its QAZ file does not convert back", o;
    const auto* back = static_cast<const uint8_t*>(r.module);
    o.out = r.module_size;
    const size_t common = std::min<size_t>(data.size(), r.module_size);
    o.differing = std::max<size_t>(data.size(), r.module_size) - common;
    o.firstDifference = common;
    for (size_t i = common; i-- > 0;)
        if (data[i] != back[i]) ++o.differing, o.firstDifference = i;
    if (o.differing) o.stable = encodeModule(back, r.module_size, b.settings).qaz == first.qaz;
    deqaz_free(r.module);
    return o;
}

std::string humanBytes(uint64_t bytes) {
    char text[32];
    if (bytes >= 1000000) std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
    else if (bytes >= 1000) std::snprintf(text, sizeof text, "%.1f kB", static_cast<double>(bytes) / 1e3);
    else std::snprintf(text, sizeof text, "%llu bytes", static_cast<unsigned long long>(bytes));
    return text;
}

void report(Batch& b, const Job& job, const Outcome& o) {
    std::lock_guard<std::mutex> guard(b.lock);
    ++b.done;
    const bool ok = o.error.empty();
    b.failed += !ok;
    b.bytesIn += ok ? o.in : 0;
    b.bytesOut += ok ? o.out : 0;
    b.differ += ok && o.differing;
    if (b.progress) std::fputs("\r\033[K", stderr);
    if (b.json) {
        std::string line = "{\"file\":" + json(job.input.string());
        if (!ok) {
            line += ",\"error\":" + json(o.error);
        } else {
            if (!b.verify) line += ",\"output\":" + json(o.output.string());
            line += ",\"format\":\"" + o.format + "\",\"bytes_in\":" +
                    std::to_string(o.in) + ",\"bytes_out\":" + std::to_string(o.out);
            if (o.lossy >= 0) line += ",\"samples_lossy\":" + std::to_string(o.lossy) + ",\"samples_lossless\":" + std::to_string(o.lossless);
            if (b.verify)
                line += std::string(",\"identical\":") + (o.differing ? "false" : "true") + ",\"bytes_differing\":" +
                        std::to_string(o.differing) + (o.differing ? ",\"first_difference\":" + std::to_string(o.firstDifference) : "") +
                        ",\"stable\":" + (o.stable ? "true" : "false");
        }
        line += ",\"notes\":[";
        for (size_t i = 0; i < o.notes.size(); ++i) line += (i ? "," : "") + json(o.notes[i]);
        std::printf("%s]}\n", line.c_str());
        std::fflush(stdout);
    } else if (!ok) {
        std::fprintf(stderr, "qaz: %s: %s\n", job.input.c_str(), o.error.c_str());
    } else {
        for (const std::string& n : o.notes) std::fprintf(stderr, "qaz: %s: %s\n", job.input.c_str(), n.c_str());
        if (b.verify && !o.differing) std::printf("%s: identical\n", job.input.c_str());
        if (b.verify && o.differing)
            std::printf("%s: %llu of %llu bytes differ, the first at %llu; %s\n", job.input.c_str(),
                        static_cast<unsigned long long>(o.differing), static_cast<unsigned long long>(o.in),
                        static_cast<unsigned long long>(o.firstDifference),
                        o.stable ? "it reads back the same" : "it reads back differently");
        std::fflush(stdout);
        if (o.lossy >= 0 && o.lossless > 0)
            std::fprintf(stderr, "qaz: %s: %d samples coded lossily, %d kept lossless (the lossy stream was not smaller)\n",
                         job.input.c_str(), o.lossy, o.lossless);
    }
    if (b.progress) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - b.start).count();
        const double left = b.done ? seconds * static_cast<double>(b.files.size() - b.done) / static_cast<double>(b.done) : 0;
        std::fprintf(stderr, "%zu/%zu files, %.1f MB/s, %.0f s left", b.done, b.files.size(),
                     static_cast<double>(b.bytesIn) / 1e6 / std::max(seconds, 1e-3), left);
        std::fflush(stderr);
    }
}

}  // namespace

int runBatch(const std::string& mode, int argc, char** argv) {
    Batch b;
    const bool pack = mode != "unpack";
    b.pack = pack;
    b.verify = mode == "verify";
    std::vector<std::string> operands;
    std::string coding = "auto";
    bool options = true;
    for (int i = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool takesValue = (arg == "-o" && !b.verify) || arg == "-j" || (pack && (arg == "-c" || arg == "-v"));
        if (options && takesValue && i + 1 == argc) return refuse("option '" + arg + "' needs a value");
        if (!options || arg == "-" || arg.empty() || arg[0] != '-') operands.push_back(arg);
        else if (arg == "--") options = false;
        else if (arg == "-r") b.recurse = true;
        else if (arg == "-f" && !b.verify) b.force = true;
        else if (arg == "--json") b.json = true;
        else if (arg == "--exact" && !pack) b.exact = true;
        else if (arg == "--strict" && pack && !b.verify) b.strict = true;
        else if (arg == "-o" && !b.verify) b.outDir = argv[++i];
        else if (arg == "-c" && pack) coding = argv[++i];
        else if (arg == "-v" && pack) {
            const std::string v = argv[++i];
            b.settings.write.version = v == "4" ? 4 : v == "5" ? 5 : 0;
        } else if (arg == "-j") {
            char* end = nullptr;
            const long n = std::strtol(argv[++i], &end, 10);
            if (*end != 0 || n < 1 || n > 1024) return refuse(std::string("bad job count '") + argv[i] + "'");
            b.jobs = static_cast<unsigned>(n);
        } else {
            return refuse("unknown option '" + arg + "' for " + mode);
        }
    }
    if (pack && !parseCoding(coding, b.settings)) return refuse("bad sample coding '" + coding + "'");
    if (pack && b.settings.write.version != 4 && b.settings.write.version != 5) return refuse("the container version is 4 or 5");
    if (operands.empty()) return refuse(mode + " needs a file or folder");

    int status = 0;
    for (const std::string& operand : operands) {
        std::string why;
        if (!collect(b, operand, why)) {
            std::fprintf(stderr, "qaz: %s: %s\n", operand.c_str(), why.c_str());
            status = 3;
        }
    }
    std::error_code ec;
    for (const Job& job : b.files) b.inputs.insert(fs::weakly_canonical(job.input, ec));
    b.progress = !b.json && isatty(STDERR_FILENO);

    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i; (i = next++) < b.files.size();) {
            Outcome o;
            try {
                o = b.verify ? verifyOne(b, b.files[i]) : pack ? packOne(b, b.files[i]) : unpackOne(b, b.files[i]);
            } catch (const std::exception&) {
                o.error = "Insufficient memory";
            }
            report(b, b.files[i], o);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < std::min<size_t>(b.jobs, b.files.size()); ++t) threads.emplace_back(work);
    work();
    for (std::thread& t : threads) t.join();

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - b.start).count();
    if (b.progress) std::fputs("\r\033[K", stderr);
    std::fprintf(stderr, "qaz: %zu file%s, %zu failed, %s in, %s out (%.1f%%), %.2f s\n", b.files.size(),
                 b.files.size() == 1 ? "" : "s", b.failed,
                 humanBytes(b.bytesIn).c_str(), humanBytes(b.bytesOut).c_str(),
                 b.bytesIn ? 100.0 * static_cast<double>(b.bytesOut) / static_cast<double>(b.bytesIn) : 0.0, seconds);
    if (b.verify) std::fprintf(stderr, "qaz: %zu identical, %zu differ\n", b.files.size() - b.failed - b.differ, b.differ);
    return b.failed ? 3 : status ? status : b.differ ? 4 : 0;
}

}  // namespace deqaz::cli
