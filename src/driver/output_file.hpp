#pragma once
// Where the converted module goes: the output name (given, or made from the input name and the
// extension of the original format), the single-key overwrite question, and the one write.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace deqaz {

// Longest output name accepted, in characters (the name buffer of the converter is 256 bytes).
inline constexpr size_t OUTPUT_NAME_MAX = 255;

// Cuts the name at its last "." unless a "/" or "\" follows that dot (the dot then belongs to a
// directory part of the path, so the file itself has no extension).
void stripExtension(std::string& name);

// The output name: `outputArg` unchanged when the command line gave one (non-null), otherwise
// the input name with its extension replaced by "." + `extension`. Returns false, leaving `name`
// empty, when the result would be longer than OUTPUT_NAME_MAX characters.
bool formOutputName(const char* inputName, const char* outputArg, const char* extension, std::string& name);

// Asks "<name> exists, overwrite? (Y/N) " on `err` when a file of that name exists, and waits for
// a single key on `in` (raw mode when `in` is a terminal). Returns true to go on: the file does
// not exist, or the answer was y/Y. n/N, the end of input and a read error answer no. Other keys
// are ignored. The terminal settings are restored before the answer is printed.
bool confirmOverwrite(const char* name, std::FILE* in, std::FILE* err);

// Writes `size` bytes with one write to `out` when the name is "STDOUT", else to the named file,
// created or truncated. Returns false only when the file cannot be created (nothing is written).
bool writeOutputFile(const char* name, const uint8_t* data, size_t size, std::FILE* out);

}  // namespace deqaz
