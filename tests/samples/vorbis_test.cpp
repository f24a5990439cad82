// Ogg Vorbis sample decoding, checked against libvorbisfile decoding the same stream, and the
// encoder that makes such streams (including shared header pages).
#include <gtest/gtest.h>
#include <ogg/ogg.h>
#include <vorbis/codec.h>
#include <vorbis/vorbisfile.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "samples/lossy.hpp"
#include "samples/lossy_encode.hpp"

namespace deqaz {
namespace {

// Decaying plucked notes with harmonics over a quieter chord, a different voicing per channel.
std::vector<int16_t> musicalSignal(size_t frames, int channels, double rate) {
    std::vector<int16_t> pcm(frames * channels);
    const double notes[] = {220.0, 277.18, 329.63, 440.0};
    for (size_t i = 0; i < frames; ++i) {
        const double t = i / rate;
        for (int c = 0; c < channels; ++c) {
            const double f = notes[(i * 4 / frames + c) % 4];
            const double local = std::fmod(t, 0.25);
            double v = 0;
            for (int h = 1; h <= 4; ++h) v += std::sin(2 * M_PI * f * h * t) / h;
            v *= 0.5 * std::exp(-6 * local);
            v += 0.15 * std::sin(2 * M_PI * 110.0 * (c + 1) * t) + 0.1 * std::sin(2 * M_PI * 164.8 * t);
            pcm[i * channels + c] = static_cast<int16_t>(v * 20000);
        }
    }
    return pcm;
}

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

// Expects `out` to equal `ref` on its first `n` values and to be zero after them.
void expectPrefixThenSilence(const std::vector<int16_t>& out, const std::vector<int16_t>& ref, size_t n) {
    ASSERT_LE(n, ref.size());
    ASSERT_LE(n, out.size());
    size_t bad = 0;
    for (size_t i = 0; i < n; ++i) bad += out[i] != ref[i];
    EXPECT_EQ(bad, 0u) << "values differing from the reference among the first " << n;
    for (size_t i = n; i < out.size(); ++i) ASSERT_EQ(out[i], 0) << "at " << i;
}

TEST(VorbisConversion, TruncatesAndSaturates) {
    EXPECT_EQ(vorbisFloatToPcm16(1.0f), 32767);
    EXPECT_EQ(vorbisFloatToPcm16(-1.0f), -32768);
    EXPECT_EQ(vorbisFloatToPcm16(0.99999f), 32767);
    EXPECT_EQ(vorbisFloatToPcm16(-0.00002f), 0);
    EXPECT_EQ(vorbisFloatToPcm16(0.00002f), 0);
    EXPECT_EQ(vorbisFloatToPcm16(1.5f), 32767);
    EXPECT_EQ(vorbisFloatToPcm16(-7.0f), -32768);
    EXPECT_EQ(vorbisFloatToPcm16(-0.5f), -16384);
    EXPECT_EQ(vorbisFloatToPcm16(-100.9f / 32768.0f), -100);  // toward zero, not floor
    EXPECT_EQ(vorbisFloatToPcm16(std::nanf("")), 0);
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
        expectPrefixThenSilence(decode(stream, 15000 * channels), ref, 15000 * channels);
        // Longer: all of it, then silence.
        expectPrefixThenSilence(decode(stream, 25000 * channels), ref, ref.size());
        // A size that is no whole number of frames: the partial frame stays silent.
        expectPrefixThenSilence(decode(stream, 1000 * channels + channels - 1), ref, 1000 * channels);
    }
}

TEST(VorbisDecode, FrameLimitFollowsBufferSizeNotChannelFlag) {
    // A mono stream in a buffer sized for `length` stereo frames fills 2 * length mono frames.
    const size_t length = 4000;
    const auto enc = encodeVorbis(musicalSignal(3 * length, 1, 44100).data(), 3 * length, 1, 44100, 0.5f);
    const auto stream = enc.stream();
    const auto ref = referenceDecode(stream);
    expectPrefixThenSilence(decode(stream, length * 2), ref, length * 2);

    std::vector<int16_t> guard(4, 0x1234);
    decodeVorbisSample(nullptr, 0, stream.data(), stream.size(), guard.data(), 0);
    EXPECT_EQ(guard, std::vector<int16_t>(4, 0x1234));
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
    expectPrefixThenSilence(decode(b.audio, values + 500, a.header.data(), a.header.size()), ref, values);

    // Borrowing nothing (N = 0) leaves the audio pages without headers: silence; and a
    // complete stream with N = 0 decodes as it stands.
    expectPrefixThenSilence(decode(b.audio, values, a.header.data(), 0), ref, 0);
    expectPrefixThenSilence(decode(b.stream(), values, a.header.data(), 0), ref, values);

    // Header pages of another stream serial: the audio pages are refused.
    const auto c = encodeVorbis(other.data(), frames, 2, 44100, 0.4f, 77);
    expectPrefixThenSilence(decode(b.audio, values, c.header.data(), c.header.size()), ref, 0);
}

// Granule position (frames complete) of every page, with its byte range.
struct PageSpan { size_t begin, end; int64_t granule; };
std::vector<PageSpan> pages(const std::vector<uint8_t>& s) {
    std::vector<PageSpan> out;
    for (size_t p = 0; p + 27 <= s.size();) {
        size_t len = 27 + s[p + 26];
        for (int i = 0; i < s[p + 26]; ++i) len += s[p + 27 + i];
        int64_t g = 0;
        for (int i = 7; i >= 0; --i) g = g << 8 | s[p + 6 + i];
        out.push_back({p, p + len, g});
        p += len;
    }
    return out;
}

TEST(VorbisDecode, DamagedStreamsKeepWhatWasDecodedAndStaySilentAfter) {
    // Noise added to the notes makes many pages.
    const size_t frames = 48000;
    std::mt19937 rng(5);
    auto pcm = musicalSignal(frames, 2, 32000);
    for (auto& v : pcm) v = static_cast<int16_t>(v / 2 + static_cast<int>(rng() % 8001) - 4000);
    const auto enc = encodeVorbis(pcm.data(), frames, 2, 32000, 0.8f);
    const auto stream = enc.stream();
    const auto ref = referenceDecode(stream);
    const auto spans = pages(stream);
    ASSERT_GT(spans.size(), 10u);

    // Cut anywhere: frames finished by the last whole page are exact, silence follows them
    // (the decoder may also finish frames from complete packets of a cut page).
    for (size_t cut = 0; cut < stream.size(); cut += stream.size() / 100 + 1) {
        const std::vector<uint8_t> part(stream.begin(), stream.begin() + cut);
        const auto out = decode(part, ref.size());
        int64_t done = 0;
        for (const auto& sp : spans)
            if (sp.end <= cut && sp.begin >= enc.header.size()) done = sp.granule;
        size_t n = 0;
        while (n < out.size() && out[n] == ref[n]) ++n;
        ASSERT_GE(n, static_cast<size_t>(done) * 2) << "cut at " << cut;
        size_t nonzero = 0;
        for (size_t i = n; i < out.size(); ++i) nonzero += out[i] != 0;
        ASSERT_EQ(nonzero, 0u) << "cut at " << cut;
    }

    // One flipped bit fails the page's CRC: everything before that page is exact; damage in a
    // header page leaves the whole buffer silent.
    for (int trial = 0; trial < 100; ++trial) {
        auto bad = stream;
        const size_t at = rng() % bad.size();
        bad[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
        const auto out = decode(bad, ref.size());
        int64_t done = 0;
        for (const auto& sp : spans)
            if (sp.end <= at && sp.begin >= enc.header.size()) done = sp.granule;
        for (size_t i = 0; i < static_cast<size_t>(done) * 2; ++i) ASSERT_EQ(out[i], ref[i]) << "flip at " << at;
        if (at < enc.header.size()) {
            for (int16_t v : out) ASSERT_EQ(v, 0) << "flip at " << at;
        }
    }

    // Pure garbage, and garbage behind a capture pattern.
    std::vector<uint8_t> junk(5000);
    for (auto& b : junk) b = static_cast<uint8_t>(rng());
    expectPrefixThenSilence(decode(junk, 1000), ref, 0);
    std::memcpy(junk.data(), "OggS", 4);
    expectPrefixThenSilence(decode(junk, 1000), ref, 0);
}

// Re-pages a stream's packets, with the comment or setup packet replaced by junk.
std::vector<uint8_t> withBadHeader(const std::vector<uint8_t>& stream, int badPacket) {
    ogg_sync_state sync;
    ogg_stream_state in, out;
    ogg_sync_init(&sync);
    std::memcpy(ogg_sync_buffer(&sync, static_cast<long>(stream.size())), stream.data(), stream.size());
    ogg_sync_wrote(&sync, static_cast<long>(stream.size()));
    ogg_stream_init(&in, 0x51415A00);  // encodeVorbis' default serial number
    ogg_stream_init(&out, 0x51415A00);
    std::vector<uint8_t> result;
    ogg_page page;
    ogg_packet packet;
    unsigned char junk[64];
    std::memset(junk, 0x33, sizeof junk);
    int index = 0;
    auto emit = [&](bool flush) {
        while (flush ? ogg_stream_flush(&out, &page) : ogg_stream_pageout(&out, &page)) {
            result.insert(result.end(), page.header, page.header + page.header_len);
            result.insert(result.end(), page.body, page.body + page.body_len);
        }
    };
    while (ogg_sync_pageout(&sync, &page) == 1) {
        ogg_stream_pagein(&in, &page);
        while (ogg_stream_packetout(&in, &packet) == 1) {
            if (index == badPacket) {
                packet.packet = junk;
                packet.bytes = sizeof junk;
            }
            ogg_stream_packetin(&out, &packet);
            emit(index < 3);
            ++index;
        }
    }
    emit(true);
    ogg_stream_clear(&in);
    ogg_stream_clear(&out);
    ogg_sync_clear(&sync);
    return result;
}

TEST(VorbisDecode, RejectedCommentOrSetupHeaderGivesSilence) {
    const auto enc = encodeVorbis(musicalSignal(8000, 1, 22050).data(), 8000, 1, 22050, 0.1f);
    const auto ref = referenceDecode(enc.stream());
    // The re-paged stream itself decodes like the original.
    expectPrefixThenSilence(decode(withBadHeader(enc.stream(), -1), 8000), ref, 8000);
    for (int bad : {1, 2}) expectPrefixThenSilence(decode(withBadHeader(enc.stream(), bad), 8000), ref, 0);
}

double snrDb(const std::vector<int16_t>& a, const std::vector<int16_t>& b, size_t n) {
    double sig = 0, err = 0;
    for (size_t i = 0; i < n; ++i) {
        sig += double(a[i]) * a[i];
        err += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    }
    return 10 * std::log10(sig / std::max(err, 1.0));
}

TEST(VorbisRoundTrip, SignalToNoise) {
    const size_t frames = 44100;
    for (int channels : {1, 2})
        for (float q : {0.0f, 0.4f, 0.8f}) {
            const auto pcm = musicalSignal(frames, channels, 44100);
            const auto enc = encodeVorbis(pcm.data(), frames, channels, 44100, q);
            ASSERT_TRUE(enc.ok);
            const auto out = decode(enc.stream(), frames * channels);
            const double snr = snrDb(pcm, out, frames * channels);
            std::printf("Vorbis %d ch quality %.1f: %zu bytes, SNR %.1f dB\n", channels, q,
                        enc.header.size() + enc.audio.size(), snr);
            EXPECT_GT(snr, 15.0 + 10.0 * q);
        }
}

}  // namespace
}  // namespace deqaz
