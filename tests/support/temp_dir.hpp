#pragma once
// A fresh directory for a test's files, removed with everything in it when the test ends, and
// whole-file and whole-stream reads.
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace deqaz::test {

namespace fs = std::filesystem;

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const fs::path& path() const { return path_; }
    fs::path operator/(const std::string& name) const { return path_ / name; }
    // Writes a file (making its directories); reads one back ("" when missing).
    void put(const std::string& name, std::string_view bytes) const;
    void put(const std::string& name, const std::vector<uint8_t>& bytes) const;
    std::string get(const std::string& name) const;
    bool exists(const std::string& name) const { return fs::exists(path_ / name); }
    // Every name below the directory, sorted: proves what a run created.
    std::vector<std::string> listing() const;

private:
    fs::path path_;
};

std::string readFile(const fs::path& path);
std::vector<uint8_t> readBytes(const fs::path& path);
// Everything in a stream from its start.
std::string readStream(std::FILE* f);

}  // namespace deqaz::test
