// Every reader against damaged files: each format's file as the writers make it, cut at every
// length and with single bytes flipped, reads (clamped, and saying so) or is refused with a
// reason; nothing is read past the end (the sanitizer build watches the bounds). Then what the
// container cannot hold is said.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "common/endian.hpp"
#include "readers/reader_roundtrip.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

// Refused with a reason, or every sample's PCM as long as the sample; with `whole`, what a cut
// file keeps of each sample is the whole file's data, or silence where it is missing.
void expectSound(const ReadResult& r, size_t n, const SongHeader* whole = nullptr) {
    if (!r.song) {
        EXPECT_FALSE(r.error.empty()) << n;
        return;
    }
    for (size_t i = 0; i < r.song->samples.size(); ++i) {
        const SampleRecord& smp = r.song->samples[i];
        for (size_t c = 0; c < smp.pcm.size(); ++c) {
            ASSERT_TRUE(smp.pcm[c].empty() || smp.pcm[c].size() == smp.length) << n;
            if (!whole || i >= whole->samples.size() || c >= whole->samples[i].pcm.size()) continue;
            const auto& full = whole->samples[i].pcm[c];
            for (size_t k = 0; k < smp.pcm[c].size() && k < full.size(); ++k)
                ASSERT_TRUE(smp.pcm[c][k] == full[k] || smp.pcm[c][k] == 0) << n << " sample " << i << " frame " << k;
        }
    }
}

// The rich module as the writer for its origin makes it (MOD's order table without the
// container's skip and end markers, which a MOD reader takes for patterns), a mono sample last.
Bytes written(uint32_t origin) {
    SongHeader song = makeRichModule(origin);
    if (origin == SH_ORIGIN_MOD) setOrders(song, {0, 1, 2, 1});
    addSample(song, 0, 300);  // mono and last: a cut in it cuts nothing else
    return runWriteModule(song, 1).bytes;
}

TEST(ReaderDamage, EveryCutAndFlippedByteReadsOrIsRefused) {
    for (uint32_t origin : {SH_ORIGIN_IT | SH_IT_INSTRUMENTS, 0u, SH_ORIGIN_S3M, SH_ORIGIN_MOD, SH_ORIGIN_MTM}) {
        SCOPED_TRACE(origin);
        const Bytes file = written(origin);
        ReadResult whole = readModule(file.data(), file.size());
        ASSERT_TRUE(whole.song) << whole.error;
        size_t cutsRead = 0, quietCuts = 0;
        for (size_t n = 0; n < file.size(); ++n) {
            const Bytes prefix(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(n));  // its own block: ASan sees past it
            const ReadResult cut = readModule(prefix.data(), n);
            expectSound(cut, n, whole.song.get());
            // A cut file that still reads says that it was cut.
            quietCuts += cut.song && std::all_of(cut.warnings.begin(), cut.warnings.end(), [&](const std::string& w) {
                return std::find(whole.warnings.begin(), whole.warnings.end(), w) != whole.warnings.end();
            });
            cutsRead += cut.song != nullptr;
            Bytes flipped = file;
            flipped[n] ^= 0xA5;
            expectSound(readModule(flipped.data(), flipped.size()), n);
        }
        EXPECT_GT(cutsRead, file.size() / 2);  // sample data is most of the file: a cut in it reads
        // A cut file that reads says that it was cut, unless it ends where a whole trailing chunk
        // ends (what is left is a whole file).
        EXPECT_LE(quietCuts, 5u);
    }
}

// Whether a warning of the read holds `text`.
bool says(const ReadResult& r, const char* text) {
    return std::any_of(r.warnings.begin(), r.warnings.end(), [&](const std::string& w) { return w.find(text) != std::string::npos; });
}

// Where a written file's first instrument ('i'), first sample header ('s'), MTM track lists ('l')
// or first plugin chunk ('f') start; 0 for the song header ('h').
size_t recordAt(const Bytes& f, uint32_t origin, char record) {
    if (record == 'h') return 0;
    if (record == 'l') return 66 + 37 * size_t{f[30]} + 128 + 192 * size_t{rd16le(&f[24])};
    if (record == 'f') return size_t(std::search(f.begin(), f.end(), "FX0", "FX0" + 3) - f.begin());
    if (origin & SH_ORIGIN_IT) return rd32le(&f[0xC0 + rd16le(&f[0x20]) + (record == 's' ? 4 * rd16le(&f[0x22]) : 0)]);
    if (origin & SH_ORIGIN_MTM) return 66;
    if (origin & SH_ORIGIN_S3M) return size_t{rd16le(&f[96 + rd16le(&f[32])])} * 16;  // past the order list
    size_t at = 60 + rd32le(&f[60]);  // XM: past the patterns to instrument 0, then its sample header
    for (unsigned p = 0; p < rd16le(&f[70]); ++p) at += rd32le(&f[at]) + rd16le(&f[at + 7]);
    return record == 's' ? at + rd32le(&f[at]) : at;
}

// What a format holds and the container cannot is said, one construct a row (the full lists head
// each reader's source file).
TEST(ReaderLosses, EachConstructTheContainerCannotHoldIsSaid) {
    constexpr uint32_t IT_INSTRUMENTS = SH_ORIGIN_IT | SH_IT_INSTRUMENTS;
    const struct {
        uint32_t origin;
        size_t at;
        char op;  // '^': flip these bits; '=': set the byte; 'L': set four bytes, little-endian
        uint32_t value;
        const char* warning;
        char record = 'h';  // `at` counts from the record recordAt names
    } cases[] = {
        {SH_ORIGIN_IT, 0x2C, '^', 0x01, "mono song written back as stereo"},
        {SH_ORIGIN_IT, 0x40, '^', 0x80, "a muted channel that holds notes is written with channel volume 0"},
        {SH_ORIGIN_IT, 0x40, '=', 65, "invalid channel pan read as centre"},
        {0, 38, '^', 0x20, "tracker name written back as FastTracker's"},
        {0, 74, '^', 0x02, "header flags other than linear slides dropped"},
        {SH_ORIGIN_S3M, 38, '^', 0x01, "header flags for ST2 vibrato, ST2 tempo or Amiga slides dropped"},
        {SH_ORIGIN_S3M, 42, '^', 0x04, "unknown sample format read as unsigned"},
        {SH_ORIGIN_S3M, 30, '=', 1, "packed sample data other than ModPlug's 8-bit ADPCM is not supported", 's'},
        {SH_ORIGIN_MOD, 20 + 24, '^', 0x10, "finetune bits above the low nibble dropped"},
        {SH_ORIGIN_MOD, 951, '=', 0, "restart byte 0 written back as 127"},
        {SH_ORIGIN_MTM, 34, '=', 0x10, "pan positions above 15 cut to 15"},
        {SH_ORIGIN_MTM, 32, '=', 5, "beats per track other than 64 ignored"},
        {SH_ORIGIN_MTM, 34, '=', 0x10, "finetune bits above the low nibble dropped", 's'},
        {SH_ORIGIN_MTM, 2 * 31, '=', 1, "track-list entries past the channel count dropped", 'l'},
        {IT_INSTRUMENTS, 0x3C, '=', 1, "instrument MIDI channel 1 cannot be kept", 'i'},
        {IT_INSTRUMENTS, 0x15, '=', 0x08, "instrument fade-out above 2047 cut to 2047", 'i'},
        {IT_INSTRUMENTS, 0x3C, 'L', 0x01000002, "high byte of an instrument's MIDI bank dropped", 'i'},  // channel 2, bank 256
        {SH_ORIGIN_IT, 2, '=', '2', "plugin chunks FX20 and above dropped", 'f'},
        {0, 14, '=', 0x03, "loop type 3 read as ping-pong", 's'},
        {0, 33, '=', 0x01, "key map of a one-sample instrument written as all zeros", 'i'},
    };
    for (const auto& c : cases) {
        Bytes file = written(c.origin);
        const ReadResult before = readModule(file.data(), file.size());
        const size_t at = recordAt(file, c.origin, c.record) + c.at;
        if (c.op == 'L') wr32le(&file.at(at + 3) - 3, c.value);
        else file.at(at) = static_cast<uint8_t>(c.op == '^' ? file.at(at) ^ c.value : c.value);
        const ReadResult r = readModule(file.data(), file.size());
        ASSERT_TRUE(r.song) << c.warning << ": " << r.error;
        EXPECT_TRUE(says(r, c.warning) && !says(before, c.warning)) << c.warning;
    }
}

}  // namespace
}  // namespace deqaz
