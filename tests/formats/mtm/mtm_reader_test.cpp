// MTM reader: the comment's 40-byte lines joined into the message, on a hand-made file.
#include <gtest/gtest.h>

#include <cstring>

#include "common/endian.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using test::Bytes;
// A one-channel MTM file of no tracks, one pattern and one order, holding `comment`.
Bytes buildMtm(const Bytes& comment) {
    Bytes b(66 + 128 + 64, 0);
    std::memcpy(b.data(), "MTM\x10", 4);
    wr16le(&b[28], uint16_t(comment.size()));
    b[33] = 1;
    b.insert(b.end(), comment.begin(), comment.end());
    return b;
}

Bytes line(const std::string& text) {
    Bytes l(text.begin(), text.end());
    l.resize(std::max<size_t>(40, l.size()), 0);
    return l;
}

ReadResult readOk(const Bytes& b) {
    ReadResult r = readMtm(b.data(), b.size());
    EXPECT_TRUE(r.song) << r.error;
    return r;
}

TEST(MtmReader, CommentLinesJoin) {
    Bytes comment = line("first");
    Bytes second = line("with\0junk");  // text after a zero byte in a line is lost
    second[4] = 0, second[5] = 'j';
    comment.insert(comment.end(), second.begin(), second.end());
    comment.insert(comment.end(), 40, 0);  // an empty line
    comment.insert(comment.end(), {'e', 'n', 'd'});  // a short last line
    const Bytes file = buildMtm(comment);
    ReadResult r = readOk(file);
    EXPECT_EQ(r.song->message, "first\rwith\r\rend\r");
    EXPECT_EQ(r.warnings.size(), 2u);  // the text after a zero byte, the short last line
}

}  // namespace
}  // namespace deqaz
