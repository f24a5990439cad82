#pragma once
// Lossy sample encoders used when writing QAZ files: Ogg Vorbis (libvorbisenc + libogg) and
// MPEG audio Layer III (LAME). Both take signed 16-bit PCM interleaved by channel and produce
// exactly the stored data the sample decoders read back.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace deqaz {

// An encoded Ogg Vorbis stream, split at the page boundary after the three header packets.
// `header` holds the pages that carry the identification, comment and setup packets (and
// nothing else); `audio` holds the remaining pages and begins with "OggS". The whole stream is
// header followed by audio. Two streams encoded with the same channels, rate, quality and serial
// number have byte-identical header parts, so one sample may borrow another's header pages.
struct VorbisEncoded {
    bool ok = false;
    std::vector<uint8_t> header;
    std::vector<uint8_t> audio;

    std::vector<uint8_t> stream() const;
};

// `quality` is libvorbis' VBR quality, -0.1 (smallest) to 1.0 (best). `rate` is only written
// into the identification header; libvorbis refuses rates far outside 8-192 kHz (ok = false).
VorbisEncoded encodeVorbis(const int16_t* pcm, size_t frames, int channels, long rate, float quality,
                           int serialNo = 0x51415A00);

// Raw MPEG audio Layer III frames: no ID3 tag and no Xing/Info frame, constant bitrate.
struct Layer3Encoded {
    bool ok = false;
    std::vector<uint8_t> frames;
    // Sampling rate written into the frame headers (see encodeLayer3).
    int frameRate = 0;
    // Bytes of decoded output (16-bit values, interleaved) that precede the first input frame
    // when the frames are decoded without delay trimming: the encoder delay plus the
    // synthesis delay of a standard decoder, times 2 * channels. This is the sample's codecParam.
    // With LAME 3.100 the encoder delay is 576, so 1105 frames: the offset at which libmpg123's
    // output matches the input best, at every rate and bitrate measured.
    uint32_t delayBytes = 0;
};

// Frames of the decoder's synthesis filter bank that precede any input: a decoder that trims
// nothing outputs this many extra frames ahead of the encoder's own delay.
constexpr int kLayer3DecoderDelay = 529;

// `bitrate` in kbit/s (a legal Layer III bitrate for the frame rate: MPEG-1 32-320, MPEG-2
// 8-160). `rate` picks the frames' sampling rate: a rate MPEG audio can carry is used as it is,
// any other is labelled with the nearest one that can, without resampling — a tracker sample's
// playback rate is kept apart from the stream, so the label only shapes the encoder's model.
// Channels: 1 (mono frames) or 2 (joint stereo frames).
Layer3Encoded encodeLayer3(const int16_t* pcm, size_t frames, int channels, long rate, int bitrate,
                           bool crcProtected = false);

}  // namespace deqaz
