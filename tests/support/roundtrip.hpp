#pragma once
// The round trip of one real module through the two programs a user runs: `qaz` encodes it, then
// `deqaz` converts the QAZ file back. libxmp loads the source and the result and compares what a
// player sees (orders, patterns, events, instruments, samples), then renders both to PCM.
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "support/xmp_compare.hpp"

namespace deqaz::test {

struct RoundTripOptions {
    std::string qazBinary, deqazBinary;
    std::string coding = "auto";  // qaz -c: auto, raw, delta, predict, vorbis[:q], mp3[:kbps]
    int version = 5;
    double seconds = 20;             // render at most this much of each song with libxmp
    bool schism = true;              // ask Schism Tracker where libxmp's renders differ
    std::filesystem::path work;      // scratch directory for the two files
};

struct RoundTripRow {
    std::string file;    // relative to the corpus
    std::string format;  // the output's extension, from qaz's report
    std::string failure;  // the step that failed ("qaz: ..." / "deqaz: ..."), or ""
    int sourceXmp = 0, outputXmp = 0;  // libxmp's load results
    std::set<std::string> structural;
    bool movedColumns = false;
    std::string libxmpPatch;  // what patchForLibxmp changed in the result, or ""
    std::string sourceTracker, outputTracker;  // the tracker libxmp takes each file for
    bool rendered = false;
    std::string renderFailure;
    // Schism Tracker's renders of the source and the result, made when libxmp cannot compare
    // them or its renders differ (and schismtracker is installed).
    bool schismRendered = false;
    AudioComparison schism;
    AudioComparison audio;
    size_t sourceBytes = 0, qazBytes = 0, outputBytes = 0;
    std::vector<uint8_t> output;  // deqaz's result, as libxmp was shown it

    bool comparable() const { return failure.empty() && sourceXmp == 0 && outputXmp == 0; }
    bool identical() const { return comparable() && structural.empty() && rendered && audio.identical; }
    // "identical", the structural categories, or why nothing could be compared.
    std::string structuralText() const;
    // "bit-identical", "SNR 41.2 dB", or "-"; then Schism's verdict when it rendered.
    std::string audioText() const;
};

// Why modules cannot come back identical: lines "key<TAB>reason", '#' comments. A key is a
// module path, or '*' and a difference category, which explains every module whose differences
// are all of categories explained that way; or '~' and a module path, for a module libxmp plays
// differently from run to run, which may or may not come back identical.
class RoundTripReasons {
public:
    bool load(const std::filesystem::path& path);
    // The reason for the row's module, or "" when none applies.
    std::string explain(const RoundTripRow& row) const;
    bool unstable(const std::string& file) const { return unstable_.count(file) != 0; }

private:
    std::map<std::string, std::string> modules_, categories_;
    std::set<std::string> unstable_;
};

RoundTripRow roundTrip(const std::filesystem::path& corpus, const std::string& rel, const RoundTripOptions& options);

// Module files under the corpus (IT, XM, S3M, MOD, MTM by extension, any case), relative, sorted.
std::vector<std::string> moduleFiles(const std::filesystem::path& corpus);

}  // namespace deqaz::test
