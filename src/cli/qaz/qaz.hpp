#pragma once
// The parts of qaz shared between its subcommands.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace deqaz::cli {

// A command line that cannot be run: the reason, then the usage; exit code 1.
int refuse(const std::string& reason);
// The whole of a stream; false on a read error.
bool readAll(std::FILE* f, std::vector<uint8_t>& data);
// A JSON string literal of `text`.
std::string json(const std::string& text);

// qaz info [--json] FILE...
int runInfo(int argc, char** argv);
// qaz pack / unpack / verify [options] FILE|DIR...
int runBatch(const std::string& mode, int argc, char** argv);

}  // namespace deqaz::cli
