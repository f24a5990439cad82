// MPEG audio Layer III samples: a bare sequence of MPEG-1/2/2.5 Layer III frames, decoded with
// libmpg123 into interleaved 16-bit PCM.
//
// Framing is done here, not by libmpg123: the first valid header fixes the stream (version,
// layer, sampling rate, channel count), and from the first byte on a frame is taken only where a
// header agrees with it; elsewhere the scan moves on one byte. Each frame taken is handed to
// libmpg123 on its own, and each yields exactly one frame of output (1152 or 576 sample frames of
// the fixed channel count) whatever the library makes of it: missing output is made up with
// silence and surplus is dropped. That keeps the decoded stream aligned frame for frame with the
// stored frames, which the count of leading bytes to discard (the encoder's delay) relies on.
// A frame cut short by the end of the data yields nothing. A protected frame's CRC is passed
// over: libmpg123 does not refuse a frame whose CRC is wrong.
#include <mpg123.h>

#include <algorithm>
#include <cstring>

#include "common/endian.hpp"
#include "samples/lossy.hpp"

namespace deqaz {

void initLossyDecoders() {
    // A no-op in current libmpg123, required before any handle by older versions.
    mpg123_init();
}

namespace {

// Frame header fields: AAAAAAAA AAABBCCD EEEEFFGH IIJJKLMM — sync, version, layer, no-CRC flag,
// bitrate, sampling rate, padding, private, mode, mode extension, copyright, original, emphasis.
constexpr uint32_t kSyncMask = 0xFFE00000;
// Sync, version, layer and sampling rate: what every frame of one stream must share.
constexpr uint32_t kStreamMask = 0xFFFE0C00;

unsigned versionBits(uint32_t h) { return (h >> 19) & 3; }  // 0 MPEG-2.5, 1 reserved, 2 MPEG-2, 3 MPEG-1
unsigned layerBits(uint32_t h) { return (h >> 17) & 3; }    // 0 reserved, 1 Layer III, 2 II, 3 I
unsigned bitrateIndex(uint32_t h) { return (h >> 12) & 15; }
unsigned rateIndex(uint32_t h) { return (h >> 10) & 3; }
unsigned padding(uint32_t h) { return (h >> 9) & 1; }
unsigned modeBits(uint32_t h) { return (h >> 6) & 3; }  // 3: single channel

// The 32-bit header at `p`, stored big-endian.
uint32_t headerAt(const uint8_t* p) { return (static_cast<uint32_t>(rd16be(p)) << 16) | rd16be(p + 2); }

bool validHeader(uint32_t h) {
    return (h & kSyncMask) == kSyncMask && versionBits(h) != 1 && layerBits(h) != 0 && bitrateIndex(h) != 0 &&
           bitrateIndex(h) != 15 && rateIndex(h) != 3;
}

long sampleRate(uint32_t h) {
    static const long kBase[3] = {44100, 48000, 32000};
    const long base = kBase[rateIndex(h)];
    switch (versionBits(h)) {
        case 3: return base;
        case 2: return base / 2;
        default: return base / 4;
    }
}

bool isMpeg1(uint32_t h) { return versionBits(h) == 3; }

// Bytes in a Layer III frame, header included.
size_t layer3FrameBytes(uint32_t h) {
    static const unsigned kMpeg1[16] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
    static const unsigned kMpeg2[16] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
    const unsigned long kbps = isMpeg1(h) ? kMpeg1[bitrateIndex(h)] : kMpeg2[bitrateIndex(h)];
    const unsigned long perKbps = isMpeg1(h) ? 144000 : 72000;
    return perKbps * kbps / static_cast<unsigned long>(sampleRate(h)) + padding(h);
}

// Where decoded bytes go: the first `skip` are discarded, the next `outBytes` fill the buffer.
struct OutputSink {
    uint8_t* out;
    size_t outBytes;
    size_t skip;
    size_t written = 0;

    bool full() const { return written == outBytes; }

    // `data` null means `count` zero bytes.
    void put(const uint8_t* data, size_t count) {
        const size_t dropped = std::min(skip, count);
        skip -= dropped;
        count -= dropped;
        const size_t n = std::min(count, outBytes - written);
        if (n == 0) return;
        if (data)
            std::memcpy(out + written, data + dropped, n);
        else
            std::memset(out + written, 0, n);
        written += n;
    }
};

struct Mpg123Handle {
    mpg123_handle* mh = nullptr;
    Mpg123Handle() { mh = mpg123_new(nullptr, nullptr); }
    ~Mpg123Handle() {
        if (mh) mpg123_delete(mh);
    }
    Mpg123Handle(const Mpg123Handle&) = delete;
    Mpg123Handle& operator=(const Mpg123Handle&) = delete;
};

class FrameDecoder {
public:
    FrameDecoder(mpg123_handle* mh, long rate, int channels, size_t frameOutBytes)
        : mh_(mh), rate_(rate), channels_(channels), frameOutBytes_(frameOutBytes) {}

    // Output fixed to the stream's rate and channel count as 16-bit values: libmpg123 mixes a
    // two-channel frame down or doubles a one-channel frame to match, and never resamples.
    // Nothing is trimmed (no gapless mode), an Info frame is audio like any other, and the
    // library never reads ahead, so a frame is decoded as soon as it is fed.
    bool configure() {
        long flags = MPG123_QUIET | MPG123_IGNORE_INFOFRAME | MPG123_NO_READAHEAD | MPG123_SKIP_ID3V2 |
                     MPG123_NO_RESYNC | (channels_ == 1 ? MPG123_MONO_MIX : MPG123_FORCE_STEREO);
        if (mpg123_param(mh_, MPG123_FLAGS, flags, 0.0) != MPG123_OK) return false;
        if (mpg123_format_none(mh_) != MPG123_OK) return false;
        if (mpg123_format(mh_, rate_, channels_ == 1 ? MPG123_MONO : MPG123_STEREO, MPG123_ENC_SIGNED_16) !=
            MPG123_OK)
            return false;
        return mpg123_open_feed(mh_) == MPG123_OK;
    }

    // Starts libmpg123 afresh, emptying its store of main data (which it can only empty together
    // with its synthesis history). The output format stays in force: libmpg123 announces a new
    // one only if it differs.
    void restart() { mpg123_open_feed(mh_); }

    // Decodes one whole frame into the sink: exactly one frame of output.
    void frame(const uint8_t* data, size_t size, OutputSink& sink) {
        size_t produced = 0;
        if (mpg123_feed(mh_, data, size) == MPG123_OK) {
            // One frame fed gives one frame out; the bound only guards against a library that
            // keeps answering without progress.
            for (int tries = 0; tries < 16 && !sink.full(); ++tries) {
                off_t num = 0;
                unsigned char* audio = nullptr;
                size_t bytes = 0;
                const int r = mpg123_decode_frame(mh_, &num, &audio, &bytes);
                if (r == MPG123_NEW_FORMAT) {
                    formatOk_ = formatMatches();
                    continue;
                }
                if (r == MPG123_NEED_MORE) break;
                if (r != MPG123_OK) {
                    // libmpg123 has lost its place: start it afresh at the next frame.
                    restart();
                    break;
                }
                const size_t n = std::min(bytes, frameOutBytes_ - produced);
                if (n > 0 && formatOk_ && audio) {
                    sink.put(audio, n);
                    produced += n;
                }
            }
        }
        if (produced < frameOutBytes_) sink.put(nullptr, frameOutBytes_ - produced);
    }

private:
    bool formatMatches() {
        long rate = 0;
        int channels = 0, encoding = 0;
        if (mpg123_getformat(mh_, &rate, &channels, &encoding) != MPG123_OK) return false;
        return rate == rate_ && channels == channels_ && encoding == MPG123_ENC_SIGNED_16;
    }

    mpg123_handle* mh_;
    long rate_;
    int channels_;
    size_t frameOutBytes_;
    bool formatOk_ = false;
};

void decodeFrames(const uint8_t* stored, size_t storedSize, OutputSink& sink) {
    if (storedSize < 4) return;
    // The reference header: the first valid one, found one byte at a time.
    size_t first = 0;
    while (first + 4 <= storedSize && !validHeader(headerAt(stored + first))) ++first;
    if (first + 4 > storedSize) return;
    const uint32_t reference = headerAt(stored + first);
    // Only Layer III frames produce output, and the stream mask admits no other layer.
    if (layerBits(reference) != 1) return;

    const int channels = modeBits(reference) == 3 ? 1 : 2;
    const size_t frameOutBytes = (isMpeg1(reference) ? 1152u : 576u) * static_cast<size_t>(channels) * 2u;

    Mpg123Handle handle;
    if (!handle.mh) return;
    FrameDecoder decoder(handle.mh, sampleRate(reference), channels, frameOutBytes);
    if (!decoder.configure()) return;

    size_t pos = first;  // nothing before the reference header can agree with it
    bool decoded = false, lostSync = false;
    while (pos + 4 <= storedSize && !sink.full()) {
        const uint32_t h = headerAt(stored + pos);
        if (!validHeader(h) || (h & kStreamMask) != (reference & kStreamMask)) {
            ++pos;
            lostSync = decoded;
            continue;
        }
        const size_t bytes = layer3FrameBytes(h);
        // A frame cut short by the end of the data is not decoded.
        if (bytes > storedSize - pos) break;
        // Bytes were skipped since the last frame: the main data kept from earlier frames no
        // longer belongs to what follows, so a frame whose main data began before the gap decodes
        // as silence rather than from unrelated bytes. Restarting also drops the synthesis
        // history, so the tail of the last frame before the gap, which would have sounded at the
        // start of the first frame after it, is lost.
        if (lostSync) decoder.restart();
        lostSync = false;
        decoder.frame(stored + pos, bytes, sink);
        decoded = true;
        pos += bytes;
    }
}

}  // namespace

void decodeLayer3Sample(const uint8_t* stored, size_t storedSize, uint16_t codecParam, int16_t* out,
                        size_t outBytes) {
    OutputSink sink{reinterpret_cast<uint8_t*>(out), outBytes, codecParam};
    if (stored != nullptr) decodeFrames(stored, storedSize, sink);
    if (outBytes > sink.written) std::memset(sink.out + sink.written, 0, outBytes - sink.written);
}

}  // namespace deqaz
