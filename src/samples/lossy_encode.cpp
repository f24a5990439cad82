#include "samples/lossy_encode.hpp"

#include <lame/lame.h>
#include <ogg/ogg.h>
#include <vorbis/vorbisenc.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>

namespace deqaz {

std::vector<uint8_t> VorbisEncoded::stream() const {
    std::vector<uint8_t> all;
    all.reserve(header.size() + audio.size());
    all.insert(all.end(), header.begin(), header.end());
    all.insert(all.end(), audio.begin(), audio.end());
    return all;
}

namespace {

void appendPage(std::vector<uint8_t>& to, const ogg_page& page) {
    to.insert(to.end(), page.header, page.header + page.header_len);
    to.insert(to.end(), page.body, page.body + page.body_len);
}

// The libvorbis encoder states, released together whatever point set-up reached.
struct VorbisEncoder {
    vorbis_info vi;
    vorbis_comment vc;
    vorbis_dsp_state vd;
    vorbis_block vb;
    ogg_stream_state os;
    bool analysis = false;
    bool stream = false;

    VorbisEncoder() {
        vorbis_info_init(&vi);
        vorbis_comment_init(&vc);
    }
    ~VorbisEncoder() {
        if (stream) ogg_stream_clear(&os);
        if (analysis) {
            vorbis_block_clear(&vb);
            vorbis_dsp_clear(&vd);
        }
        vorbis_comment_clear(&vc);
        vorbis_info_clear(&vi);
    }
    VorbisEncoder(const VorbisEncoder&) = delete;
    VorbisEncoder& operator=(const VorbisEncoder&) = delete;

    // Moves every finished block into packets and every full page into `audio`.
    void drain(std::vector<uint8_t>& audio) {
        ogg_packet op;
        ogg_page og;
        while (vorbis_analysis_blockout(&vd, &vb) == 1) {
            vorbis_analysis(&vb, nullptr);
            vorbis_bitrate_addblock(&vb);
            while (vorbis_bitrate_flushpacket(&vd, &op) == 1) {
                ogg_stream_packetin(&os, &op);
                while (ogg_stream_pageout(&os, &og) > 0) appendPage(audio, og);
            }
        }
    }
};

}  // namespace

VorbisEncoded encodeVorbis(const int16_t* pcm, size_t frames, int channels, long rate, float quality,
                           int serialNo) {
    VorbisEncoded result;
    if (channels < 1 || channels > 255 || rate <= 0 || (frames > 0 && pcm == nullptr)) return result;

    VorbisEncoder enc;
    if (vorbis_encode_init_vbr(&enc.vi, channels, rate, quality) != 0) return result;
    if (vorbis_analysis_init(&enc.vd, &enc.vi) != 0) return result;
    vorbis_block_init(&enc.vd, &enc.vb);
    enc.analysis = true;
    ogg_stream_init(&enc.os, serialNo);
    enc.stream = true;

    // The identification packet goes alone on the first page (libogg's rule for the first page);
    // flushing after the comment and setup packets ends the header pages there, so the first
    // audio packet starts a fresh page.
    ogg_packet ident, comment, setup;
    vorbis_analysis_headerout(&enc.vd, &enc.vc, &ident, &comment, &setup);
    ogg_stream_packetin(&enc.os, &ident);
    ogg_stream_packetin(&enc.os, &comment);
    ogg_stream_packetin(&enc.os, &setup);
    ogg_page og;
    while (ogg_stream_flush(&enc.os, &og) > 0) appendPage(result.header, og);

    constexpr size_t kChunk = 1024;
    for (size_t pos = 0; pos < frames;) {
        const size_t n = std::min(kChunk, frames - pos);
        float** buf = vorbis_analysis_buffer(&enc.vd, static_cast<int>(n));
        const int16_t* src = pcm + pos * static_cast<size_t>(channels);
        for (size_t i = 0; i < n; ++i)
            for (int c = 0; c < channels; ++c) buf[c][i] = static_cast<float>(*src++) / 32768.0f;
        vorbis_analysis_wrote(&enc.vd, static_cast<int>(n));
        enc.drain(result.audio);
        pos += n;
    }
    vorbis_analysis_wrote(&enc.vd, 0);
    enc.drain(result.audio);
    while (ogg_stream_flush(&enc.os, &og) > 0) appendPage(result.audio, og);

    result.ok = true;
    return result;
}

namespace {

void lameQuiet(const char*, va_list) {}

struct LameHandle {
    lame_global_flags* gf = lame_init();
    ~LameHandle() {
        if (gf) lame_close(gf);
    }
    LameHandle() = default;
    LameHandle(const LameHandle&) = delete;
    LameHandle& operator=(const LameHandle&) = delete;
};

int nearestMpegRate(long rate) {
    static const int kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
    int best = kRates[0];
    for (int r : kRates)
        if (std::labs(rate - r) < std::labs(rate - best)) best = r;
    return best;
}

}  // namespace

Layer3Encoded encodeLayer3(const int16_t* pcm, size_t frames, int channels, long rate, int bitrate,
                           bool crcProtected) {
    Layer3Encoded result;
    if (channels < 1 || channels > 2 || (frames > 0 && pcm == nullptr)) return result;
    LameHandle lame;
    lame_global_flags* gf = lame.gf;
    if (!gf) return result;

    result.frameRate = nearestMpegRate(rate);
    lame_set_errorf(gf, lameQuiet);
    lame_set_debugf(gf, lameQuiet);
    lame_set_msgf(gf, lameQuiet);
    lame_set_num_channels(gf, channels);
    lame_set_in_samplerate(gf, result.frameRate);
    lame_set_out_samplerate(gf, result.frameRate);
    lame_set_mode(gf, channels == 1 ? MONO : JOINT_STEREO);
    lame_set_VBR(gf, vbr_off);
    lame_set_brate(gf, bitrate);
    lame_set_error_protection(gf, crcProtected ? 1 : 0);
    lame_set_bWriteVbrTag(gf, 0);
    lame_set_write_id3tag_automatic(gf, 0);
    if (lame_init_params(gf) < 0 || lame_get_out_samplerate(gf) != result.frameRate) return result;

    // LAME's own bound for one call's output: 1.25 * samples + 7200 bytes.
    constexpr int kChunk = 4096;
    std::vector<unsigned char> mp3(kChunk * 5 / 4 + 7200);
    std::vector<short> left(kChunk), right(kChunk);
    auto encodeChunk = [&](const int16_t* src, int n) {
        for (int i = 0; i < n; ++i) {
            left[i] = src[i * channels];
            right[i] = channels == 1 ? 0 : src[i * channels + 1];
        }
        int got = lame_encode_buffer(gf, left.data(), channels == 2 ? right.data() : nullptr, n, mp3.data(),
                                     static_cast<int>(mp3.size()));
        if (got < 0) return false;
        result.frames.insert(result.frames.end(), mp3.begin(), mp3.begin() + got);
        return true;
    };
    for (size_t pos = 0; pos < frames;) {
        const int n = static_cast<int>(std::min<size_t>(kChunk, frames - pos));
        if (!encodeChunk(pcm + pos * static_cast<size_t>(channels), n)) return result;
        pos += static_cast<size_t>(n);
    }
    // LAME's flush pads the end so that the last input frame, shifted by the encoder delay and
    // the decoder's synthesis delay, still lies within the decoded output.
    int got = lame_encode_flush(gf, mp3.data(), static_cast<int>(mp3.size()));
    if (got < 0) return result;
    result.frames.insert(result.frames.end(), mp3.begin(), mp3.begin() + got);

    result.delayBytes = static_cast<uint32_t>(lame_get_encoder_delay(gf) + kLayer3DecoderDelay) * 2u *
                        static_cast<uint32_t>(channels);
    result.ok = true;
    return result;
}

}  // namespace deqaz
