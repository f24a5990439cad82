// The QAZ writer's lossy options: a module's samples stored as Ogg Vorbis or Layer III, then
// loaded again, come back aligned and close to the originals.
#include <gtest/gtest.h>

#include <cstdio>

#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/qaz_fixtures.hpp"
#include "support/signals.hpp"
#include "support/xmp_compare.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

// A module of musical samples at 22,050 Hz: mono 8-bit, mono 16-bit, stereo 16-bit, and a copy.
SongHeader tonalModule() {
    SongHeader song = makeOnePatternSong(SH_ORIGIN_IT, 4);
    for (int flags : {0, int{SF_16BIT}, SF_16BIT | SF_STEREO}) {
        SampleRecord& s = addSample(song, static_cast<uint16_t>(flags), 20000);
        s.frequency = 22050;
        const int channels = (flags & SF_STEREO) ? 2 : 1;
        const std::vector<int16_t> pcm = musicalSignal(s.length, channels, 22050);
        for (int c = 0; c < channels; ++c)
            for (uint32_t k = 0; k < s.length; ++k)
                s.pcm[c][k] = static_cast<int16_t>(pcm[k * channels + c] & ((flags & SF_16BIT) ? 0xFFFF : 0xFF00));
    }
    addSample(song, SF_16BIT, 20000).storedSize = -1;
    return song;
}

Loaded roundTrip(const SongHeader& song, const QazWriteOptions& options, size_t& fileSize) {
    const std::vector<uint8_t> file = writeQaz(song, options);
    fileSize = file.size();
    Loaded r = loadQaz(file);
    EXPECT_TRUE(r.song) << r.error;
    return r;
}

TEST(LossyStorage, SamplesComeBackCloseAndAligned) {
    const SongHeader song = tonalModule();
    struct Setting {
        const char* name;
        QazWriteOptions options;
        double minSnr;
    };
    const auto vorbis = [](float q) {
        QazWriteOptions o;
        o.lossy = LossyCoding::Vorbis;
        o.vorbisQuality = q;
        return o;
    };
    const auto layer3 = [](int kbps) {
        QazWriteOptions o;
        o.lossy = LossyCoding::Layer3;
        o.layer3Bitrate = kbps;
        return o;
    };
    const Setting settings[] = {{"vorbis q0.0", vorbis(0.0f), 12.0}, {"vorbis q0.4", vorbis(0.4f), 20.0},
                                {"layer3 64k", layer3(64), 15.0}, {"layer3 128k", layer3(128), 15.0}};
    for (const Setting& s : settings) {
        size_t size = 0;
        const Loaded r = roundTrip(song, s.options, size);
        ASSERT_TRUE(r.song);
        const SongHeader* loaded = r.song.get();
        for (size_t i = 0; i < 3; ++i) {
            const SampleRecord& orig = song.samples[i];
            const SampleRecord& back = loaded->samples[i];
            EXPECT_TRUE(back.flags & SF_COMPRESSED);
            for (int c = 0; c < ((orig.flags & SF_STEREO) ? 2 : 1); ++c) {
                ASSERT_EQ(back.pcm[c].size(), orig.length);
                const double snr = compareAudio(pcmOf(orig, c), pcmOf(back, c)).snrDb;
                std::printf("%-12s sample %zu channel %d: SNR %.1f dB\n", s.name, i, c, snr);
                EXPECT_GT(snr, s.minSnr) << s.name << " sample " << i << " channel " << c;
            }
        }
        // The copy takes the decoded PCM of the sample before it.
        EXPECT_EQ(pcmOf(loaded->samples[3]), pcmOf(loaded->samples[2]));
    }
}

}  // namespace
}  // namespace deqaz
