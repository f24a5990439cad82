#include "driver/run.hpp"

#include <cstdlib>
#include <cstring>

#include "common/endian.hpp"
#include "container/loader.hpp"
#include "container/unpack.hpp"
#include "driver/output_file.hpp"
#include "samples/lossy.hpp"
#include "writers/writers.hpp"

namespace deqaz {

namespace {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_USAGE = 1;
constexpr int EXIT_BAD_INPUT = 2;
constexpr int EXIT_LOAD_FAILED = 3;
constexpr int EXIT_CANT_CREATE = 4;

// "QAZ" as the low 24 bits of the first little-endian word; the top byte is the version.

// A pipe is read in steps of this many bytes, the buffer kept this much larger than the data.
constexpr size_t PIPE_STEP = 20000;

const char BANNER[] =
    "DEQAZ 2.4 - QAZ to IT/XM/S3M/MOD/MTM decoder\n"
    "============================================\n"
    "- Note1: In the IT/XM formats some normal effects are duplicated in the volume\n"
    "         column, the QAZ format translates them to the normal effect versions,\n"
    "         so when converting back to IT/XM some effects may not be converted to\n"
    "         the column they were in originally.\n"
    "- Note2: All IT files are written as non-compressed v2.14 compatible IT files.\n";

const char USAGE[] =
    "Usage: DEQAZ [-s] infile [outfile]\n"
    "   -y = always overwrite\n"
    "   -s = silent mode (no text output, always overwrite)\n"
    "   infile/outfile can be STDIN/STDOUT to use standard input/output\n";

struct FreeDeleter {
    void operator()(uint8_t* p) const { std::free(p); }
};
// The input buffer is malloc'd so a pipe's buffer can grow with realloc.
using InputBuffer = std::unique_ptr<uint8_t, FreeDeleter>;

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
// A named input, closed on every path; standard input is never held here and stays open.
using NamedFile = std::unique_ptr<std::FILE, FileCloser>;

// Ends the run with the message in errorText: printed unless silent, then the module and the
// output buffer released.
int reportError(RunContext& ctx, int exitCode) {
    if (!ctx.diag.silent()) std::fprintf(ctx.diag.err, "error: %s\n", ctx.diag.errorText);
    ctx.song.reset();
    ctx.output.reset();
    return exitCode;
}

int fail(RunContext& ctx, const char* message, int exitCode) {
    ctx.diag.setError(message);
    return reportError(ctx, exitCode);
}

// Reads the rest of an unseekable input (a pipe, a terminal) after the 4 magic bytes, growing
// the buffer after every read that brought data. False when memory runs out.
bool readUnseekable(std::FILE* in, const uint8_t magic[4], InputBuffer& buffer, uint32_t& size) {
    buffer.reset(static_cast<uint8_t*>(std::malloc(4 + PIPE_STEP)));
    if (!buffer) return false;
    std::memcpy(buffer.get(), magic, 4);
    size_t filled = 4;
    for (;;) {
        size_t got = std::fread(buffer.get() + filled, 1, PIPE_STEP, in);
        if (got == 0) break;
        filled += got;
        // The input stream counts bytes in 32 bits; anything larger cannot be held.
        if (filled > UINT32_MAX - PIPE_STEP) return false;
        auto* grown = static_cast<uint8_t*>(std::realloc(buffer.get(), filled + PIPE_STEP));
        if (!grown) return false;
        (void)buffer.release();
        buffer.reset(grown);
    }
    size = static_cast<uint32_t>(filled);
    return true;
}

enum class ReadResult { Ok, NoMemory, Unreadable };

// Reads a seekable input whole: measured, then read in one read from its first byte.
ReadResult readSeekable(std::FILE* in, InputBuffer& buffer, uint32_t& size) {
    if (std::fseek(in, 0, SEEK_END) != 0) return ReadResult::Unreadable;
    long end = std::ftell(in);
    if (end < 0 || std::fseek(in, 0, SEEK_SET) != 0) return ReadResult::Unreadable;
    if (static_cast<unsigned long>(end) > UINT32_MAX) return ReadResult::NoMemory;
    buffer.reset(static_cast<uint8_t*>(std::malloc(end > 0 ? static_cast<size_t>(end) : 1)));
    if (!buffer) return ReadResult::NoMemory;
    // A file that shrank since it was measured yields what is there; loading judges the rest.
    size = static_cast<uint32_t>(std::fread(buffer.get(), 1, static_cast<size_t>(end), in));
    return ReadResult::Ok;
}


// Opens the input, tests its magic and reads it whole. Returns 0, or the exit code of the failure.
int readInput(RunContext& ctx, InputBuffer& buffer) {
    const bool isStdin = std::strcmp(ctx.inputName, "STDIN") == 0;
    NamedFile named(isStdin ? nullptr : std::fopen(ctx.inputName, "rb"));
    std::FILE* in = isStdin ? ctx.streams.in : named.get();
    if (!in) {
        // snprintf cuts a long name so the text always fits errorText.
        std::snprintf(ctx.diag.errorText, sizeof ctx.diag.errorText, "Can't open file :%s", ctx.inputName);
        return reportError(ctx, EXIT_BAD_INPUT);
    }

    uint8_t magic[4];
    if (std::fread(magic, 1, 4, in) != 4 || !hasQazMagic(magic, 4))
        return fail(ctx, "This is not a QAZ file!", EXIT_BAD_INPUT);

    uint32_t size = 0;
    if (std::ftell(in) < 0) {
        if (!readUnseekable(in, magic, buffer, size)) return fail(ctx, "Insufficient memory", EXIT_BAD_INPUT);
    } else {
        switch (readSeekable(in, buffer, size)) {
            case ReadResult::Ok: break;
            case ReadResult::NoMemory: return fail(ctx, "Insufficient memory", EXIT_BAD_INPUT);
            case ReadResult::Unreadable:
                std::snprintf(ctx.diag.errorText, sizeof ctx.diag.errorText, "Can't open file :%s", ctx.inputName);
                return reportError(ctx, EXIT_BAD_INPUT);
        }
    }
    named.reset();

    ctx.input.inputData = buffer.get();
    ctx.input.inputSize = size;
    ctx.input.inputPos = 0;
    ctx.inputFileSize = size;
    return 0;
}

// Names, confirms and writes the output file. Returns 0 when written, -1 when the user declined,
// or the exit code of the failure.
int writeOutput(RunContext& ctx, const char* extension) {
    std::string name;
    if (!formOutputName(ctx.inputName, ctx.outputArg, extension, name))
        return fail(ctx, "Output file name is too long!", EXIT_CANT_CREATE);

    bool ask = ctx.overwriteCount == 0 && !ctx.diag.silent() && std::strcmp(ctx.inputName, "STDIN") != 0;
    if (ask && !confirmOverwrite(name.c_str(), ctx.streams.in, ctx.diag.err)) return -1;

    if (!writeOutputFile(name.c_str(), ctx.output.outputData(), ctx.output.outputSize(), ctx.streams.out))
        return fail(ctx, "Can't create file!\n", EXIT_CANT_CREATE);
    return 0;
}

}  // namespace

int runDeqaz(int argc, char** argv, const StandardStreams& streams) {
    RunContext ctx;
    ctx.streams = streams;
    ctx.diag.err = streams.err;

    // Switches: "-" and at most one more character. The first argument that is not one is the
    // input name; everything after it is positional.
    int arg = 1;
    for (; arg < argc; ++arg) {
        const char* a = argv[arg];
        if (a[0] != '-' || std::strlen(a) > 2) break;
        if (a[1] == 'y') ++ctx.overwriteCount;
        if (a[1] == 's') ++ctx.diag.silentCount;
    }

    ctx.diag.say(BANNER);
    if (arg >= argc) {
        std::fputs(USAGE, ctx.diag.err);
        return EXIT_USAGE;
    }
    ctx.inputName = argv[arg];
    if (arg + 1 < argc) ctx.outputArg = argv[arg + 1];

    ctx.diag.say("loading...\n");

    InputBuffer inputBuffer;
    if (int code = readInput(ctx, inputBuffer)) return code;

    initLossyDecoders();

    ctx.song = loadModule(ctx.input, ctx.diag);
    inputBuffer.reset();
    ctx.input = InputStream{};
    if (!ctx.song) {
        if (ctx.diag.errorText[0] == 0) ctx.diag.setError("Something is wrong with this file!");
        return reportError(ctx, EXIT_LOAD_FAILED);
    }

    const char* extension = originExtension(ctx.song->origin());
    if (!ctx.diag.silent()) {
        std::fprintf(ctx.diag.err, "name: %s\n", ctx.song->name.c_str());
        std::fprintf(ctx.diag.err, "original format: %dch %s\n", ctx.song->channels, extension);
    }

    // The whole output is built in memory before any file is touched, so a failure up to here
    // leaves no output file behind and never truncates an existing one.
    if (!writeModule(*ctx.song, ctx.output, ctx.diag)) return fail(ctx, "Insufficient memory", EXIT_LOAD_FAILED);

    int written = writeOutput(ctx, extension);
    if (written > 0) return written;
    if (written == 0 && !ctx.diag.silent())
        std::fprintf(ctx.diag.err, "done: %u -> %u\n", static_cast<unsigned>(ctx.inputFileSize),
                     static_cast<unsigned>(ctx.output.outputSize()));

    ctx.output.reset();
    ctx.song.reset();
    return EXIT_DONE;
}

int deqazMain(int argc, char** argv) { return runDeqaz(argc, argv, StandardStreams{}); }

}  // namespace deqaz
