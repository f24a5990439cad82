// qaz: the QAZ encoder. Reads an IT, XM, S3M, MOD or MTM module and writes it as a QAZ file that
// deqaz converts back.
//   qaz [-y] [-s] [-c CODING] [-v VERSION] infile [outfile]
//   qaz pack|unpack|verify [options] FILE|DIR...   (batch.cpp)
//   qaz info [--json] FILE...                (info.cpp)
// CODING: auto (the default: each sample in its smallest lossless coding, repeated sample data
// stored once), raw, delta, predict (every sample so), vorbis[:QUALITY] (-0.1 to 1.0, default
// 0.4, header pages shared between samples) or mp3[:KBPS] (default 128), both only where smaller
// than the sample's auto coding.
// infile/outfile may be STDIN/STDOUT or "-" (a terminal is refused as the output). Without outfile the name is infile with its extension
// replaced by ".qaz". --help and --version print the usage and the version; any other option,
// or an option without its value, is refused with the reason and the usage.
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "container/encode_module.hpp"
#include "deqaz/deqaz.h"
#include "driver/output_file.hpp"
#include "readers/module_reader.hpp"
#include "cli/qaz/qaz.hpp"

using namespace deqaz;
using namespace deqaz::cli;

namespace {

const char USAGE[] =
    "Usage: qaz [-y] [-s] [-c coding] [-v version] infile [outfile]\n"
    "       qaz pack [-r] [-f] [-o dir] [-j n] [--json] [--strict] [-c coding] [-v version] file|dir...\n"
    "       qaz unpack [-r] [-f] [-o dir] [-j n] [--json] [--exact] file|dir...\n"
    "       qaz verify [-r] [-j n] [--json] [-c coding] [-v version] file|dir...\n"
    "       qaz info [--json] file...\n"
    "   -y = always overwrite\n"
    "   -s = silent mode (no text output, always overwrite)\n"
    "   -c = sample coding: auto (default), raw, delta, predict, vorbis[:quality], mp3[:kbps]\n"
    "   -v = container version 4 or 5 (default 5)\n"
    "   infile/outfile can be STDIN/STDOUT or - to use standard input/output\n"
    "   --help, --version: this text, the version\n"
    "   pack, unpack: modules to QAZ files and back, any number of files and folders\n"
    "     -r = recurse into subfolders   -f = replace existing outputs   -o = output folder\n"
    "     -j = parallel jobs (default: the number of cores)   --json = one JSON object per file\n"
    "     --strict = a module read with warnings fails   --exact = deqaz's bytes, not the player fixes\n"
    "   verify: packs each module in memory, converts it back and compares (nothing written)\n"
    "   info: what QAZ files or modules hold (--json: one JSON object per file)\n";

bool sameFile(const std::string& a, const std::string& b) {
    std::error_code ec;
    return a == b || std::filesystem::equivalent(a, b, ec);
}

bool looksLikeModule(const std::string& name) {
    std::string ext = std::filesystem::path(name).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (Origin origin : {Origin::IT, Origin::S3M, Origin::MOD, Origin::MTM, Origin::XM})
        if (ext == std::string(".") + originExtension(origin)) return true;
    return false;
}

// Writes the QAZ file with one write. A write that fails (a full disk) is an error with its
// reason, and what it left of a regular file is removed, so no partial file stays behind.
bool writeQazFile(const std::string& name, const std::vector<uint8_t>& bytes, std::string& why) {
    const bool toStdout = name == "STDOUT";
    std::FILE* f = toStdout ? stdout : std::fopen(name.c_str(), "wb");
    if (!f) {
        why = std::strerror(errno);
        return false;
    }
    errno = 0;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = (toStdout ? std::fflush(f) : std::fclose(f)) == 0 && ok;
    if (ok) return true;
    why = std::strerror(errno ? errno : EIO);
    struct stat st;
    if (!toStdout && stat(name.c_str(), &st) == 0 && S_ISREG(st.st_mode)) std::remove(name.c_str());
    return false;
}


}  // namespace

namespace deqaz::cli {

// A command line that cannot be run: the reason, then the usage; exit code 1.
int refuse(const std::string& reason) {
    std::fprintf(stderr, "qaz: %s\n%s", reason.c_str(), USAGE);
    return 1;
}

bool readAll(std::FILE* f, std::vector<uint8_t>& data) {
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) data.insert(data.end(), chunk, chunk + n);
    return !std::ferror(f);
}

}  // namespace deqaz::cli

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "info") == 0) return runInfo(argc - 2, argv + 2);
    for (const char* mode : {"pack", "unpack", "verify"})
        if (argc > 1 && std::strcmp(argv[1], mode) == 0) return runBatch(mode, argc - 2, argv + 2);
    int silent = 0, overwrite = 0;
    EncodeSettings settings;
    std::string coding = "auto";
    int arg = 1;
    for (; arg < argc && argv[arg][0] == '-' && argv[arg][1] != 0; ++arg) {
        const std::string sw = argv[arg];
        if (sw == "--help") return std::fputs(USAGE, stdout), 0;
        if (sw == "--version") return std::printf("qaz (DEQAZ) %s\n", deqaz_version()), 0;
        if (sw == "-y") ++overwrite;
        else if (sw == "-s") ++silent;
        else if ((sw == "-c" || sw == "-v") && arg + 1 == argc)
            return refuse("option '" + sw + "' needs a value");
        else if (sw == "-c" || sw == "-v") {
            const std::string value = argv[++arg];
            if (sw == "-c") coding = value;
            else settings.write.version = value == "4" ? 4 : value == "5" ? 5 : 0;
        } else
            return refuse("unknown option '" + sw + "'");
    }
    if (arg >= argc) return refuse("no input file");
    if (!parseCoding(coding, settings)) return refuse("bad sample coding '" + coding + "'");
    if (settings.write.version != 4 && settings.write.version != 5) return refuse("the container version is 4 or 5");
    // "-" is standard input or output, as STDIN and STDOUT are.
    const char* inputName = std::strcmp(argv[arg], "-") == 0 ? "STDIN" : argv[arg];
    const char* outputArg = arg + 1 < argc ? (std::strcmp(argv[arg + 1], "-") == 0 ? "STDOUT" : argv[arg + 1]) : nullptr;
    if (outputArg && std::strcmp(outputArg, "STDOUT") == 0 && isatty(STDOUT_FILENO))
        return refuse("a QAZ file is binary: not written to a terminal");
    // A second module named where the output goes is a mistake (`qaz -y *`), never an output.
    if (arg + 2 < argc) return refuse("one module at a time: more than infile and outfile named");
    if (outputArg && sameFile(inputName, outputArg)) return refuse("the output would overwrite the input");
    if (outputArg && looksLikeModule(outputArg))
        return refuse(std::string("'") + outputArg + "' is a module name, not a QAZ output name");
    auto say = [&](const std::string& text) {
        if (!silent) std::fputs(text.c_str(), stderr);
    };

    std::vector<uint8_t> data;
    const bool isStdin = std::strcmp(inputName, "STDIN") == 0;
    std::FILE* in = isStdin ? stdin : std::fopen(inputName, "rb");
    if (!in) {
        say(std::string("error: Can't open file :") + inputName + "\n");
        return 2;
    }
    const bool readOk = readAll(in, data);
    if (!isStdin) std::fclose(in);
    if (!readOk) {
        say(std::string("error: Can't read file :") + inputName + "\n");
        return 2;
    }

    const EncodeResult encoded = encodeModule(data.data(), data.size(), settings);
    for (const std::string& w : encoded.warnings) say("warn: " + w + "\n");
    if (encoded.song)
        say("name: " + encoded.song->name + "\noriginal format: " + std::to_string(encoded.song->channels) + "ch " +
            originExtension(encoded.song->origin()) + "\n");
    if (encoded.code != 0) {
        say("error: " + encoded.error + "\n");
        return 3;
    }
    const std::vector<uint8_t>& qaz = encoded.qaz;
    std::string name;
    if (!formOutputName(inputName, outputArg, "qaz", name)) {
        say("error: Output file name is too long!\n");
        return 4;
    }
    if (!overwrite && !silent && !isStdin && !confirmOverwrite(name.c_str(), stdin, stderr)) return 0;
    std::string why;
    if (!writeQazFile(name, qaz, why)) {
        say("error: Can't write file " + name + ": " + why + "\n");
        return 4;
    }
    say("done: " + std::to_string(data.size()) + " -> " + std::to_string(qaz.size()) + "\n");
    return 0;
}
