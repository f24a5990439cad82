// Ogg Vorbis sample decoding, checked against libvorbisfile decoding the same stream, and the
// encoder that makes such streams (including shared header pages).
#include <gtest/gtest.h>
#include <vorbis/codec.h>
#include <vorbis/vorbisfile.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "samples/lossy.hpp"
#include "samples/lossy_encode.hpp"
#include "support/signals.hpp"

namespace deqaz {
namespace {

using test::expectRunThenSilence;
using test::musicalSignal;

// Independent decode: libvorbisfile reading the stream from memory, every frame it gives.
std::vector<int16_t> referenceDecode(const std::vector<uint8_t>& stream) {
    struct Mem { const std::vector<uint8_t>* v; size_t pos; } mem{&stream, 0};
    ov_callbacks cb{};
    cb.read_func = [](void* p, size_t size, size_t count, void* d) -> size_t {
        auto* m = static_cast<Mem*>(d);
        const size_t n = std::min(size * count, m->v->size() - m->pos);
        std::memcpy(p, m->v->data() + m->pos, n);
        m->pos += n;
        return size ? n / size : 0;
    };
    std::vector<int16_t> out;
    OggVorbis_File vf;
    if (ov_open_callbacks(&mem, &vf, nullptr, 0, cb) != 0) return out;
    const int channels = ov_info(&vf, -1)->channels;
    float** pcm;
    int section;
    long n;
    while ((n = ov_read_float(&vf, &pcm, 4096, &section)) > 0)
        for (long i = 0; i < n; ++i)
            for (int c = 0; c < channels; ++c) out.push_back(vorbisFloatToPcm16(pcm[c][i]));
    ov_clear(&vf);
    return out;
}

// Decodes into a buffer of `values` 16-bit values, pre-filled with garbage so silence is tested.
std::vector<int16_t> decode(const std::vector<uint8_t>& stored, size_t values, const uint8_t* header = nullptr,
                            size_t headerSize = 0) {
    std::vector<int16_t> out(values, 0x5A5A);
    decodeVorbisSample(header, headerSize, stored.data(), stored.size(), out.data(), values * 2);
    return out;
}

TEST(VorbisDecode, MatchesReferenceForMonoStereoAndMoreChannels) {
    for (int channels : {1, 2, 3}) {
        SCOPED_TRACE(channels);
        const size_t frames = 20000;
        const auto enc = encodeVorbis(musicalSignal(frames, channels, 22050).data(), frames, channels, 22050, 0.3f);
        ASSERT_TRUE(enc.ok);
        const auto stream = enc.stream();
        const auto ref = referenceDecode(stream);
        ASSERT_EQ(ref.size(), frames * channels);

        // Buffer shorter than the stream: exactly the frames that fit.
        expectRunThenSilence(decode(stream, 15000 * channels), ref, 15000 * channels);
        // Longer: all of it, then silence.
        expectRunThenSilence(decode(stream, 25000 * channels), ref, ref.size());
        // A size that is no whole number of frames: the partial frame stays silent.
        expectRunThenSilence(decode(stream, 1000 * channels + channels - 1), ref, 1000 * channels);
        // The frame count follows the buffer's size, not the sample's flags: a mono stream in a
        // buffer sized for stereo frames fills twice as many frames.
        if (channels == 1) expectRunThenSilence(decode(stream, 8000), ref, 8000);
        std::vector<int16_t> guard(4, 0x1234);  // no room: nothing written
        decodeVorbisSample(nullptr, 0, stream.data(), stream.size(), guard.data(), 0);
        EXPECT_EQ(guard, std::vector<int16_t>(4, 0x1234));
    }
}

TEST(VorbisDecode, SharedHeaderPages) {
    const size_t frames = 12000;
    const auto a = encodeVorbis(musicalSignal(frames, 2, 44100).data(), frames, 2, 44100, 0.4f);
    auto other = musicalSignal(frames + 777, 2, 44100);
    for (auto& v : other) v = static_cast<int16_t>(v / 2 + 100);
    const auto b = encodeVorbis(other.data(), frames + 777, 2, 44100, 0.4f);
    ASSERT_TRUE(a.ok && b.ok);
    // Same set-up, same header pages; the audio part starts with a page of its own.
    ASSERT_EQ(a.header, b.header);
    ASSERT_GE(b.audio.size(), 4u);
    EXPECT_EQ(std::memcmp(b.audio.data(), "OggS", 4), 0);

    // b's audio behind a's header decodes exactly like b's whole stream.
    const auto ref = referenceDecode(b.stream());
    const size_t values = (frames + 777) * 2;
    ASSERT_EQ(ref.size(), values);
    expectRunThenSilence(decode(b.audio, values + 500, a.header.data(), a.header.size()), ref, values);

    // Borrowing nothing (N = 0) leaves the audio pages without headers: silence; and a
    // complete stream with N = 0 decodes as it stands.
    expectRunThenSilence(decode(b.audio, values, a.header.data(), 0), ref, 0);
    expectRunThenSilence(decode(b.stream(), values, a.header.data(), 0), ref, values);

    // Header pages of another stream serial: the audio pages are refused.
    const auto c = encodeVorbis(other.data(), frames, 2, 44100, 0.4f, 77);
    expectRunThenSilence(decode(b.audio, values, c.header.data(), c.header.size()), ref, 0);
}

}  // namespace
}  // namespace deqaz
