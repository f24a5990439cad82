#include "container/qaz_writer.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "common/endian.hpp"
#include "container/pack.hpp"
#include "samples/lossy_encode.hpp"
#include "samples/predict.hpp"

namespace deqaz {

namespace {

class ByteSink {
public:
    explicit ByteSink(std::vector<uint8_t>& out) : out_(out) {}
    void u8(uint8_t v) { out_.push_back(v); }
    void u16(uint16_t v) {
        uint8_t b[2];
        wr16le(b, v);
        bytes(b, 2);
    }
    void u32(uint32_t v) {
        uint8_t b[4];
        wr32le(b, v);
        bytes(b, 4);
    }
    void bytes(const uint8_t* p, size_t n) { out_.insert(out_.end(), p, p + n); }
    // Zero-terminated string; an absent (empty) string is the terminator alone.
    void string(const std::string& s) {
        bytes(reinterpret_cast<const uint8_t*>(s.data()), s.size());
        u8(0);
    }

private:
    std::vector<uint8_t>& out_;
};

// Inverse of the loader's conversion for files before version 5 (IT with linear slides):
// stored = 1536 * log2(hz / 8363) - 1408, rounded to the nearest step.
uint32_t encodeOldFrequency(uint32_t hz) {
    if (hz == 0) return static_cast<uint32_t>(-100000);
    double stored = std::round(1536.0 * std::log2(hz / 8363.0)) - 1408.0;
    return static_cast<uint32_t>(static_cast<int32_t>(stored));
}

}  // namespace

std::vector<uint8_t> buildBody(const SongHeader& song, uint8_t version, const std::vector<SampleStorage>& storage,
                               bool encodeFrequency) {
    std::vector<uint8_t> body;
    ByteSink out(body);
    out.string(song.name);
    out.string(song.message);
    uint8_t header[SONG_HEADER_STORED_SIZE];
    storeSongHeader(song, header);
    out.bytes(header, sizeof header);

    for (size_t i = 0; i < song.orderCount; ++i) out.u8(i < song.orders.size() ? song.orders[i] : 0);
    const size_t tableEntries = static_cast<size_t>(song.channels) * song.patternCount;
    for (size_t i = 0; i < tableEntries; ++i) out.u16(i < song.patternTracks.size() ? song.patternTracks[i] : 0);
    for (size_t i = 0; i < song.patternCount; ++i) out.u16(i < song.patternRows.size() ? song.patternRows[i] : 0);
    for (size_t t = 0; t < song.trackCount; ++t) {
        if (t < song.tracks.size()) {
            out.u32(static_cast<uint32_t>(song.tracks[t].size()));
            out.bytes(song.tracks[t].data(), song.tracks[t].size());
        } else {
            out.u32(0);
        }
    }

    uint8_t record[INSTRUMENT_STORED_SIZE];
    for (const InstrumentRecord& ins : song.instruments) {
        out.string(ins.name);
        if (version >= 5) out.string(ins.fileName);
        storeInstrument(ins, record);
        out.bytes(record, INSTRUMENT_STORED_SIZE);
    }

    const bool oldFrequency = encodeFrequency && version < 5 && (song.flags & SH_LINEAR_SLIDES) && (song.flags & SH_ORIGIN_IT);
    for (size_t i = 0; i < song.samples.size(); ++i) {
        const SampleRecord& smp = song.samples[i];
        out.string(smp.name);
        if (version >= 5) out.string(smp.fileName);
        SampleStorage own{smp.storedSize, smp.flags, smp.codecParam, smp.headerSource, {}};
        const SampleStorage& st = i < storage.size() ? storage[i] : own;
        storeSample(smp, record);
        wr32le(record + 35, static_cast<uint32_t>(st.storedSize));
        wr16le(record + 20, st.flags);
        wr16le(record + 39, st.codecParam);
        if (oldFrequency) wr32le(record, encodeOldFrequency(smp.frequency));
        out.bytes(record, SAMPLE_STORED_SIZE);
        if ((st.flags & (SF_COMPRESSED | SF_PREDICT)) == (SF_COMPRESSED | SF_PREDICT))
            out.u16(static_cast<uint16_t>(st.headerSource));
    }

    if (song.flags & SH_EXTRA_CHUNKS) {
        if (!song.channelFx.empty()) {
            out.u8(1);
            for (size_t i = 0; i < static_cast<size_t>(song.channels) * 4; ++i)
                out.u8(i < song.channelFx.size() ? song.channelFx[i] : 0);
        } else {
            out.u8(0);
        }
        for (int k = 0; k < MAX_CHUNK_SLOTS; ++k) {
            const ChunkSlot& slot = song.fxSlots[k];
            if (!slot.present) continue;
            out.u8(static_cast<uint8_t>(k + 1));
            out.u32(static_cast<uint32_t>(slot.data.size()));
            out.bytes(slot.data.data(), slot.data.size());
        }
        out.u8(0);
    }
    return body;
}

std::vector<uint8_t> codeSampleData(const SampleRecord& smp) {
    std::vector<uint8_t> data;
    if (smp.length == 0) return data;
    const int channels = (smp.flags & SF_STEREO) ? 2 : 1;
    const size_t n = smp.length;
    auto value = [&](int c, size_t k) -> int16_t {
        return (smp.pcm[c] && k < smp.pcm[c].size()) ? smp.pcm[c][k] : 0;
    };

    if (!smp.isCoded()) {
        // Raw: the whole left channel, then the whole right one.
        data.reserve(smp.rawStoredBytes());
        for (int c = 0; c < channels; ++c) {
            for (size_t k = 0; k < n; ++k) {
                auto v = static_cast<uint16_t>(value(c, k));
                if (smp.flags & SF_16BIT) {
                    data.push_back(static_cast<uint8_t>(v));
                    data.push_back(static_cast<uint8_t>(v >> 8));
                } else {
                    data.push_back(static_cast<uint8_t>(v >> 8));
                }
            }
        }
        return data;
    }
    if (!(smp.flags & (SF_DELTA | SF_PREDICT)) || (smp.flags & SF_COMPRESSED)) return data;

    // Prediction coding: one stream of all left values then all right values.
    std::vector<int16_t> planar(n * channels);
    for (int c = 0; c < channels; ++c)
        for (size_t k = 0; k < n; ++k) planar[c * n + k] = value(c, k);
    const bool wide = smp.flags & SF_16BIT;
    if (smp.flags & SF_DELTA)
        return wide ? packDelta16(planar.data(), planar.size()) : packDelta8(planar.data(), planar.size());
    return wide ? packPredict16(planar.data(), planar.size()) : packPredict8(planar.data(), planar.size());
}

namespace {

// The label rate of a lossy stream: the sample's own rate where it is one (IT, S3M), otherwise
// the Amiga middle-C rate. Playback takes its rate from the record, never from the stream.
long streamRate(const SampleRecord& smp) {
    return smp.frequency >= 1000 && smp.frequency <= 192000 ? static_cast<long>(smp.frequency) : 8363;
}

std::vector<int16_t> interleaved(const SampleRecord& smp) {
    const int channels = (smp.flags & SF_STEREO) ? 2 : 1;
    std::vector<int16_t> pcm(static_cast<size_t>(smp.length) * channels);
    for (int c = 0; c < channels; ++c)
        for (size_t k = 0; k < smp.length; ++k)
            pcm[k * channels + c] = (smp.pcm[c] && k < smp.pcm[c].size()) ? smp.pcm[c][k] : 0;
    return pcm;
}

struct SharedHeader {
    size_t sample;
    int channels;
    long rate;
    std::vector<uint8_t> bytes;
};

}  // namespace

bool planSampleStorage(const SongHeader& song, const QazWriteOptions& options, std::vector<SampleStorage>& out) {
    out.assign(song.samples.size(), {});
    std::vector<SharedHeader> shared;
    for (size_t i = 0; i < song.samples.size(); ++i) {
        const SampleRecord& smp = song.samples[i];
        SampleStorage& st = out[i];
        st.flags = smp.flags;
        st.codecParam = smp.codecParam;
        st.headerSource = smp.headerSource;
        if (smp.storedSize < 0) {
            st.storedSize = smp.storedSize;  // a copy: no data of its own
            continue;
        }
        if (i < options.codedData.size() && options.codedData[i]) {
            st.data = *options.codedData[i];
            st.storedSize = static_cast<int32_t>(st.data.size());
            continue;
        }
        if (options.lossy != LossyCoding::None && smp.length > 0) {
            const int channels = (smp.flags & SF_STEREO) ? 2 : 1;
            const std::vector<int16_t> pcm = interleaved(smp);
            // A lossy stream that is not smaller than the sample's lossless coding loses sound
            // for nothing (short samples, where the codec's headers and frames dominate): such a
            // sample keeps its own coding.
            std::vector<uint8_t> lossless = options.lossyOnlyWhenSmaller ? codeSampleData(smp) : std::vector<uint8_t>{};
            const size_t losslessBytes = options.lossyOnlyWhenSmaller ? lossless.size() : SIZE_MAX;
            if (options.lossy == LossyCoding::Layer3) {
                Layer3Encoded enc = encodeLayer3(pcm.data(), smp.length, channels, streamRate(smp), options.layer3Bitrate);
                if (!enc.ok || enc.delayBytes > 0xFFFF) return false;
                if (enc.frames.size() < losslessBytes) {
                    st.flags = static_cast<uint16_t>((smp.flags & ~SF_CODING_MASK) | SF_COMPRESSED);
                    st.headerSource = 0;
                    st.data = std::move(enc.frames);
                    st.codecParam = static_cast<uint16_t>(enc.delayBytes);
                    st.storedSize = static_cast<int32_t>(st.data.size());
                    continue;
                }
            } else {
                const long rate = streamRate(smp);
                VorbisEncoded enc = encodeVorbis(pcm.data(), smp.length, channels, rate, options.vorbisQuality);
                if (!enc.ok) return false;
                const SharedHeader* source = nullptr;
                if (options.shareVorbisHeaders) {
                    for (const SharedHeader& h : shared)
                        if (h.channels == channels && h.rate == rate && h.bytes == enc.header) source = &h;
                }
                const bool borrow = source && source->bytes.size() <= 0xFFFF && i - source->sample <= 0x7FFF;
                const size_t lossyBytes = enc.audio.size() + (borrow ? 0 : enc.header.size());
                if (lossyBytes < losslessBytes) {
                    st.flags = static_cast<uint16_t>((smp.flags & ~SF_CODING_MASK) | SF_COMPRESSED);
                    st.headerSource = 0;
                    st.codecParam = 0;
                    if (borrow) {
                        // Borrow the header pages that begin the source sample's stored data.
                        st.flags |= SF_PREDICT;
                        st.headerSource = static_cast<int16_t>(-static_cast<int32_t>(i - source->sample));
                        st.codecParam = static_cast<uint16_t>(source->bytes.size());
                        st.data = std::move(enc.audio);
                    } else {
                        if (options.shareVorbisHeaders) shared.push_back({i, channels, rate, enc.header});
                        st.data = enc.stream();
                    }
                    st.storedSize = static_cast<int32_t>(st.data.size());
                    continue;
                }
            }
            st.data = std::move(lossless);
            st.storedSize = smp.isCoded() ? static_cast<int32_t>(st.data.size()) : 0;
            continue;
        }
        st.data = codeSampleData(smp);
        st.storedSize = smp.isCoded() ? static_cast<int32_t>(st.data.size()) : 0;
    }
    return true;
}

namespace {

// FNV-1a over a sample's layout, length and PCM: equal samples hash alike.
uint64_t dataHash(const SampleRecord& smp) {
    uint64_t h = 14695981039346656037u;
    auto mix = [&](uint64_t v) { h = (h ^ v) * 1099511628211u; };
    mix(smp.flags & (SF_16BIT | SF_STEREO));
    mix(smp.length);
    for (const HeapArray<int16_t>& pcm : smp.pcm)
        for (size_t k = 0; k < pcm.size(); ++k) mix(static_cast<uint16_t>(pcm[k]));
    return h;
}

bool sameData(const SampleRecord& a, const SampleRecord& b) {
    if (a.length != b.length || (a.flags & (SF_16BIT | SF_STEREO)) != (b.flags & (SF_16BIT | SF_STEREO))) return false;
    for (int c = 0; c < 2; ++c)
        if (!std::equal(a.pcm[c].begin(), a.pcm[c].end(), b.pcm[c].begin(), b.pcm[c].end())) return false;
    return true;
}

}  // namespace

void chooseSmallestLossless(SongHeader& song) {
    std::unordered_multimap<uint64_t, size_t> seen;  // samples with data of their own, by hash
    for (size_t i = 0; i < song.samples.size(); ++i) {
        SampleRecord& smp = song.samples[i];
        if (smp.storedSize < 0 || (smp.flags & SF_COMPRESSED) || smp.length == 0) continue;
        const uint64_t hash = dataHash(smp);
        const auto [first, last] = seen.equal_range(hash);
        const auto twin = std::find_if(first, last, [&](const auto& e) { return sameData(song.samples[e.second], smp); });
        if (twin != last) {
            smp.storedSize = -static_cast<int32_t>(i - twin->second);
            continue;
        }
        seen.emplace(hash, i);
        const uint16_t layout = static_cast<uint16_t>(smp.flags & ~SF_CODING_MASK);
        size_t best = SIZE_MAX;
        uint16_t bestFlags = layout;
        for (uint16_t coding : {uint16_t{0}, SF_DELTA, SF_PREDICT}) {
            smp.flags = static_cast<uint16_t>(layout | coding);
            const size_t bytes = codeSampleData(smp).size();
            if (bytes < best) best = bytes, bestFlags = smp.flags;
        }
        smp.flags = bestFlags;
    }
}

std::vector<uint8_t> writeQaz(const SongHeader& song, const QazWriteOptions& options) {
    std::vector<SampleStorage> storage;
    if (!planSampleStorage(song, options, storage)) return {};
    std::vector<uint8_t> sampleData;
    for (const SampleStorage& st : storage) sampleData.insert(sampleData.end(), st.data.begin(), st.data.end());
    return assembleQaz(buildBody(song, options.version, storage), options.version, sampleData);
}

std::vector<uint8_t> assembleQaz(const std::vector<uint8_t>& body, uint8_t version, const std::vector<uint8_t>& sampleData) {
    const std::vector<uint8_t> packed = body.empty() ? std::vector<uint8_t>{} : packBody(body.data(), body.size());
    std::vector<uint8_t> file;
    ByteSink out(file);
    out.bytes(reinterpret_cast<const uint8_t*>("QAZ"), 3);
    out.u8(version);
    out.u32(static_cast<uint32_t>(body.size()));
    if (version >= 5) out.u32(static_cast<uint32_t>(packed.size()));
    out.bytes(packed.data(), packed.size());
    out.bytes(sampleData.data(), sampleData.size());
    return file;
}

}  // namespace deqaz
