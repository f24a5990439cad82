// Ogg Vorbis samples: a stream of standard Ogg pages carrying Vorbis I packets, decoded with
// libogg and libvorbis into interleaved 16-bit PCM until the buffer is full or the stream ends.
// A sample may borrow the header pages (identification, comment, setup) from another sample;
// its own bytes then start with its first audio page and continue that stream.
#include <ogg/ogg.h>
#include <vorbis/codec.h>

#include <algorithm>
#include <cstring>

#include "samples/lossy.hpp"

namespace deqaz {

int16_t vorbisFloatToPcm16(float x) {
    // Truncation toward zero, then saturation. NaN (only from a damaged stream) becomes 0.
    const float scaled = x * 32768.0f;
    if (scaled >= 32767.0f) return 32767;
    if (scaled > -32768.0f) return static_cast<int16_t>(static_cast<int>(scaled));
    if (scaled <= -32768.0f) return -32768;
    return 0;
}

namespace {

// The bytes handed to the sync state: the borrowed header bytes followed by the sample's own
// bytes. Reading across the two parts gives the sync state exactly the bytes a spliced copy
// would, without copying the stored data.
struct StreamSource {
    const uint8_t* part[2];
    size_t size[2];
    size_t readOffset = 0;

    size_t total() const { return size[0] + size[1]; }

    void copy(uint8_t* to, size_t count) {
        while (count > 0) {
            const bool first = readOffset < size[0];
            const size_t at = first ? readOffset : readOffset - size[0];
            const size_t n = std::min(count, (first ? size[0] : size[1]) - at);
            std::memcpy(to, part[first ? 0 : 1] + at, n);
            to += n;
            count -= n;
            readOffset += n;
        }
    }
};

// One sample's decoding context. Every state is initialised up front and cleared in the
// destructor, so each way out of decoding releases everything. Clearing a DSP state or block
// that was never initialised is safe: libvorbis tests its pointers, and both are zeroed here.
struct VorbisContext {
    StreamSource src;
    ogg_sync_state sync;
    ogg_stream_state stream;
    ogg_page page;
    ogg_packet packet;
    vorbis_info info;
    vorbis_comment comment;
    vorbis_dsp_state dsp;
    vorbis_block block;
    bool streamInit = false;

    explicit VorbisContext(const StreamSource& s) : src(s) {
        std::memset(&stream, 0, sizeof stream);
        std::memset(&page, 0, sizeof page);
        std::memset(&packet, 0, sizeof packet);
        std::memset(&dsp, 0, sizeof dsp);
        std::memset(&block, 0, sizeof block);
        ogg_sync_init(&sync);
        vorbis_info_init(&info);
        vorbis_comment_init(&comment);
    }
    ~VorbisContext() {
        if (streamInit) ogg_stream_clear(&stream);
        vorbis_block_clear(&block);
        vorbis_dsp_clear(&dsp);
        vorbis_comment_clear(&comment);
        vorbis_info_clear(&info);
        ogg_sync_clear(&sync);
    }
    VorbisContext(const VorbisContext&) = delete;
    VorbisContext& operator=(const VorbisContext&) = delete;

    // Hands the next (up to) 16000 stream bytes to the sync state; 0 once they are used up.
    size_t feedChunk() {
        const size_t n = std::min<size_t>(16000, src.total() - src.readOffset);
        if (n == 0) return 0;
        char* buf = ogg_sync_buffer(&sync, static_cast<long>(n));
        if (!buf) return 0;
        src.copy(reinterpret_cast<uint8_t*>(buf), n);
        ogg_sync_wrote(&sync, static_cast<long>(n));
        return n;
    }

    // Finds the next page with a valid CRC, feeding more bytes as needed.
    bool nextPage() {
        for (;;) {
            const long r = ogg_sync_pageseek(&sync, &page);
            if (r > 0) return true;
            if (r == 0 && feedChunk() == 0) return false;
        }
    }
};

// Decodes into `out` and returns the number of bytes written (whole frames).
size_t decodeStream(VorbisContext& ctx, int16_t* out, size_t outBytes) {
    ctx.feedChunk();
    if (!ctx.nextPage()) return 0;
    ogg_stream_init(&ctx.stream, ogg_page_serialno(&ctx.page));
    ctx.streamInit = true;

    // The identification header must be the first packet of the first page.
    if (ogg_stream_pagein(&ctx.stream, &ctx.page) < 0) return 0;
    if (ogg_stream_packetout(&ctx.stream, &ctx.packet) != 1) return 0;
    if (vorbis_synthesis_headerin(&ctx.info, &ctx.comment, &ctx.packet) < 0) return 0;

    // Comment and setup headers, looked for from the second page on. A rejected one does not
    // stop the walk, but audio needs all three: libvorbis takes the setup header only after the
    // comment header, and an unset-up codec must never reach vorbis_synthesis_init.
    bool allHeaders = true;
    for (int h = 1; h < 3;) {
        if (!ctx.nextPage()) return 0;
        ogg_stream_pagein(&ctx.stream, &ctx.page);
        while (h < 3) {
            const int r = ogg_stream_packetout(&ctx.stream, &ctx.packet);
            if (r == 0) break;
            if (r < 0) return 0;
            if (vorbis_synthesis_headerin(&ctx.info, &ctx.comment, &ctx.packet) != 0) allHeaders = false;
            ++h;
        }
    }
    // Without all headers every audio packet would be refused and nothing written; ending here
    // gives the same silent buffer without touching half-built codec state.
    const int channels = ctx.info.channels;
    if (!allHeaders || channels <= 0) return 0;
    if (vorbis_synthesis_init(&ctx.dsp, &ctx.info) != 0) return 0;
    vorbis_block_init(&ctx.dsp, &ctx.block);

    size_t framesLeft = outBytes / (2 * static_cast<size_t>(channels));
    if (framesLeft == 0) return 0;
    int16_t* pos = out;
    for (;;) {
        float** pcm = nullptr;
        const int n = vorbis_synthesis_pcmout(&ctx.dsp, &pcm);
        if (n > 0) {
            const size_t m = std::min(static_cast<size_t>(n), framesLeft);
            for (size_t i = 0; i < m; ++i)
                for (int c = 0; c < channels; ++c) *pos++ = vorbisFloatToPcm16(pcm[c][i]);
            vorbis_synthesis_read(&ctx.dsp, static_cast<int>(m));
            framesLeft -= m;
            if (framesLeft == 0) break;
        }
        int r;
        while ((r = ogg_stream_packetout(&ctx.stream, &ctx.packet)) < 0) {
            // A gap in the stream: take the packet after it.
        }
        if (r == 1) {
            if (vorbis_synthesis(&ctx.block, &ctx.packet) == 0) vorbis_synthesis_blockin(&ctx.dsp, &ctx.block);
        } else {
            if (!ctx.nextPage()) break;
            ogg_stream_pagein(&ctx.stream, &ctx.page);
        }
    }
    return static_cast<size_t>(pos - out) * sizeof(int16_t);
}

}  // namespace

void decodeVorbisSample(const uint8_t* header, size_t headerSize, const uint8_t* stored, size_t storedSize,
                        int16_t* out, size_t outBytes) {
    if (header == nullptr) headerSize = 0;
    if (stored == nullptr) storedSize = 0;
    size_t written = 0;
    {
        VorbisContext ctx(StreamSource{{header, stored}, {headerSize, storedSize}});
        written = decodeStream(ctx, out, outBytes);
    }
    // Frames the stream did not supply are silence.
    if (outBytes > written) std::memset(reinterpret_cast<uint8_t*>(out) + written, 0, outBytes - written);
}

}  // namespace deqaz
