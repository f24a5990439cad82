#include "readers/module_reader.hpp"

#include <algorithm>
#include <cstring>
#include <span>

#include "common/endian.hpp"

namespace deqaz {

void PatternBuilder::beginPattern(unsigned rows) {
    if (open_) flushPattern();
    rows_ = rows;
    // Cells keep their allocations from pattern to pattern; emptying them is all a new one needs.
    grid_.resize(static_cast<size_t>(rows) * channels_);
    for (TrackRow& row : grid_) row.clear();
    open_ = true;
}

// The grid is held channel by channel, so each channel's rows are the track's rows as they stand.
TrackRow& PatternBuilder::cell(unsigned row, unsigned channel) { return grid_[static_cast<size_t>(channel) * rows_ + row]; }

void PatternBuilder::flushPattern() {
    for (unsigned c = 0; c < channels_; ++c) {
        std::vector<uint8_t> bytes = encodeTrack(std::span<const TrackRow>(grid_).subspan(static_cast<size_t>(c) * rows_, rows_));
        auto it = lookup_.find(bytes);
        if (it == lookup_.end()) {
            const auto index = static_cast<uint16_t>(tracks_.size() < 0xFFFF ? tracks_.size() : 0xFFFF);
            it = lookup_.emplace(bytes, index).first;
            tracks_.push_back(std::move(bytes));
        }
        patternTracks_.push_back(it->second);
    }
    patternRows_.push_back(static_cast<uint16_t>(rows_));
    open_ = false;
}

bool PatternBuilder::finish(SongHeader& song) {
    if (open_) flushPattern();
    if (tracks_.size() > 0xFFFF) return false;
    song.trackCount = static_cast<uint16_t>(tracks_.size());
    song.patternCount = static_cast<uint16_t>(patternRows_.size());
    song.tracks.clear();
    song.tracks.resize(tracks_.size());
    for (size_t t = 0; t < tracks_.size(); ++t)
        if (!song.tracks[t].dupBuffer(tracks_[t].data(), tracks_[t].size())) return false;
    if (!song.patternRows.dupBuffer(patternRows_.data(), patternRows_.size())) return false;
    if (!song.patternTracks.dupBuffer(patternTracks_.data(), patternTracks_.size())) return false;
    return true;
}

uint8_t ByteReader::u8() {
    if (!has(1)) {
        overrun_ = true;
        pos_ = size_;
        return 0;
    }
    return data_[pos_++];
}

uint16_t ByteReader::u16() {
    uint8_t b[2];
    bytes(b, 2);
    return rd16le(b);
}

uint32_t ByteReader::u32() {
    uint8_t b[4];
    bytes(b, 4);
    return rd32le(b);
}

uint16_t ByteReader::u16be() {
    uint8_t b[2];
    bytes(b, 2);
    return rd16be(b);
}

void ByteReader::bytes(void* dest, size_t count) {
    std::memset(dest, 0, count);
    if (!has(count)) {
        overrun_ = true;
        if (pos_ < size_) std::memcpy(dest, data_ + pos_, size_ - pos_);
        pos_ = size_;
        return;
    }
    if (count) std::memcpy(dest, data_ + pos_, count);
    pos_ += count;
}

std::string ByteReader::text(size_t width) {
    std::string s(width, '\0');
    bytes(s.data(), width);
    s.resize(std::strlen(s.c_str()));
    return s;
}

void ReadWarnings::add(const std::string& text, unsigned times) {
    auto it = index_.find(text);
    if (it == index_.end()) {
        index_.emplace(text, items_.size());
        items_.emplace_back(text, times);
    } else {
        items_[it->second].second += times;
    }
}

ReadResult ReadWarnings::result(std::unique_ptr<SongHeader> song) {
    ReadResult result;
    result.song = std::move(song);
    for (auto& [text, times] : items_)
        result.warnings.push_back(times > 1 ? text + " (" + std::to_string(times) + " times)" : std::move(text));
    items_.clear();
    index_.clear();
    return result;
}

std::unique_ptr<SongHeader> newSong(uint32_t flags, unsigned channels) {
    auto song = std::make_unique<SongHeader>();
    song->flags = flags;
    song->channels = static_cast<uint8_t>(channels);
    song->initialSpeed = 6;
    song->initialTempo = 125;
    song->globalVolume = 64;
    song->channelVolume.fill(64);
    return song;
}

bool fitLoops(SampleRecord& s) {
    if (s.length == 0) return false;
    const bool cut = s.loopEnd > s.length || s.sustainEnd > s.length;
    if (s.loopEnd > s.length) s.loopEnd = s.length;
    if (s.loopStart >= s.loopEnd) s.flags &= static_cast<uint16_t>(~(SF_LOOP | SF_PINGPONG));
    if (s.sustainEnd > s.length) s.sustainEnd = s.length;
    if (s.sustainStart >= s.sustainEnd) s.flags &= static_cast<uint16_t>(~(SF_SUSTAIN | SF_SUSTAIN_PINGPONG));
    return cut;
}

bool readRawSample(const uint8_t* data, size_t size, size_t offset, const RawPcmLayout& layout, SampleRecord& smp,
                   bool& truncated) {
    const size_t bytesPerPoint = layout.sixteenBit ? 2 : 1;
    const unsigned channels = layout.stereo ? 2 : 1;
    const size_t available = offset < size ? size - offset : 0;
    size_t frames = smp.length;
    if (frames > available / bytesPerPoint) {
        if (!layout.keepLength) frames = available / bytesPerPoint;
        truncated = true;
    }
    if (layout.stereo && static_cast<uint64_t>(smp.length) * 2 * bytesPerPoint > available) truncated = true;
    const size_t channelBytes = static_cast<size_t>(smp.length) * bytesPerPoint;  // stride as declared
    smp.length = static_cast<uint32_t>(frames);
    smp.pcm[0].reset();
    smp.pcm[1].reset();
    if (frames == 0) return true;

    const uint16_t flip = layout.isSigned ? 0 : 0x8000;
    for (unsigned c = 0; c < channels; ++c) {
        HeapArray<int16_t>& pcm = smp.pcm[c];
        if (!pcm.allocate(frames)) return false;
        const size_t start = offset + c * channelBytes;
        const size_t present = start < size ? std::min(frames, (size - start) / bytesPerPoint) : 0;
        uint16_t previous = 0;
        for (size_t i = 0; i < present; ++i) {
            const uint8_t* p = data + start + i * bytesPerPoint;
            uint16_t v;
            if (!layout.sixteenBit)
                v = static_cast<uint16_t>(p[0] << 8);
            else
                v = layout.bigEndian ? rd16be(p) : rd16le(p);
            if (layout.delta) {
                v = static_cast<uint16_t>(v + previous);
                previous = v;
            }
            pcm[i] = static_cast<int16_t>(v ^ flip);
        }
        std::fill(pcm.begin() + present, pcm.end(), int16_t{0});
    }
    return true;
}

void decodeAdpcm4(const uint8_t* table, size_t points, int16_t* out) {
    uint8_t value = 0;
    for (size_t i = 0; i < points; ++i) {
        const uint8_t b = table[16 + i / 2];
        value = static_cast<uint8_t>(value + table[(i & 1) ? b >> 4 : b & 0x0F]);
        out[i] = static_cast<int16_t>(static_cast<uint16_t>(value) << 8);
    }
}

bool readAdpcmSample(const uint8_t* data, size_t size, size_t offset, SampleRecord& smp, bool& cut) {
    const size_t available = offset < size ? size - offset : 0;
    const uint64_t frames = available < ADPCM_TABLE ? 0 : std::min<uint64_t>(smp.length, uint64_t{available - ADPCM_TABLE} * 2);
    cut |= frames < smp.length;
    smp.length = static_cast<uint32_t>(frames);
    if (frames == 0) return true;
    if (!smp.pcm[0].allocate(frames)) return false;
    decodeAdpcm4(data + offset, frames, smp.pcm[0].data());
    return true;
}

}  // namespace deqaz
