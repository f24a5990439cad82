#include "support/xmp_compare.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace deqaz::test {

XmpModule::XmpModule() : ctx_(xmp_create_context()) {}

XmpModule::~XmpModule() {
    if (loaded_) xmp_release_module(ctx_);
    xmp_free_context(ctx_);
}

int XmpModule::load(const std::vector<uint8_t>& bytes) {
    if (loaded_) {
        xmp_release_module(ctx_);
        loaded_ = false;
    }
    const int rc = xmp_load_module_from_memory(ctx_, bytes.data(), static_cast<long>(bytes.size()));
    if (rc != 0) return rc;
    loaded_ = true;
    xmp_get_module_info(ctx_, &info_);
    return 0;
}

std::string XmpModule::comment() const { return info_.comment ? std::string(info_.comment) : std::string(); }

xmp_event XmpModule::event(int pattern, int row, int channel) const {
    xmp_event none{};
    const xmp_module& m = mod();
    if (pattern < 0 || pattern >= m.pat || channel < 0 || channel >= m.chn) return none;
    const xmp_pattern* p = m.xxp[pattern];
    if (!p || row < 0 || row >= p->rows) return none;
    const int t = p->index[channel];
    if (t < 0 || t >= m.trk || !m.xxt[t] || row >= m.xxt[t]->rows) return none;
    return m.xxt[t]->event[row];
}

int XmpModule::patternRows(int pattern) const {
    const xmp_module& m = mod();
    if (pattern < 0 || pattern >= m.pat || !m.xxp[pattern]) return 0;
    return m.xxp[pattern]->rows;
}

std::vector<int16_t> XmpModule::samplePcm(int sample, int channel) const {
    std::vector<int16_t> pcm;
    const xmp_module& m = mod();
    if (sample < 0 || sample >= m.smp) return pcm;
    const xmp_sample& s = m.xxs[sample];
    if (!s.data || s.len <= 0) return pcm;
    const size_t frames = static_cast<size_t>(s.len);
    const size_t first = frames * static_cast<size_t>(channel);
    pcm.resize(frames);
    if (s.flg & XMP_SAMPLE_16BIT) {
        for (size_t i = 0; i < frames; ++i) {
            int16_t v;
            std::memcpy(&v, s.data + 2 * (first + i), sizeof v);
            pcm[i] = v;
        }
    } else {
        for (size_t i = 0; i < frames; ++i) pcm[i] = static_cast<int16_t>(static_cast<int8_t>(s.data[first + i]) * 256);
    }
    return pcm;
}

int XmpModule::sampleForKey(int instrument, int key) const {
    const xmp_module& m = mod();
    if (instrument < 0 || instrument >= m.ins || key < 0 || key >= XMP_MAX_KEYS) return -1;
    const xmp_instrument& ins = m.xxi[instrument];
    const int sub = ins.map[key].ins;
    if (sub == 0xFF || sub >= ins.nsm || !ins.sub) return -1;
    return ins.sub[sub].sid;
}

std::vector<int16_t> pcmOf(const SampleRecord& sample, int channel) {
    const HeapArray<int16_t>& buffer = sample.pcm[channel];
    return std::vector<int16_t>(buffer.begin(), buffer.end());
}

void expectEvents(const XmpModule& x, const std::vector<XmpCell>& cells) {
    for (const XmpCell& c : cells) {
        const xmp_event e = x.event(c.pattern, c.row, c.channel);
        EXPECT_EQ((std::vector<int>{e.note, e.ins, e.vol, e.fxt, e.fxp, e.f2t, e.f2p}),
                  (std::vector<int>{c.note, c.ins, c.vol, c.fxt, c.fxp, c.f2t, c.f2p}))
            << "pattern " << c.pattern << " row " << c.row << " channel " << c.channel;
    }
}

void expectSample(const XmpModule& x, int i, const SampleRecord& s) { expectSample(x, i, s, pcmOf(s)); }

void expectSample(const XmpModule& x, int i, const SampleRecord& s, const std::vector<int16_t>& pcm) {
    ASSERT_LT(i, x.mod().smp);
    const xmp_sample& xs = x.mod().xxs[i];
    EXPECT_EQ(xs.len, static_cast<int>(s.length)) << "sample " << i;
    EXPECT_EQ((xs.flg & XMP_SAMPLE_16BIT) != 0, (s.flags & SF_16BIT) != 0) << "sample " << i;
    EXPECT_EQ((xs.flg & XMP_SAMPLE_LOOP) != 0, (s.flags & SF_LOOP) != 0) << "sample " << i;
    size_t compared = s.length;
    if (s.flags & SF_LOOP) {
        EXPECT_EQ(xs.lps, static_cast<int>(s.loopStart)) << "sample " << i;
        EXPECT_EQ(xs.lpe, static_cast<int>(s.loopEnd)) << "sample " << i;
        compared = s.loopEnd;
    }
    std::vector<int16_t> got = x.samplePcm(i), want = pcm;
    got.resize(std::min(got.size(), compared));
    want.resize(std::min(want.size(), compared));
    EXPECT_TRUE(got == want) << "sample data " << i;
}

}  // namespace deqaz::test
