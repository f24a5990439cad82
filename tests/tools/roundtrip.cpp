// roundtrip: every corpus module through `qaz` and back through `deqaz`, compared with libxmp.
//   roundtrip [-c coding] [-v version] [-t seconds] [-r reasons.tsv] [-o table.md] [--no-schism] [corpus]
// Writes a Markdown table (module, format, structural differences, audio difference, reason)
// and a summary: how many results are identical, and for lossy coding the distribution of the
// renders' signal-to-noise ratios. The reasons file names, per module, why it cannot come back
// identical; the summary counts modules that differ without a reason, or have one but do not.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/roundtrip.hpp"
#include "support/temp_dir.hpp"

using namespace deqaz::test;

namespace {

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5)];
}

}  // namespace

int main(int argc, char** argv) {
    RoundTripOptions options;
    options.qazBinary = DEQAZ_QAZ_BINARY;
    options.deqazBinary = DEQAZ_BINARY;
    std::string reasonsPath, tablePath, corpus = DEQAZ_CORPUS;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "-c" && hasValue) options.coding = argv[++i];
        else if (a == "-v" && hasValue) options.version = std::atoi(argv[++i]);
        else if (a == "--no-schism") options.schism = false;
        else if (a == "-t" && hasValue) options.seconds = std::atof(argv[++i]);
        else if (a == "-r" && hasValue) reasonsPath = argv[++i];
        else if (a == "-o" && hasValue) tablePath = argv[++i];
        else if (a[0] != '-') corpus = a;
        else {
            std::fputs("Usage: roundtrip [-c coding] [-v version] [-t seconds] [-r reasons.tsv] [-o table.md] [--no-schism] [corpus]\n", stderr);
            return 1;
        }
    }
    // Lossy coding changes every sample: only the renders' closeness is of interest then.
    const bool lossy = options.coding.rfind("vorbis", 0) == 0 || options.coding.rfind("mp3", 0) == 0;
    RoundTripReasons reasons;
    if (!reasonsPath.empty() && !reasons.load(reasonsPath)) {
        std::fprintf(stderr, "cannot read %s\n", reasonsPath.c_str());
        return 2;
    }
    TempDir work;
    options.work = work.path();

    std::FILE* table = tablePath.empty() ? stdout : std::fopen(tablePath.c_str(), "w");
    if (!table) {
        std::fprintf(stderr, "cannot write %s\n", tablePath.c_str());
        return 2;
    }
    std::fprintf(table, "Round trip with `qaz -c %s -v %d`, renders of up to %g s.\n\n", options.coding.c_str(),
                 options.version, options.seconds);
    std::fprintf(table, "| module | format | structural differences | audio | reason |\n|---|---|---|---|---|\n");
    unsigned total = 0, identical = 0, refused = 0, unexplained = 0, stale = 0, schismSame = 0, schismRendered = 0;
    std::vector<double> snrs;
    for (const std::string& rel : moduleFiles(corpus)) {
        const RoundTripRow row = roundTrip(corpus, rel, options);
        ++total;
        identical += row.identical();
        refused += !row.failure.empty() && row.failure.rfind("qaz:", 0) == 0;
        schismRendered += row.schismRendered;
        schismSame += row.schismRendered && row.schism.identical;
        if (row.rendered) snrs.push_back(row.audio.identical ? INFINITY : row.audio.snrDb);
        const std::string why = reasons.explain(row);
        if (!row.identical() && why.empty()) ++unexplained;
        if (row.identical() && !why.empty() && !reasons.unstable(rel)) ++stale;
        std::fprintf(table, "| %s | %s | %s | %s | %s |\n", rel.c_str(), row.format.empty() ? "-" : row.format.c_str(),
                     row.structuralText().c_str(), row.audioText().c_str(), why.c_str());
        std::fflush(table);
    }
    std::fprintf(table, "\n%u modules: %u identical (structure through libxmp and bit-identical renders), %u refused by qaz.\n",
                 total, identical, refused);
    if (!lossy)
        std::fprintf(table, "%u differing without a listed reason, %u listed but identical.\n", unexplained, stale);
    if (options.schism)
        std::fprintf(table, "Schism Tracker rendered %u of the others: %u bit-identical.\n", schismRendered, schismSame);
    if (!snrs.empty()) {
        unsigned buckets[6] = {};
        for (double s : snrs) ++buckets[std::isinf(s) && s > 0 ? 5 : s < 10 ? 0 : s < 20 ? 1 : s < 30 ? 2 : s < 40 ? 3 : 4];
        std::fprintf(table, "Rendered: %zu. Signal-to-noise ratio: min %.1f dB, 10th percentile %.1f, median %.1f, "
                            "90th percentile %.1f dB. Under 10 dB: %u; 10-20: %u; 20-30: %u; 30-40: %u; 40 and over: %u; "
                            "bit-identical: %u.\n",
                     snrs.size(), percentile(snrs, 0), percentile(snrs, 0.1), percentile(snrs, 0.5), percentile(snrs, 0.9),
                     buckets[0], buckets[1], buckets[2], buckets[3], buckets[4], buckets[5]);
    }
    if (table != stdout) std::fclose(table);
    return 0;
}
