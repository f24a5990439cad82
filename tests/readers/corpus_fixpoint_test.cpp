// Every module of the corpus read and written back by the writers: read again, it gives the same
// module (the readers take back exactly what the writers make of what they read), and libxmp, an
// independent reader, sees in it what it sees in the source, but for the differences the round
// trip's reasons explain (constructs the container cannot hold). Files the readers refuse must
// say why. The path through QAZ files and the renders are tests/tools/roundtrip_test's.
#include <gtest/gtest.h>

#include "readers/reader_roundtrip.hpp"
#include "support/roundtrip.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

TEST(ReaderCorpus, ReadWriteReadIsAFixpointAndLibxmpSeesTheSource) {
    RoundTripReasons reasons;
    ASSERT_TRUE(reasons.load(std::filesystem::path(DEQAZ_SOURCE_DIR) / "tests/tools/roundtrip_reasons.tsv"));
    const auto files = moduleFiles(DEQAZ_CORPUS);
    ASSERT_GT(files.size(), 400u);
    unsigned read = 0, compared = 0;
    for (const std::string& rel : files) {
        SCOPED_TRACE(rel);
        const std::vector<uint8_t> source = readBytes(std::filesystem::path(DEQAZ_CORPUS) / rel);
        ReadResult first = readModule(source.data(), source.size());
        if (!first.song) {  // only modules the round trip's reasons name as refused
            RoundTripRow refused;
            refused.file = rel;
            EXPECT_NE(reasons.explain(refused).find("refused"), std::string::npos) << first.error;
            continue;
        }
        ++read;
        const WriteResult written = runWriteModule(*first.song, 1);
        ASSERT_FALSE(written.failed);
        ReadResult second = readModule(written.bytes.data(), written.bytes.size());
        ASSERT_TRUE(second.song) << second.error;
        EXPECT_EQ(moduleDifference(*first.song, *second.song), "");

        RoundTripRow row;
        row.file = rel;
        std::vector<uint8_t> shown = written.bytes;
        row.libxmpPatch = patchForLibxmp(shown);
        XmpModule a, b;
        row.sourceXmp = a.load(source);
        row.outputXmp = b.load(shown);
        if (!row.comparable()) continue;
        ++compared;
        row.structural = xmpDifferences(a, b, &row.movedColumns);
        EXPECT_TRUE(row.structural.empty() || !reasons.explain(row).empty()) << row.structuralText();
    }
    EXPECT_GT(read, 400u);
    EXPECT_GT(compared, 390u);
}

}  // namespace
}  // namespace deqaz
