// The QAZ writer's lossy options: a module's samples stored as Ogg Vorbis (with and without
// shared header pages) or Layer III, then loaded again, come back aligned and close to the
// originals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "container/loader.hpp"
#include "container/qaz_writer.hpp"
#include "support/qaz_fixtures.hpp"

using namespace deqaz;
using namespace deqaz::testing;

namespace {

// A module of tonal samples: mono 8-bit, mono 16-bit, stereo 16-bit, and a copy.
SongHeader tonalModule() {
    SongHeader song = makeMinimalModule(SH_ORIGIN_IT);
    const uint16_t kinds[] = {0, SF_16BIT, SF_16BIT | SF_STEREO, SF_16BIT};
    for (size_t i = 0; i < std::size(kinds); ++i) {
        SampleRecord& s = song.samples.emplace_back();
        s.flags = kinds[i];
        s.length = 20000;
        s.frequency = 22050;
        if (i == 3) {
            s.storedSize = -1;
            continue;
        }
        const int channels = (kinds[i] & SF_STEREO) ? 2 : 1;
        for (int c = 0; c < channels; ++c) {
            EXPECT_TRUE(s.pcm[c].allocate(s.length));
            for (uint32_t k = 0; k < s.length; ++k) {
                double t = k / 22050.0;
                double v = 0.5 * std::sin(2 * M_PI * (220.0 * (i + 1) + 55 * c) * t) + 0.2 * std::sin(2 * M_PI * 660.0 * t);
                auto point = static_cast<int16_t>(v * 26000 * std::exp(-1.5 * t));
                s.pcm[c][k] = (kinds[i] & SF_16BIT) ? point : static_cast<int16_t>(point & 0xFF00);
            }
        }
    }
    song.sampleCount = static_cast<uint16_t>(song.samples.size());
    return song;
}

double snrDb(const HeapArray<int16_t>& ref, const HeapArray<int16_t>& got) {
    double signal = 0, noise = 0;
    for (size_t k = 0; k < ref.size() && k < got.size(); ++k) {
        signal += double(ref[k]) * ref[k];
        noise += (double(ref[k]) - got[k]) * (double(ref[k]) - got[k]);
    }
    return 10 * std::log10(signal / (noise + 1e-9));
}

std::unique_ptr<SongHeader> roundTrip(const SongHeader& song, const QazWriteOptions& options, size_t& fileSize) {
    std::vector<uint8_t> file = writeQaz(song, options);
    EXPECT_FALSE(file.empty());
    fileSize = file.size();
    InputStream in{file.data(), static_cast<uint32_t>(file.size()), 0};
    Diagnostics diag;
    auto loaded = loadModule(in, diag);
    EXPECT_TRUE(loaded) << diag.errorText;
    return loaded;
}

}  // namespace

TEST(LossyStorage, SamplesComeBackCloseAndAligned) {
    const SongHeader song = tonalModule();
    struct Setting {
        const char* name;
        QazWriteOptions options;
        double minSnr;
    };
    std::vector<Setting> settings;
    for (float q : {0.0f, 0.4f}) {
        QazWriteOptions o;
        o.lossy = LossyCoding::Vorbis;
        o.vorbisQuality = q;
        settings.push_back({q == 0.0f ? "vorbis q0.0" : "vorbis q0.4", o, q == 0.0f ? 12.0 : 20.0});
    }
    for (int kbps : {64, 128}) {
        QazWriteOptions o;
        o.lossy = LossyCoding::Layer3;
        o.layer3Bitrate = kbps;
        settings.push_back({kbps == 64 ? "layer3 64k" : "layer3 128k", o, 15.0});
    }
    for (const Setting& s : settings) {
        size_t size = 0;
        auto loaded = roundTrip(song, s.options, size);
        ASSERT_TRUE(loaded);
        for (size_t i = 0; i < 3; ++i) {
            const SampleRecord& orig = song.samples[i];
            const SampleRecord& back = loaded->samples[i];
            EXPECT_TRUE(back.flags & SF_COMPRESSED);
            for (int c = 0; c < ((orig.flags & SF_STEREO) ? 2 : 1); ++c) {
                ASSERT_EQ(back.pcm[c].size(), orig.length);
                double snr = snrDb(orig.pcm[c], back.pcm[c]);
                std::printf("%-12s sample %zu channel %d: SNR %.1f dB\n", s.name, i, c, snr);
                EXPECT_GT(snr, s.minSnr) << s.name << " sample " << i << " channel " << c;
            }
        }
        // The copy takes the decoded PCM of the sample before it.
        EXPECT_EQ(std::vector<int16_t>(loaded->samples[3].pcm[0].begin(), loaded->samples[3].pcm[0].end()),
                  std::vector<int16_t>(loaded->samples[2].pcm[0].begin(), loaded->samples[2].pcm[0].end()));
    }
}

TEST(LossyStorage, SharedVorbisHeadersDecodeAsTheFullStreams) {
    SongHeader song = tonalModule();
    song.samples[2].flags = SF_16BIT;  // three mono samples at one rate share one header
    song.samples[2].pcm[1].reset();
    QazWriteOptions full, shared;
    full.lossy = shared.lossy = LossyCoding::Vorbis;
    shared.shareVorbisHeaders = true;
    size_t fullSize = 0, sharedSize = 0;
    auto a = roundTrip(song, full, fullSize);
    auto b = roundTrip(song, shared, sharedSize);
    ASSERT_TRUE(a && b);
    EXPECT_LT(sharedSize + 2000, fullSize);  // two copies of the setup header saved
    EXPECT_EQ(b->samples[1].flags & (SF_COMPRESSED | SF_PREDICT), SF_COMPRESSED | SF_PREDICT);
    EXPECT_EQ(b->samples[1].headerSource, -1);
    EXPECT_EQ(b->samples[2].headerSource, -2);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(std::vector<int16_t>(a->samples[i].pcm[0].begin(), a->samples[i].pcm[0].end()),
                  std::vector<int16_t>(b->samples[i].pcm[0].begin(), b->samples[i].pcm[0].end()))
            << "sample " << i;
}
