#pragma once
// The in-memory tracker module: one SongHeader owning strings, order list, pattern tables, tracks,
// instrument and sample records, the extra chunk slots and each sample's decoded PCM.
//
// The three records have a fixed stored layout in the QAZ body (422, 826 and 41 bytes,
// little-endian, unpadded). They are held here as natural fields and converted with
// parse*/store* functions; every stored byte has a field, so nothing is lost either way.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/heap_array.hpp"

namespace deqaz {

// Song flags.
inline constexpr uint32_t SH_LINEAR_SLIDES = 0x00000001;
inline constexpr uint32_t SH_ORIGIN_S3M = 0x00000002;
inline constexpr uint32_t SH_S3M_ST300_VOLSLIDES = 0x00000004;
inline constexpr uint32_t SH_ORIGIN_MTM = 0x00000008;
inline constexpr uint32_t SH_S3M_AMIGA_LIMITS = 0x00000010;
inline constexpr uint32_t SH_ORIGIN_MOD = 0x00000080;
inline constexpr uint32_t SH_ORIGIN_IT = 0x00000100;
inline constexpr uint32_t SH_IT_INSTRUMENTS = 0x00000200;
inline constexpr uint32_t SH_IT_NO_COMPAT_GXX = 0x00000400;
inline constexpr uint32_t SH_IT_NO_OLD_EFFECTS = 0x00000800;
inline constexpr uint32_t SH_XM_ALT_TRACKER_NAME = 0x00010000;
inline constexpr uint32_t SH_EXTRA_CHUNKS = 0x00100000;
inline constexpr uint32_t SH_IT_FLAG_1000 = 0x00200000;

// Sample flags.
inline constexpr uint16_t SF_16BIT = 0x0001;
inline constexpr uint16_t SF_LOOP = 0x0010;
inline constexpr uint16_t SF_PINGPONG = 0x0020;
inline constexpr uint16_t SF_SUSTAIN = 0x0100;
inline constexpr uint16_t SF_SUSTAIN_PINGPONG = 0x0200;
inline constexpr uint16_t SF_STEREO = 0x0400;
inline constexpr uint16_t SF_COMPRESSED = 0x1000;
inline constexpr uint16_t SF_DELTA = 0x2000;
inline constexpr uint16_t SF_PREDICT = 0x4000;
inline constexpr uint16_t SF_CODING_MASK = 0xF000;  // any of these: the stored data is coded

inline constexpr size_t SONG_HEADER_STORED_SIZE = 422;
inline constexpr size_t INSTRUMENT_STORED_SIZE = 826;
inline constexpr size_t SAMPLE_STORED_SIZE = 41;
inline constexpr size_t ENVELOPE_STORED_SIZE = 106;
inline constexpr int MAX_CHUNK_SLOTS = 20;

enum class Origin { IT, S3M, MOD, MTM, XM };

// The original format, from the first origin flag set in the order IT, S3M, MOD, MTM; none is XM.
Origin originOf(uint32_t songFlags);
// "it", "s3m", "mod", "mtm" or "xm".
const char* originExtension(Origin origin);

struct SongHeader;

struct EnvelopePoint {
    uint16_t tick = 0;
    uint16_t value = 0;
    bool operator==(const EnvelopePoint&) const = default;
};

struct Envelope {
    uint8_t flags = 0;  // 0x01 on, 0x02 sustain loop, 0x04 loop, 0x10 filter, 0x20 carry
    uint8_t pointCount = 0;
    uint8_t sustainStart = 0;
    uint8_t sustainEnd = 0;
    uint8_t loopStart = 0;
    uint8_t loopEnd = 0;
    std::array<EnvelopePoint, 25> points{};
    bool operator==(const Envelope&) const = default;
};

struct NoteMapEntry {
    uint16_t note = 0;
    uint16_t sample = 0xFFFF;  // 0-based sample index, 0xFFFF for none
    bool operator==(const NoteMapEntry&) const = default;
};

struct InstrumentRecord {
    // Stored part.
    uint32_t flags = 0;  // 0x1 XM MIDI enable, 0x2 XM mute
    std::array<NoteMapEntry, 120> noteMap{};
    Envelope volumeEnvelope;
    Envelope panningEnvelope;
    Envelope pitchEnvelope;
    uint8_t vibratoType = 0;
    uint8_t vibratoSweep = 0;
    uint8_t vibratoDepth = 0;
    uint8_t vibratoRate = 0;
    uint16_t fadeout = 0;
    uint8_t midiChannel = 0;
    uint8_t midiBank = 0;
    uint8_t midiProgram = 0;
    uint8_t midiBendRange = 0;
    uint8_t globalVolume = 0;
    int16_t pan = -1;
    uint8_t newNoteAction = 0;
    uint8_t pitchPanSeparation = 0;
    uint8_t pitchPanCentre = 0;
    uint8_t duplicateCheckType = 0;
    uint8_t duplicateCheckAction = 0;
    uint16_t randomVolume = 0;
    uint16_t randomPan = 0;
    uint8_t filterCutoff = 0;
    uint8_t filterResonance = 0;
    // Added in memory; an empty string stands for a name that is absent.
    std::string name;
    std::string fileName;

    bool operator==(const InstrumentRecord&) const = default;
};

struct SampleRecord {
    // Stored part.
    uint32_t frequency = 0;  // IT/S3M: Hz at middle C; XM/MOD/MTM: first byte is finetune + 128
    int8_t relativeNote = 0;
    uint8_t volume = 0;
    int16_t pan = -1;
    uint32_t length = 0;  // frames per channel
    uint32_t loopStart = 0;
    uint32_t loopEnd = 0;  // exclusive
    uint16_t flags = 0;
    uint8_t vibratoType = 0;
    uint8_t vibratoSweep = 0;
    uint8_t vibratoDepth = 0;
    uint8_t vibratoSpeed = 0;
    uint8_t globalVolume = 0;  // IT: sample global volume; XM: 1-based owning instrument
    uint32_t sustainStart = 0;
    uint32_t sustainEnd = 0;
    int32_t storedSize = 0;  // coded bytes; 0 raw; negative: copy of the sample that many before
    uint16_t codecParam = 0;
    // Added in memory.
    int16_t headerSource = 0;  // shared Vorbis headers: relative index of the source sample
    uint32_t dataOffset = 0;   // file offset of the stored data
    std::string name;
    std::string fileName;
    std::array<HeapArray<int16_t>, 2> pcm;  // left (or only) and right channel, `length` values

    bool isCoded() const { return (flags & SF_CODING_MASK) != 0; }
    // Bytes a raw sample occupies in the file.
    uint64_t rawStoredBytes() const {
        return static_cast<uint64_t>(length) << (((flags & SF_16BIT) ? 1 : 0) + ((flags & SF_STEREO) ? 1 : 0));
    }
};

struct ChunkSlot {
    uint32_t size = 0;
    HeapArray<uint8_t> data;  // empty slot: no data
    bool present = false;     // a slot may hold data of size 0
};

// A track: run-length groups ending with a zero byte. Its stored length bounds every walk.
using Track = HeapArray<uint8_t>;

struct SongHeader {
    // Stored part.
    uint8_t channels = 0;
    uint16_t orderCount = 0;
    uint16_t restartPos = 0;
    uint16_t patternCount = 0;
    uint16_t trackCount = 0;
    uint16_t instrumentCount = 0;
    uint16_t sampleCount = 0;
    uint8_t initialSpeed = 0;
    uint8_t initialTempo = 0;
    uint32_t flags = 0;
    uint8_t globalVolume = 0;
    uint8_t separation = 0;
    int8_t mixVolume = 0;
    std::array<uint8_t, 64> channelVolume{};
    std::array<uint8_t, 64> channelPan{};
    std::array<uint8_t, 16> sfxMacro{};
    std::array<uint16_t, 128> zxxMacro{};
    // Added in memory.
    std::string name;
    std::string message;
    std::vector<InstrumentRecord> instruments;  // instrumentCount
    std::vector<SampleRecord> samples;          // sampleCount
    HeapArray<uint16_t> patternTracks;          // patternCount * channels, pattern-major
    HeapArray<uint16_t> patternRows;            // patternCount
    std::vector<Track> tracks;                  // trackCount
    HeapArray<uint8_t> orders;                  // orderCount
    bool hasOrders = false;                     // an order list of 0 entries still counts
    std::array<ChunkSlot, MAX_CHUNK_SLOTS> fxSlots;
    HeapArray<uint8_t> channelFx;  // channels * 4 bytes, or empty

    Origin origin() const { return originOf(flags); }
    uint16_t trackOf(unsigned pattern, unsigned channel) const {
        return patternTracks[static_cast<size_t>(pattern) * channels + channel];
    }
};

// Stored-part conversions. `p` points at exactly the stored size.
void parseSongHeader(const uint8_t* p, SongHeader& song);
void storeSongHeader(const SongHeader& song, uint8_t* p);
void parseInstrument(const uint8_t* p, InstrumentRecord& ins);
void storeInstrument(const InstrumentRecord& ins, uint8_t* p);
void parseSample(const uint8_t* p, SampleRecord& smp);
void storeSample(const SampleRecord& smp, uint8_t* p);

}  // namespace deqaz
