// Every module of the corpus read, written back by the writers and read again must give the same
// module: the readers take back exactly what the writers make of what they read. (How the whole
// path through a QAZ file compares with the source is tests/tools/roundtrip_test's business.)
// Files the readers refuse must be damaged ones or formats they do not read, and say why.
#include <gtest/gtest.h>

#include "readers/reader_roundtrip.hpp"
#include "support/roundtrip.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

TEST(ReaderCorpus, ReadWriteReadIsAFixpoint) {
    const auto files = moduleFiles(DEQAZ_CORPUS);
    ASSERT_GT(files.size(), 400u);
    unsigned read = 0;
    for (const std::string& rel : files) {
        SCOPED_TRACE(rel);
        const std::vector<uint8_t> source = readBytes(std::filesystem::path(DEQAZ_CORPUS) / rel);
        ReadResult first = readModule(source.data(), source.size());
        if (!first.song) {
            EXPECT_FALSE(first.error.empty());
            continue;
        }
        ++read;
        ReadResult forWriting = readModule(source.data(), source.size());  // writers convert PCM in place
        const WriteResult written = runWriteModule(*forWriting.song, 1);
        ASSERT_FALSE(written.failed);
        ReadResult second = readModule(written.bytes.data(), written.bytes.size());
        ASSERT_TRUE(second.song) << second.error;
        EXPECT_EQ(fixpointDifference(*first.song, *second.song), "");
    }
    EXPECT_GT(read, 400u);
}

}  // namespace
}  // namespace deqaz
