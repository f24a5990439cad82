#include "container/loader.hpp"

#include <cmath>
#include <cstring>

#include "container/unpack.hpp"
#include "samples/decode.hpp"

namespace deqaz {

namespace {

constexpr const char* NOT_QAZ = "This is not a QAZ file!";

// Resource bounds. A small file must not make the converter allocate or write gigabytes, yet no
// sound file may be refused. The packed body codes long runs in a few bits, so its size says
// little about the body's; a body up to 64 MiB is always accepted (far beyond the tracks and
// tables of any real module), and beyond that only 4096 bytes per packed byte.
constexpr uint64_t BODY_FLOOR = 64ull << 20;
constexpr uint64_t BODY_PER_PACKED_BYTE = 4096;
// Decoded PCM: raw data is at most twice its stored size and lossless coding needs at least three
// bits a value, so a sound file's PCM stays within a small multiple of the file; lossy streams
// compress further. Allowed: 128 MiB, plus 64 times the file.
constexpr uint64_t PCM_FLOOR = 128ull << 20;
constexpr uint64_t PCM_PER_INPUT_BYTE = 64;
// Pattern cells the writers turn out: rows (MOD, S3M and MTM always write 64) times channels,
// over all patterns. The largest any format can hold is 240 IT patterns of 256 rows by 64
// channels, about 4 Mi cells; beyond four times that the file is not a module. Without this
// bound a few bytes naming 65,535 patterns of 255 channels make gigabytes of empty rows.
constexpr uint64_t PATTERN_CELLS_MAX = 16ull << 20;
constexpr const char* BROKEN = "Something is wrong with this file!";
constexpr const char* NO_MEMORY = "Insufficient memory";

// Files before version 5 store the C5 speed of IT modules with linear slides in a logarithmic
// form: 8363 * 2^((stored + 1408) / 1536). The arithmetic follows the original single-precision
// product exactly; results beyond 32 bits saturate instead of overflowing.
uint32_t convertOldFrequency(uint32_t stored) {
    int32_t sum = static_cast<int32_t>(stored + 1408u);
    float f = static_cast<float>(sum) * 0.0004512677f;
    double hz = std::exp(static_cast<double>(f)) * 8363.0;
    if (!(hz >= 0.0)) return 0;
    if (hz >= 4294967295.0) return 0xFFFFFFFFu;
    return static_cast<uint32_t>(hz);
}

// Reads the body's records into `song`. False when a table cannot be allocated or the pattern
// count is past the cell bound (the caller then fails the load; a short body by itself is not a
// failure: its missing bytes read as zero).
bool readRecords(InputStream& in, SongHeader& song, uint8_t version, uint32_t dataStart, uint64_t maxCells) {
    song.name = in.readString();
    song.message = in.readString();
    uint8_t stored[SONG_HEADER_STORED_SIZE];
    in.readBytes(stored, sizeof stored);
    parseSongHeader(stored, song);

    // Every pattern is written as at least 64 rows: a count past the cell bound fails here,
    // before its tables are allocated.
    if (static_cast<uint64_t>(song.channels) * song.patternCount * 64 > maxCells) return false;
    const size_t tableEntries = static_cast<size_t>(song.channels) * song.patternCount;
    if (!song.patternTracks.allocZeroed(tableEntries) || !song.patternRows.allocZeroed(song.patternCount))
        return false;
    try {
        song.tracks.resize(song.trackCount);
        song.instruments.resize(song.instrumentCount);
        song.samples.resize(song.sampleCount);
    } catch (const std::bad_alloc&) {
        return false;
    }

    if (!in.readBlob(song.orders, song.orderCount)) return false;
    song.hasOrders = true;

    // The pattern tables are little-endian u16 arrays.
    for (size_t i = 0; i < tableEntries; ++i) song.patternTracks[i] = in.readU16();
    for (size_t i = 0; i < song.patternCount; ++i) song.patternRows[i] = in.readU16();

    for (Track& track : song.tracks) {
        uint32_t count = in.readU32();
        // A count past the end of the body keeps only the bytes present: the rest would read as
        // zeros, which the walk takes as the track's end anyway.
        if (count > in.remaining()) count = in.remaining();
        if (!in.readBlob(track, count)) return false;
    }

    uint8_t record[INSTRUMENT_STORED_SIZE];
    for (InstrumentRecord& ins : song.instruments) {
        ins.name = in.readString();
        if (version >= 5) ins.fileName = in.readString();
        in.readBytes(record, INSTRUMENT_STORED_SIZE);
        parseInstrument(record, ins);
    }

    const bool convertFrequency = version < 5 && (song.flags & SH_LINEAR_SLIDES) && (song.flags & SH_ORIGIN_IT);
    uint64_t dataOffset = dataStart;
    for (SampleRecord& smp : song.samples) {
        smp.name = in.readString();
        if (version >= 5) smp.fileName = in.readString();
        in.readBytes(record, SAMPLE_STORED_SIZE);
        parseSample(record, smp);
        if ((smp.flags & (SF_COMPRESSED | SF_PREDICT)) == (SF_COMPRESSED | SF_PREDICT))
            smp.headerSource = static_cast<int16_t>(in.readU16());
        if (convertFrequency) smp.frequency = convertOldFrequency(smp.frequency);
        if (smp.storedSize >= 0) {
            // Offsets past 4 GiB lie past any input we hold; they saturate and read as absent.
            smp.dataOffset = dataOffset > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(dataOffset);
            dataOffset += smp.storedSize > 0 ? static_cast<uint64_t>(smp.storedSize) : smp.rawStoredBytes();
        }
    }

    if (song.flags & SH_EXTRA_CHUNKS) {
        if (!in.atEnd() && in.readU8() != 0) {
            if (!in.readBlob(song.channelFx, static_cast<uint32_t>(song.channels) * 4)) return false;
        }
        while (!in.atEnd()) {
            uint8_t id = in.readU8();
            if (id == 0) break;
            uint32_t count = in.readU32();
            // A chunk running past the end keeps the bytes present; nothing follows it then.
            if (count > in.remaining()) count = in.remaining();
            if (id > MAX_CHUNK_SLOTS) {
                // Identifiers above 20 have no slot: their data is stepped over.
                in.skip(count);
                continue;
            }
            ChunkSlot& slot = song.fxSlots[id - 1];
            if (!slot.data.dupBuffer(in.inputData + in.inputPos, count)) return false;
            slot.size = count;
            slot.present = true;
            in.skip(count);
        }
    }
    return true;
}

enum class DecodeStatus { Ok, NoMemory, Broken };

// Decodes every sample in order; the input position runs through the stored data.
DecodeStatus decodeSamples(InputStream& in, SongHeader& song) {
    for (size_t i = 0; i < song.samples.size(); ++i) {
        SampleRecord& smp = song.samples[i];
        if (smp.length == 0) {
            // An empty sample has no data in a sound file; any it claims is stepped over so the
            // samples after it are read from their own place.
            if (smp.storedSize > 0) in.skip(static_cast<uint32_t>(smp.storedSize));
            continue;
        }
        if (smp.storedSize < 0) {
            // A copy of the PCM of the sample -storedSize records before this one.
            int64_t source = static_cast<int64_t>(i) + smp.storedSize;
            if (source < 0) return DecodeStatus::Broken;
            const SampleRecord& src = song.samples[static_cast<size_t>(source)];
            for (int c = 0; c < 2; ++c) {
                if (!src.pcm[c]) break;
                // A source shorter than the copy gives what it has, then silence.
                if (!smp.pcm[c].allocZeroed(smp.length)) return DecodeStatus::NoMemory;
                size_t n = src.pcm[c].size() < smp.length ? src.pcm[c].size() : smp.length;
                std::memcpy(smp.pcm[c].data(), src.pcm[c].data(), n * sizeof(int16_t));
            }
        } else {
            HeapArray<int16_t> decoded;
            if (!decodeSample(in, song, i, decoded)) return DecodeStatus::NoMemory;
            if (smp.flags & SF_STEREO) {
                if (smp.isCoded()) {
                    if (!smp.pcm[1].allocate(smp.length)) return DecodeStatus::NoMemory;
                    int16_t* v = decoded.data();
                    if (smp.flags & SF_COMPRESSED) {
                        // Interleaved frames: split in place, front to back.
                        for (uint32_t k = 0; k < smp.length; ++k) {
                            smp.pcm[1][k] = v[2 * k + 1];
                            v[k] = v[2 * k];
                        }
                    } else {
                        std::memcpy(smp.pcm[1].data(), v + smp.length, smp.length * sizeof(int16_t));
                    }
                    if (!decoded.shrink(smp.length)) return DecodeStatus::NoMemory;
                    smp.pcm[0] = std::move(decoded);
                } else {
                    smp.pcm[0] = std::move(decoded);
                    // Raw stereo: the right channel follows the whole left one, if any input is left.
                    if (in.atEnd()) continue;
                    if (!decodeSample(in, song, i, smp.pcm[1])) return DecodeStatus::NoMemory;
                }
            } else {
                smp.pcm[0] = std::move(decoded);
            }
        }
        if (smp.loopEnd > smp.length) smp.loopEnd = smp.length;
        if (smp.loopStart >= smp.loopEnd) smp.flags &= static_cast<uint16_t>(~(SF_LOOP | SF_PINGPONG));
        if (smp.sustainEnd > smp.length) smp.sustainEnd = smp.length;
        if (smp.sustainStart >= smp.sustainEnd)
            smp.flags &= static_cast<uint16_t>(~(SF_SUSTAIN | SF_SUSTAIN_PINGPONG));
    }
    return DecodeStatus::Ok;
}

}  // namespace

std::unique_ptr<SongHeader> loadModule(InputStream& in, Diagnostics& diag, bool sampleData, const LoadLimits& limits) {
    const InputStream file = in;
    auto fail = [&](const char* message) {
        in = file;
        diag.setError(message);
        return std::unique_ptr<SongHeader>();
    };

    ContainerHeader header;
    if (!parseContainerHeader(file.inputData, file.inputSize, header)) return fail(NOT_QAZ);

    std::unique_ptr<SongHeader> song;
    try {
        song = std::make_unique<SongHeader>();
    } catch (const std::bad_alloc&) {
        return fail(NO_MEMORY);
    }

    // A body of 0 bytes cannot even hold the song name's terminator.
    if (header.unpackedSize == 0) return fail(BROKEN);
    const uint64_t packedAvail64 = file.inputSize - header.headerLength;
    const bool bodyTooLarge = limits.maxBody ? header.unpackedSize > limits.maxBody
                                             : header.unpackedSize > BODY_FLOOR && header.unpackedSize > packedAvail64 * BODY_PER_PACKED_BYTE;
    if (bodyTooLarge) return fail(BROKEN);
    const uint64_t maxCells = limits.maxCells ? limits.maxCells : PATTERN_CELLS_MAX;
    HeapArray<uint8_t> body;
    // Cleared first, so a body that the packed data does not fill reads as zeros.
    if (!body.allocZeroed(header.unpackedSize)) return fail(BROKEN);

    const uint8_t* packed = file.inputData + header.headerLength;
    const size_t packedAvail = file.inputSize - header.headerLength;
    UnpackResult unpacked = unpackBody(packed, packedAvail, body.data(), header.unpackedSize);
    if (!unpacked.ok) return fail(BROKEN);
    if (header.version >= 5 && unpacked.consumed != header.packedSize) return fail(BROKEN);

    const uint64_t dataStart = static_cast<uint64_t>(header.headerLength) + unpacked.consumed;
    InputStream bodyStream{body.data(), header.unpackedSize, 0};
    bool recordsOk;
    try {
        recordsOk = readRecords(bodyStream, *song, header.version, static_cast<uint32_t>(dataStart), maxCells);
    } catch (const std::bad_alloc&) {
        return fail(NO_MEMORY);
    }
    body.reset();
    if (!recordsOk) return fail(song->hasOrders ? NO_MEMORY : BROKEN);

    uint64_t cells = 0;
    for (size_t p = 0; p < song->patternCount; ++p)
        cells += static_cast<uint64_t>(song->patternRows[p] < 64 ? 64 : song->patternRows[p]) * song->channels;
    if (cells > maxCells) return fail(BROKEN);

    // The PCM every sample would decode to, checked before any of it is allocated.
    uint64_t pcmBytes = 0;
    for (const SampleRecord& smp : song->samples)
        pcmBytes += static_cast<uint64_t>(smp.length) * 2 * ((smp.flags & SF_STEREO) ? 2 : 1);
    if (pcmBytes > (limits.maxPcm ? limits.maxPcm : PCM_FLOOR + PCM_PER_INPUT_BYTE * file.inputSize)) return fail(BROKEN);

    in = file;
    if (!sampleData) return song;
    in.inputPos = static_cast<uint32_t>(dataStart);
    DecodeStatus status = decodeSamples(in, *song);
    if (status != DecodeStatus::Ok) return fail(status == DecodeStatus::NoMemory ? NO_MEMORY : BROKEN);
    in = file;
    return song;
}

}  // namespace deqaz
