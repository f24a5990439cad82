#include "samples/decode.hpp"

#include <bit>
#include <cstring>

#include "samples/lossy.hpp"
#include "samples/predict.hpp"

namespace deqaz {

namespace {

// The first `codecParam` bytes of another sample's stored data: the Vorbis header pages that a
// sample with shared headers borrows. Only bytes inside the input are ever borrowed; a source
// outside the sample table, or data reaching past the input, lends what lies within it.
void borrowedHeader(const InputStream& in, const SongHeader& song, size_t index, const uint8_t*& header,
                    size_t& headerSize) {
    header = nullptr;
    headerSize = 0;
    const SampleRecord& smp = song.samples[index];
    int64_t source = static_cast<int64_t>(index) + smp.headerSource;
    if (source < 0 || source >= static_cast<int64_t>(song.samples.size())) return;
    const SampleRecord& src = song.samples[static_cast<size_t>(source)];
    if (src.storedSize < 0 || src.dataOffset >= in.inputSize) return;
    size_t avail = in.inputSize - src.dataOffset;
    header = in.inputData + src.dataOffset;
    headerSize = smp.codecParam < avail ? smp.codecParam : avail;
}

}  // namespace

bool decodeSample(InputStream& in, const SongHeader& song, size_t index, HeapArray<int16_t>& out) {
    const SampleRecord& smp = song.samples[index];
    const bool coded = smp.isCoded();
    const size_t count = static_cast<size_t>(smp.length) * ((coded && (smp.flags & SF_STEREO)) ? 2 : 1);
    if (!out.allocate(count)) return false;
    if (count == 0) return true;
    int16_t* pcm = out.data();

    if (!coded) {
        if (smp.flags & SF_16BIT) {
            // Little-endian signed 16-bit values, read as they stand; a short input leaves the
            // whole buffer cleared but for the bytes present.
            const uint64_t bytes = static_cast<uint64_t>(count) * 2;
            if (bytes > 0xFFFFFFFFu) {
                std::memset(pcm, 0, count * 2);
                uint32_t left = in.remaining();
                if (left) std::memcpy(pcm, in.inputData + in.inputPos, left);
                in.inputPos = in.inputSize;
            } else {
                in.readBytes(pcm, static_cast<uint32_t>(bytes));
            }
            if constexpr (std::endian::native == std::endian::big) {
                for (size_t k = 0; k < count; ++k) {
                    auto u = static_cast<uint16_t>(pcm[k]);
                    pcm[k] = static_cast<int16_t>(static_cast<uint16_t>((u >> 8) | (u << 8)));
                }
            }
        } else {
            // 8-bit points go to the high byte; missing bytes are silence.
            size_t present = in.remaining() < count ? in.remaining() : count;
            const uint8_t* src = in.inputData + in.inputPos;
            for (size_t k = 0; k < present; ++k) pcm[k] = static_cast<int16_t>(static_cast<uint16_t>(src[k] << 8));
            if (present < count) std::memset(pcm + present, 0, (count - present) * sizeof(int16_t));
            in.inputPos += static_cast<uint32_t>(present);
        }
        return true;
    }

    // Coded data: the position moves on by the stored size alone, whatever a decoder consumes.
    const uint8_t* stored = in.inputData + in.inputPos;
    const uint32_t storedSize = static_cast<uint32_t>(smp.storedSize) < in.remaining()
                                    ? static_cast<uint32_t>(smp.storedSize)
                                    : in.remaining();
    in.inputPos += storedSize;
    const size_t outBytes = count * 2;

    if (smp.flags & SF_COMPRESSED) {
        if (storedSize >= 4 && std::memcmp(stored, "OggS", 4) == 0) {
            const uint8_t* header = nullptr;
            size_t headerSize = 0;
            if (smp.flags & SF_PREDICT) borrowedHeader(in, song, index, header, headerSize);
            decodeVorbisSample(header, headerSize, stored, storedSize, pcm, outBytes);
        } else {
            decodeLayer3Sample(stored, storedSize, smp.codecParam, pcm, outBytes);
        }
    } else if (smp.flags & SF_DELTA) {
        if (smp.flags & SF_16BIT)
            unpackDelta16(stored, storedSize, pcm, count);
        else
            unpackDelta8(stored, storedSize, pcm, count);
    } else if (smp.flags & SF_PREDICT) {
        if (smp.flags & SF_16BIT)
            unpackPredict16(stored, storedSize, pcm, count);
        else
            unpackPredict8(stored, storedSize, pcm, count);
    } else {
        // Only the 0x8000 coding bit: no decoder belongs to it; the sample is silence.
        std::memset(pcm, 0, outBytes);
    }
    return true;
}

}  // namespace deqaz
