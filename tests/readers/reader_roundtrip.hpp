#pragma once
// Shared checks of the module readers against the corpus: a module read, written back by the
// writers and read again must give the same module (the fixpoint), and libxmp must see the
// written file as it sees the original, up to the differences a reader documents.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "container/track.hpp"
#include "readers/module_reader.hpp"
#include "support/module_builder.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz::test {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using Reader = ReadResult (*)(const uint8_t*, size_t);

inline Bytes readFileBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

// Corpus files with one of the extensions, as paths relative to the corpus, sorted.
inline std::vector<std::string> corpusFiles(const std::set<std::string>& extensions) {
    std::vector<std::string> files;
    const fs::path root(DEQAZ_CORPUS);
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file()) continue;
        const std::string ext = lower(entry.path().extension().string());
        if (extensions.count(ext)) files.push_back(fs::relative(entry.path(), root).generic_string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

inline bool isMalformedSample(const std::string& rel) { return rel.rfind("data/f/", 0) == 0; }

// The commands of one cell, decoded from the module's track for that pattern and channel.
inline std::vector<TrackCommand> cellCommands(const SongHeader& song, unsigned pattern, unsigned row, unsigned channel) {
    std::vector<TrackCommand> out;
    const uint16_t t = song.trackOf(pattern, channel);
    if (t >= song.tracks.size()) return out;
    const TrackGroup g = cellAt(song.tracks[t], row);
    if (!g) return out;
    for (unsigned k = 0; k < g.pairCount(); ++k) {
        const uint8_t c = g.bytes[1 + 2 * k];
        if (c == 0) break;
        out.push_back({c, g.bytes[2 + 2 * k]});
    }
    return out;
}

inline bool sameSample(const SampleRecord& a, const SampleRecord& b) {
    return (a.frequency & 0xFF) == (b.frequency & 0xFF) && a.relativeNote == b.relativeNote && a.volume == b.volume &&
           a.pan == b.pan && a.length == b.length && a.loopStart == b.loopStart && a.loopEnd == b.loopEnd &&
           a.flags == b.flags && a.globalVolume == b.globalVolume && a.name == b.name && pcmOf(a, 0) == pcmOf(b, 0) &&
           pcmOf(a, 1) == pcmOf(b, 1);
}

// The first difference between two modules read from a file and from its written copy, or "".
inline std::string fixpointDifference(const SongHeader& a, const SongHeader& b) {
    std::ostringstream why;
    if (a.flags != b.flags || a.channels != b.channels || a.restartPos != b.restartPos || a.initialSpeed != b.initialSpeed ||
        a.initialTempo != b.initialTempo || a.name != b.name || a.message != b.message || a.channelPan != b.channelPan)
        return "song header";
    if (a.sfxMacro != b.sfxMacro || a.zxxMacro != b.zxxMacro) return "MIDI macros";
    if (a.orderCount != b.orderCount || !std::equal(a.orders.begin(), a.orders.end(), b.orders.begin(), b.orders.end()))
        return "orders";
    if (a.patternCount != b.patternCount) return "pattern count";
    for (unsigned p = 0; p < a.patternCount; ++p) {
        if (a.patternRows[p] != b.patternRows[p]) return "rows of pattern " + std::to_string(p);
        for (unsigned r = 0; r < a.patternRows[p]; ++r)
            for (unsigned c = 0; c < a.channels; ++c)
                if (cellCommands(a, p, r, c) != cellCommands(b, p, r, c)) {
                    why << "pattern " << p << " row " << r << " channel " << c;
                    return why.str();
                }
    }
    if (a.instruments != b.instruments) return "instruments";
    if (a.samples.size() != b.samples.size()) return "sample count";
    for (size_t i = 0; i < a.samples.size(); ++i)
        if (!sameSample(a.samples[i], b.samples[i])) return "sample " + std::to_string(i);
    for (int k = 0; k < MAX_CHUNK_SLOTS; ++k)
        if (a.fxSlots[k].present != b.fxSlots[k].present ||
            !std::equal(a.fxSlots[k].data.begin(), a.fxSlots[k].data.end(), b.fxSlots[k].data.begin(), b.fxSlots[k].data.end()))
            return "extension slot " + std::to_string(k);
    if (!std::equal(a.channelFx.begin(), a.channelFx.end(), b.channelFx.begin(), b.channelFx.end())) return "channel table";
    return "";
}

// The outcome of one corpus file.
struct CorpusOutcome {
    std::string file;
    bool read = false;
    std::string error;             // when not read
    std::string fixpoint;          // first fixpoint difference, "" when none
    int sourceXmp = 0;             // libxmp's result for the original
    int writtenXmp = 0;            // and for the written file
    std::set<std::string> xmp;     // libxmp differences
    bool moved = false;            // identical up to documented column moves
    bool patchedForLibxmp = false;  // libxmp was shown the written file with header bytes patched
    std::vector<std::string> warnings;
};

inline CorpusOutcome runCorpusFile(const std::string& rel, Reader reader) {
    CorpusOutcome o;
    o.file = rel;
    const Bytes source = readFileBytes(fs::path(DEQAZ_CORPUS) / rel);
    ReadResult first = reader(source.data(), source.size());
    if (!first.song) {
        o.error = first.error;
        return o;
    }
    o.read = true;
    o.warnings = first.warnings;
    ReadResult pristine = reader(source.data(), source.size());  // writing may convert PCM in place
    const WriteResult written = runWriteModule(*first.song, 1);
    ReadResult again = reader(written.bytes.data(), written.bytes.size());
    if (!again.song) {
        o.fixpoint = "written file not readable: " + again.error;
        return o;
    }
    o.fixpoint = fixpointDifference(*pristine.song, *again.song);

    XmpModule src;
    XmpModule out;
    o.sourceXmp = src.load(source);
    Bytes forXmp = written.bytes;
    o.patchedForLibxmp = !patchForLibxmp(forXmp).empty();
    o.writtenXmp = out.load(forXmp);
    if (o.sourceXmp == 0 && o.writtenXmp == 0) o.xmp = xmpDifferences(src, out, &o.moved);
    return o;
}

// Corpus files whose written copy libxmp reads differently: the difference categories and why.
using ExpectedDifferences = std::map<std::string, std::pair<std::set<std::string>, const char*>>;

// Runs every file and checks it: a refused file must be one `mayRefuse` names and carry a
// reason; a read file must reach the fixpoint, and libxmp must see its written copy as the
// original, or with exactly the differences `expected` lists. Prints the per-file outcome and
// the totals; returns the number of files read.
inline unsigned checkCorpus(const std::vector<std::string>& files, Reader reader, const char* format,
                            const ExpectedDifferences& expected, bool (*mayRefuse)(const std::string&)) {
    unsigned identical = 0, moved = 0, differing = 0, xmpSkipped = 0, rejected = 0;
    for (const std::string& rel : files) {
        const CorpusOutcome o = runCorpusFile(rel, reader);
        if (!o.read) {
            ++rejected;
            EXPECT_TRUE(mayRefuse(rel) && !o.error.empty()) << rel << ": " << o.error;
            std::printf("  %-44s refused: %s\n", rel.c_str(), o.error.c_str());
            continue;
        }
        EXPECT_EQ(o.fixpoint, "") << rel << ": read -> write -> read differs";
        const auto it = expected.find(rel);
        if (o.sourceXmp != 0 || o.writtenXmp != 0) {
            ++xmpSkipped;
            EXPECT_EQ(o.writtenXmp, 0) << rel << ": libxmp cannot load the written file";
            std::printf("  %-44s libxmp cannot load the original (%d)\n", rel.c_str(), o.sourceXmp);
        } else if (o.xmp.empty()) {
            o.moved ? ++moved : ++identical;
            EXPECT_TRUE(it == expected.end()) << rel << " is listed as differing but is identical";
        } else {
            ++differing;
            if (it == expected.end()) {
                ADD_FAILURE() << rel << " differs through libxmp";
                continue;
            }
            EXPECT_EQ(o.xmp, it->second.first) << rel;
            std::printf("  %-44s differs: %s\n", rel.c_str(), it->second.second);
        }
    }
    std::printf("%s: %zu files: %u identical through libxmp, %u identical up to documented column moves, "
                "%u differing, %u not comparable, %u refused\n",
                format, files.size(), identical, moved, differing, xmpSkipped, rejected);
    return static_cast<unsigned>(files.size()) - rejected;
}

}  // namespace deqaz::test
