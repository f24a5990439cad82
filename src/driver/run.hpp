#pragma once
// One conversion run: switches, banner and usage, reading the whole input, loading, writing the
// module into memory, then the output file. Returns the process exit code:
//   0 done (or overwrite declined), 1 usage, 2 input unreadable or not QAZ,
//   3 loading failed, 4 output file not creatable.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "common/diagnostics.hpp"
#include "container/input_stream.hpp"
#include "container/module.hpp"
#include "writers/output_buffer.hpp"

namespace deqaz {

struct StandardStreams {
    std::FILE* in = stdin;    // "STDIN" input and the overwrite prompt's keys
    std::FILE* out = stdout;  // "STDOUT" output: the converted module only
    std::FILE* err = stderr;  // every message
};

// Everything one run holds, from the switches to the written file. There is one run per process;
// the state lives here rather than in globals so the steps can be followed through one object.
struct RunContext {
    Diagnostics diag;            // silentCount, errorText, the message stream
    int overwriteCount = 0;      // "-y" switches: overwrite without asking
    StandardStreams streams;
    const char* inputName = nullptr;
    const char* outputArg = nullptr;  // output name from the command line, or null
    InputStream input;                // the whole input file while it is loaded
    uint32_t inputFileSize = 0;       // kept for the summary after the buffer is gone
    std::unique_ptr<SongHeader> song;
    OutputBuffer output;
};

int runDeqaz(int argc, char** argv, const StandardStreams& streams);

// The program entry: runDeqaz on the process's standard streams.
int deqazMain(int argc, char** argv);

}  // namespace deqaz
