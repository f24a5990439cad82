#pragma once
// Loading a written module with libxmp, from memory, to check it the way a player reads it:
// channels, orders, pattern events, instruments, samples and their data.
#include <xmp.h>

#include <cstdint>
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
    bool loaded() const { return loaded_; }

    const xmp_module& mod() const { return *info_.mod; }
    // The song message as libxmp keeps it, or "" without one.
    std::string comment() const;

    // The event at pattern/row/channel; an all-zero event outside the module's patterns.
    xmp_event event(int pattern, int row, int channel) const;
    int patternRows(int pattern) const;

    // A sample's data as 16-bit values (8-bit points scaled by 256), `frames` values of the
    // given channel (channel 1 of a stereo sample follows channel 0 in libxmp's buffer).
    std::vector<int16_t> samplePcm(int sample, int channel = 0) const;
    // The libxmp sample that an instrument plays for a key (0-based), or -1.
    int sampleForKey(int instrument, int key) const;

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

// libxmp holds sample i with the module sample's length, loop and channel-1 PCM. libxmp rewrites
// the frames after a loop's end for its interpolation, so a looped sample is compared up to there.
void expectSample(const XmpModule& x, int i, const SampleRecord& s);
// The same against PCM taken before writing (the S3M and MTM writers make it unsigned in place).
void expectSample(const XmpModule& x, int i, const SampleRecord& s, const std::vector<int16_t>& pcm);

}  // namespace deqaz::test
