#include "support/temp_dir.hpp"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace deqaz::test {

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "deqaz-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
}

void TempDir::put(const std::string& name, std::string_view bytes) const {
    fs::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void TempDir::put(const std::string& name, const std::vector<uint8_t>& bytes) const {
    put(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string TempDir::get(const std::string& name) const { return readFile(path_ / name); }

std::vector<std::string> TempDir::listing() const {
    std::vector<std::string> names;
    for (const auto& e : fs::recursive_directory_iterator(path_)) names.push_back(e.path().lexically_relative(path_));
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const fs::path& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

std::vector<uint8_t> readBytes(const fs::path& path) {
    const std::string s = readFile(path);
    return std::vector<uint8_t>(s.begin(), s.end());
}

std::string readStream(std::FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string s;
    char chunk[4096];
    for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, f)) > 0;) s.append(chunk, n);
    return s;
}

}  // namespace deqaz::test
