// Every corpus module through `qaz` and `deqaz`, judged by libxmp. Lossless coding must give back
// what libxmp sees in the source — patterns, events, instruments, samples and a bit-identical
// render — or the module must be listed with its reason in roundtrip_reasons.tsv; a listed module
// that comes back identical is a stale entry. Lossy coding must convert every module the
// encoder takes, and its render must stay recognisably the source's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "support/roundtrip.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

RoundTripOptions optionsFor(const TempDir& work, const std::string& coding) {
    RoundTripOptions o;
    o.qazBinary = DEQAZ_QAZ_BINARY;
    o.deqazBinary = DEQAZ_BINARY;
    o.coding = coding;
    o.seconds = 20;
    o.schism = false;  // the reasons rest on libxmp alone; the runner asks Schism for the table
    o.work = work.path();
    return o;
}

TEST(RoundTrip, LosslessCorpusIsIdenticalOrExplained) {
    RoundTripReasons reasons;
    ASSERT_TRUE(reasons.load(fs::path(DEQAZ_SOURCE_DIR) / "tests/tools/roundtrip_reasons.tsv"));
    TempDir work;
    const RoundTripOptions options = optionsFor(work, "auto");
    const auto files = moduleFiles(DEQAZ_CORPUS);
    ASSERT_GT(files.size(), 400u);
    unsigned identical = 0;
    for (const std::string& rel : files) {
        const RoundTripRow row = roundTrip(DEQAZ_CORPUS, rel, options);
        const std::string why = reasons.explain(row);
        identical += row.identical();
        // deqaz must convert whatever qaz wrote.
        EXPECT_TRUE(row.failure.empty() || row.failure.rfind("qaz:", 0) == 0) << rel << ": " << row.failure;
        if (row.identical())
            EXPECT_TRUE(why.empty() || reasons.unstable(rel)) << rel << " is identical but listed: " << why;
        else
            EXPECT_FALSE(why.empty()) << rel << ": " << row.structuralText() << " | " << row.audioText();
    }
    std::printf("lossless round trip: %u of %zu modules identical through libxmp\n", identical, files.size());
}

// The whole songs of the corpus, coded lossily: each converts, libxmp loads the result with the
// song's orders and notes, and its render stays close to the lossless result's (the same module
// but for the codec's noise, so quirks of libxmp keyed on the header cancel out).
TEST(RoundTrip, LossySongsConvertAndStayClose) {
    TempDir work;
    const RoundTripOptions lossless = optionsFor(work, "auto");
    for (const std::string& rel : moduleFiles(DEQAZ_CORPUS)) {
        if (rel.rfind("data/m/", 0) != 0 && rel.rfind("data/p/", 0) != 0) continue;
        const RoundTripRow reference = roundTrip(DEQAZ_CORPUS, rel, lossless);
        if (!reference.comparable()) continue;  // refused by qaz, or nothing for libxmp to compare
        std::vector<int16_t> referencePcm;
        ASSERT_TRUE(renderIsolated(reference.output, lossless.seconds, referencePcm)) << rel;
        for (const char* coding : {"vorbis:0.4", "mp3:32"}) {
            SCOPED_TRACE(std::string(coding) + " " + rel);
            const RoundTripRow row = roundTrip(DEQAZ_CORPUS, rel, optionsFor(work, coding));
            ASSERT_EQ(row.failure, "");
            ASSERT_EQ(row.outputXmp, 0);
            EXPECT_EQ(row.structural.count("order list") + row.structural.count("pattern rows") + row.structural.count("notes"), 0u)
                << row.structuralText();
            std::vector<int16_t> pcm;
            ASSERT_TRUE(renderIsolated(row.output, lossless.seconds, pcm));
            const AudioComparison audio = compareAudio(referencePcm, pcm);
            std::printf("%-10s %-34s SNR against the lossless result %.1f dB\n", coding, rel.c_str(), audio.snrDb);
            EXPECT_GT(audio.snrDb, 12.0);
        }
    }
}

}  // namespace
}  // namespace deqaz
