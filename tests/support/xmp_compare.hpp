#pragma once
// Loading a written module with libxmp, from memory, to check it the way a player reads it:
// channels, orders, pattern events, instruments, samples and their data.
#include <xmp.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "container/module.hpp"

namespace deqaz::test {

class XmpModule {
public:
    XmpModule();
    ~XmpModule();
    XmpModule(const XmpModule&) = delete;
    XmpModule& operator=(const XmpModule&) = delete;

    // Loads the module; returns libxmp's result (0 on success, a negative XMP_ERROR_* otherwise).
    int load(const std::vector<uint8_t>& bytes);

    const xmp_module& mod() const { return *info_.mod; }

    // The event at pattern/row/channel; an all-zero event outside the module's patterns.
    xmp_event event(int pattern, int row, int channel) const;
    int patternRows(int pattern) const;

    // A sample's data (its first channel) as 16-bit values, 8-bit points scaled by 256.
    std::vector<int16_t> samplePcm(int sample) const;
    // The libxmp sample that an instrument plays for a key (0-based), or -1.
    int sampleForKey(int instrument, int key) const;

    // Plays the module from the start with libxmp's default mixer (44,100 Hz, 16-bit stereo,
    // interleaved) until the song ends or `maxSeconds` of audio are made.
    std::vector<int16_t> render(double maxSeconds);

private:
    xmp_context ctx_;
    xmp_module_info info_{};
    bool loaded_ = false;
};

// The PCM of one channel of a module sample, as a vector.
std::vector<int16_t> pcmOf(const SampleRecord& sample, int channel = 0);

// An event as libxmp should read it back (notes in libxmp's numbering, effects as its own).
struct XmpCell {
    int pattern, row, channel;
    int note = 0, ins = 0, vol = 0, fxt = 0, fxp = 0, f2t = 0, f2p = 0;
};
void expectEvents(const XmpModule& x, const std::vector<XmpCell>& cells);

// Renders module bytes as XmpModule::render does, in a child process: libxmp 4.5 reads and writes
// out of bounds while playing some damaged modules, which must not take the caller down. False
// when libxmp cannot load the module or the child does not finish cleanly.
bool renderIsolated(const std::vector<uint8_t>& bytes, double maxSeconds, std::vector<int16_t>& pcm);

// The ways libxmp sees `out` differently from `src`, as short categories; empty when identical.
// A command moved between the two columns (the translation's documented moves) is no difference
// and sets *movedColumns. Two differences that are libxmp's own are named apart: "libxmp zeroes
// compressed-sample tails" (its IT 2.14 decoder leaves the last points of a compressed sample
// at 0 where the bit stream still holds them) and "muted channel written with volume 0".
std::set<std::string> xmpDifferences(const XmpModule& src, const XmpModule& out, bool* movedColumns = nullptr);

// Header bytes our writers set as the container's converter defines them, which libxmp 4.5
// alone refuses: MTM "beats per track" 0 (MultiTracker's tracks are always 64 rows, so libxmp
// is shown 64) and S3M empty sample slots typed as sampled instruments without "SCRS" (shown as
// type 0, an empty slot). Patches a copy meant for libxmp; returns what it changed, or "".
std::string patchForLibxmp(std::vector<uint8_t>& bytes);

// Two renders compared: bit-identical, or the signal-to-noise ratio of `test` against
// `reference` over the common length (the shorter render is padded with silence).
struct AudioComparison {
    bool identical = false;
    double snrDb = 0;  // +infinity when identical
    size_t referenceFrames = 0, testFrames = 0;
};
AudioComparison compareAudio(const std::vector<int16_t>& reference, const std::vector<int16_t>& test);

}  // namespace deqaz::test
