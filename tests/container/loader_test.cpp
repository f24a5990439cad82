// Loading QAZ files made by the project's writer: every record kind, version differences, sample
// data placement, the writer's choice of coding, and the header and body failures.
#include <gtest/gtest.h>


#include "common/endian.hpp"
#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

Loaded load(const std::vector<uint8_t>& file) { return loadQaz(file); }

QazWriteOptions withVersion(uint8_t version) {
    QazWriteOptions o;
    o.version = version;
    return o;
}

SongHeader oneSampleModule(uint16_t flags, uint32_t length) {
    SongHeader song = makeOnePatternSong(SH_ORIGIN_IT, 4);
    addSample(song, flags, length, 7);
    return song;
}

TEST(Loader, EveryRecordKindReadsBackAsWritten) {
    SongHeader song = makeRichModule();
    Loaded v5 = load(writeQaz(song, withVersion(5)));
    ASSERT_TRUE(v5.song) << v5.error;
    EXPECT_EQ(moduleDifference(song, *v5.song), "");
    // The copy and the empty sample hold what loading makes of them.
    EXPECT_EQ(v5.song->samples[8].pcm[0].size(), 0u);
    EXPECT_EQ(v5.song->samples[9].pcm[1].size(), v5.song->samples[9].length);

    // Version 4 has no file names; an XM-origin module keeps its frequencies as stored.
    SongHeader xm = makeRichModule(0);
    Loaded v4 = load(writeQaz(xm, withVersion(4)));
    ASSERT_TRUE(v4.song) << v4.error;
    for (auto& ins : xm.instruments) ins.fileName.clear();
    for (auto& smp : xm.samples) smp.fileName.clear();
    EXPECT_EQ(moduleDifference(xm, *v4.song), "");

    // Records are held as natural fields; the stored byte layout (unaligned fields included) is
    // the file's. Byte i of a stored record holds i.
    uint8_t bytes[INSTRUMENT_STORED_SIZE];
    for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<uint8_t>(i);
    SampleRecord smp;
    parseSample(bytes, smp);
    EXPECT_EQ((std::vector<uint32_t>{smp.length, smp.flags, smp.sustainStart, static_cast<uint32_t>(smp.storedSize),
                                     smp.codecParam, static_cast<uint16_t>(smp.pan)}),
              (std::vector<uint32_t>{0x0B0A0908, 0x1514, 0x1E1D1C1B, 0x26252423, 0x2827, 0x0706}));
    InstrumentRecord ins;
    parseInstrument(bytes, ins);
    EXPECT_EQ((std::vector<uint32_t>{ins.noteMap[119].sample, ins.volumeEnvelope.points[24].value,
                                     ins.pitchEnvelope.loopEnd, ins.fadeout, static_cast<uint16_t>(ins.pan),
                                     ins.randomPan, ins.filterResonance}),
              (std::vector<uint32_t>{0xE3E2, 0x4D4C, 0xBD, 0x2726, 0x2E2D, 0x3736, 0x39}));
}

TEST(Loader, OldFilesConvertLinearItFrequencies) {
    SongHeader song = oneSampleModule(0, 16);
    song.flags = SH_ORIGIN_IT | SH_LINEAR_SLIDES;
    for (auto [stored, hz] : {std::pair<int32_t, uint32_t>{-1408, 8363}, {0, 15787}, {128, 16726}}) {
        song.samples[0].frequency = static_cast<uint32_t>(stored);
        std::vector<uint8_t> raw = codeSampleData(song.samples[0]);
        Loaded v4 = load(assembleQaz(buildBody(song, 4, {SampleStorage{}}, false), 4, raw));
        ASSERT_TRUE(v4.song);
        EXPECT_EQ(v4.song->samples[0].frequency, hz) << stored;
        Loaded v5 = load(assembleQaz(buildBody(song, 5, {SampleStorage{}}, false), 5, raw));
        ASSERT_TRUE(v5.song);
        EXPECT_EQ(v5.song->samples[0].frequency, static_cast<uint32_t>(stored));
    }
    // Absurd stored values saturate rather than overflow.
    song.samples[0].frequency = 0x00100000;
    Loaded big = load(assembleQaz(buildBody(song, 4, {SampleStorage{}}, false), 4, codeSampleData(song.samples[0])));
    ASSERT_TRUE(big.song);
    EXPECT_EQ(big.song->samples[0].frequency, 0xFFFFFFFFu);
    // The writer's inverse lands within a step of the original rate.
    song.samples[0].frequency = 44100;
    Loaded back = load(writeQaz(song, withVersion(4)));
    ASSERT_TRUE(back.song);
    EXPECT_NEAR(back.song->samples[0].frequency, 44100.0, 44100.0 / 1536);
}

TEST(Loader, HeaderAndBodyFailures) {
    const std::vector<uint8_t> good = writeQaz(makeOnePatternSong(SH_ORIGIN_MOD, 4), withVersion(5));
    ASSERT_TRUE(load(good).song);

    auto withByte = [&](size_t at, uint8_t v) {
        std::vector<uint8_t> f = good;
        f[at] = v;
        return f;
    };
    EXPECT_EQ(load(withByte(0, 'X')).error, "This is not a QAZ file!");
    EXPECT_EQ(load(withByte(3, 6)).error, "This is not a QAZ file!");
    EXPECT_EQ(load({'Q', 'A', 'Z'}).error, "This is not a QAZ file!");
    // A packed size that disagrees with the data consumed (version 5).
    EXPECT_EQ(load(withByte(8, static_cast<uint8_t>(good[8] + 1))).error, "Something is wrong with this file!");
    // A body size of 0.
    std::vector<uint8_t> empty = good;
    wr32le(empty.data() + 4, 0);
    EXPECT_EQ(load(empty).error, "Something is wrong with this file!");
}

TEST(Loader, SampleDataPlacementAndShortInput) {
    // Raw 16-bit stereo of 1000 frames occupies 4000 bytes: left channel, then right.
    SongHeader song = oneSampleModule(SF_16BIT | SF_STEREO, 1000);
    std::vector<uint8_t> file = writeQaz(song);
    Loaded full = load(file);
    ASSERT_TRUE(full.song);
    EXPECT_EQ(moduleDifference(song, *full.song), "");
    const uint32_t dataAt = full.song->samples[0].dataOffset;
    EXPECT_EQ(file.size() - dataAt, 4000u);
    EXPECT_EQ(rd16le(&file[dataAt + 2000]), static_cast<uint16_t>(song.samples[0].pcm[1][0]));

    // Cut inside the left channel: the right channel has no data left and stays absent.
    file.resize(dataAt + 1001);
    Loaded cut = load(file);
    ASSERT_TRUE(cut.song);
    const SampleRecord& s = cut.song->samples[0];
    EXPECT_EQ(s.pcm[0].size(), 1000u);
    EXPECT_EQ(s.pcm[1].size(), 0u);
    // A short 16-bit read keeps the bytes present (500 values and one low byte), the rest is zero.
    for (size_t k = 0; k < 500; ++k) ASSERT_EQ(s.pcm[0][k], song.samples[0].pcm[0][k]) << k;
    EXPECT_EQ(s.pcm[0][500], song.samples[0].pcm[0][500] & 0xFF);
    for (size_t k = 501; k < 1000; ++k) ASSERT_EQ(s.pcm[0][k], 0) << k;

    // An empty sample that claims stored bytes has them stepped over: the next sample's data
    // is read from its own place.
    SongHeader two = makeOnePatternSong(SH_ORIGIN_IT, 4);
    addSample(two, SF_DELTA, 0);
    addSample(two, 0, 100, 9);
    QazWriteOptions options;
    options.codedData = {std::vector<uint8_t>{0x7F, 0x7F, 0x7F, 0x7F, 0x7F}};
    Loaded both = load(writeQaz(two, options));
    ASSERT_TRUE(both.song);
    EXPECT_EQ(pcmOf(both.song->samples[1]), pcmOf(two.samples[1]));
}

// Auto coding stores each sample in no more bytes than any single lossless coding would, a
// repeated sample as a copy of the first, and loads back the same PCM.
TEST(Loader, AutoCodingStoresEachSampleSmallestAndRepeatsOnce) {
    auto song = [] {
        SongHeader s = makeRichModule();
        addSample(s, SF_16BIT, 300, 5);
        addSample(s, SF_16BIT, 300, 5);  // the same again
        return s;
    };
    auto storage = [](const SongHeader& s) {
        std::vector<SampleStorage> st;
        EXPECT_TRUE(planSampleStorage(s, {}, st));
        return st;
    };
    SongHeader chosen = song();
    chooseSmallestLossless(chosen);
    EXPECT_EQ(chosen.samples.back().storedSize, -1);
    SongHeader lossy = makeSong(0, 1);
    addSample(lossy, SF_COMPRESSED | SF_16BIT, 100);
    chooseSmallestLossless(lossy);
    EXPECT_EQ(lossy.samples[0].flags, SF_COMPRESSED | SF_16BIT);  // a lossy stream is not recoded
    const std::vector<SampleStorage> best = storage(chosen);
    for (uint16_t coding : {uint16_t{0}, SF_DELTA, SF_PREDICT}) {
        SongHeader fixed = song();
        for (SampleRecord& s : fixed.samples)
            if (s.storedSize >= 0) s.flags = static_cast<uint16_t>((s.flags & ~SF_CODING_MASK) | coding);
        const std::vector<SampleStorage> st = storage(fixed);
        for (size_t i = 0; i < st.size(); ++i) EXPECT_LE(best[i].data.size(), st[i].data.size()) << coding << " " << i;
    }
    Loaded loaded = load(writeQaz(chosen));
    ASSERT_TRUE(loaded.song) << loaded.error;
    const SongHeader original = song();
    for (size_t i = 0; i < original.samples.size(); ++i)
        for (int c = 0; c < 2 && original.samples[i].storedSize >= 0; ++c)
            EXPECT_EQ(pcmOf(loaded.song->samples[i], c), pcmOf(original.samples[i], c)) << i;
}

}  // namespace
}  // namespace deqaz
