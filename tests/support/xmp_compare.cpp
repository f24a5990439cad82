#include "support/xmp_compare.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <limits>

#include <sys/wait.h>
#include <unistd.h>

#include "common/endian.hpp"

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

std::vector<int16_t> XmpModule::samplePcm(int sample) const {
    std::vector<int16_t> pcm;
    const xmp_module& m = mod();
    if (sample < 0 || sample >= m.smp) return pcm;
    const xmp_sample& s = m.xxs[sample];
    if (!s.data || s.len <= 0) return pcm;
    const size_t frames = static_cast<size_t>(s.len);
    pcm.resize(frames);
    if (s.flg & XMP_SAMPLE_16BIT) {
        for (size_t i = 0; i < frames; ++i) {
            int16_t v;
            std::memcpy(&v, s.data + 2 * i, sizeof v);
            pcm[i] = v;
        }
    } else {
        for (size_t i = 0; i < frames; ++i) pcm[i] = static_cast<int16_t>(static_cast<int8_t>(s.data[i]) * 256);
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

std::vector<int16_t> XmpModule::render(double maxSeconds) {
    std::vector<int16_t> pcm;
    constexpr int RATE = 44100;
    if (!loaded_ || xmp_start_player(ctx_, RATE, 0) != 0) return pcm;
    const size_t limit = static_cast<size_t>(maxSeconds * RATE) * 2;
    std::vector<int16_t> buffer(8192);
    // With a loop count of 1 libxmp reports the end once the song has played through.
    while (pcm.size() < limit && xmp_play_buffer(ctx_, buffer.data(), static_cast<int>(buffer.size() * 2), 1) == 0)
        pcm.insert(pcm.end(), buffer.begin(), buffer.end());
    xmp_end_player(ctx_);
    pcm.resize(std::min(pcm.size(), limit));
    return pcm;
}

bool renderIsolated(const std::vector<uint8_t>& bytes, double maxSeconds, std::vector<int16_t>& pcm) {
    pcm.clear();
    int fds[2];
    if (pipe(fds) != 0) return false;
    const pid_t child = fork();
    if (child < 0) {
        close(fds[0]);
        close(fds[1]);
        return false;
    }
    if (child == 0) {
        close(fds[0]);
        // glibc's heap-corruption reports from a crashing libxmp are the parent's verdict to make.
        if (std::FILE* null = std::freopen("/dev/null", "w", stderr); !null) _exit(4);
        XmpModule m;
        if (m.load(bytes) != 0) _exit(2);
        const std::vector<int16_t> out = m.render(maxSeconds);
        const char* p = reinterpret_cast<const char*>(out.data());
        size_t left = out.size() * sizeof(int16_t);
        while (left) {
            const ssize_t n = write(fds[1], p, left);
            if (n <= 0) _exit(3);
            p += n;
            left -= static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(fds[1]);
    std::vector<char> data;
    char chunk[65536];
    ssize_t n;
    while ((n = read(fds[0], chunk, sizeof chunk)) > 0) data.insert(data.end(), chunk, chunk + n);
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
    pcm.resize(data.size() / sizeof(int16_t));
    if (!pcm.empty()) std::memcpy(pcm.data(), data.data(), pcm.size() * sizeof(int16_t));
    return true;
}

std::vector<int16_t> pcmOf(const SampleRecord& sample, int channel) {
    const HeapArray<int16_t>& buffer = sample.pcm[channel];
    return std::vector<int16_t>(buffer.begin(), buffer.end());
}

namespace {

// One event as a player acts on it: note and instrument, then the effects of both columns as
// a sorted list, a volume-column volume counting as effect C. Moving a command between the two
// columns (the translation's documented moves) leaves it unchanged.
std::vector<int> eventMeaning(const xmp_event& e) {
    std::vector<int> fx;
    if (e.vol) fx.push_back(0x0C << 8 | (e.vol - 1));
    if (e.fxt || e.fxp) fx.push_back(e.fxt << 8 | e.fxp);
    if (e.f2t || e.f2p) fx.push_back(e.f2t << 8 | e.f2p);
    std::sort(fx.begin(), fx.end());
    fx.insert(fx.begin(), {e.note, e.ins});
    return fx;
}

bool sameEvent(const xmp_event& a, const xmp_event& b) {
    return a.note == b.note && a.ins == b.ins && a.vol == b.vol && a.fxt == b.fxt && a.fxp == b.fxp && a.f2t == b.f2t &&
           a.f2p == b.f2p;
}

}  // namespace

std::set<std::string> xmpDifferences(const XmpModule& src, const XmpModule& out, bool* movedColumns) {
    std::set<std::string> why;
    const xmp_module& a = src.mod();
    const xmp_module& b = out.mod();
    if (a.chn != b.chn) why.insert("channel count");
    for (int c = 0; c < std::min(a.chn, b.chn); ++c) {
        if ((a.xxc[c].flg & XMP_CHANNEL_MUTE) && !(b.xxc[c].flg & XMP_CHANNEL_MUTE) && b.xxc[c].vol == 0)
            why.insert("muted channel written with volume 0");
        else if (a.xxc[c].pan != b.xxc[c].pan || a.xxc[c].vol != b.xxc[c].vol || a.xxc[c].flg != b.xxc[c].flg)
            why.insert("channel settings");
    }
    if (a.len != b.len || !std::equal(a.xxo, a.xxo + a.len, b.xxo)) why.insert("order list");
    if (a.rst != b.rst) why.insert("restart position");
    if (a.spd != b.spd || a.bpm != b.bpm) why.insert("speed/tempo");
    std::set<int> seen;
    for (int i = 0; i < std::min(a.len, b.len); ++i) {
        const int p = a.xxo[i];
        if (p >= a.pat || !seen.insert(p).second) continue;
        if (src.patternRows(p) != out.patternRows(p)) {
            why.insert("pattern rows");
            continue;
        }
        for (int r = 0; r < src.patternRows(p); ++r)
            for (int c = 0; c < std::min(a.chn, b.chn); ++c) {
                const xmp_event ea = src.event(p, r, c);
                const xmp_event eb = out.event(p, r, c);
                if (sameEvent(ea, eb)) continue;
                if (eventMeaning(ea) == eventMeaning(eb)) {
                    if (movedColumns) *movedColumns = true;
                    continue;
                }
                if (ea.note != eb.note) why.insert("notes");
                else if (ea.ins != eb.ins) why.insert("instruments in patterns");
                else why.insert("effects");
            }
    }
    if (a.ins != b.ins) why.insert("instrument count");
    for (int i = 0; i < std::min(a.ins, b.ins); ++i) {
        const xmp_instrument& x = a.xxi[i];
        const xmp_instrument& y = b.xxi[i];
        if (x.nsm != y.nsm) {
            why.insert("samples per instrument");
            continue;
        }
        if (x.rls != y.rls || x.aei.flg != y.aei.flg || x.aei.npt != y.aei.npt || x.pei.flg != y.pei.flg ||
            x.pei.npt != y.pei.npt || !std::equal(x.aei.data, x.aei.data + 2 * std::min(x.aei.npt, 32), y.aei.data) ||
            !std::equal(x.pei.data, x.pei.data + 2 * std::min(x.pei.npt, 32), y.pei.data))
            why.insert("envelopes or fadeout");
        for (int k = 0; k < XMP_MAX_KEYS; ++k)
            if (src.sampleForKey(i, k) != out.sampleForKey(i, k)) {
                why.insert("key map");
                break;
            }
        for (int s = 0; s < x.nsm; ++s) {
            const xmp_subinstrument& u = x.sub[s];
            const xmp_subinstrument& v = y.sub[s];
            if (u.vol != v.vol || u.pan != v.pan || u.xpo != v.xpo || u.fin != v.fin || u.vwf != v.vwf || u.vde != v.vde ||
                u.vra != v.vra || u.vsw != v.vsw || u.sid != v.sid)
                why.insert("sample defaults");
        }
    }
    if (a.smp != b.smp) why.insert("sample count");
    for (int s = 0; s < std::min(a.smp, b.smp); ++s) {
        const xmp_sample& x = a.xxs[s];
        const xmp_sample& y = b.xxs[s];
        if (x.len != y.len) {
            why.insert("sample length");
            continue;
        }
        if (x.flg != y.flg || x.lps != y.lps || x.lpe != y.lpe) why.insert("sample loop");
        const std::vector<int16_t> p = src.samplePcm(s), q = out.samplePcm(s);
        if (p == q) continue;
        // Points that differ only where libxmp left the source at 0, all in the last eight.
        size_t first = p.size(), count = 0, zeros = 0;
        for (size_t k = 0; k < std::min(p.size(), q.size()); ++k)
            if (p[k] != q[k]) first = std::min(first, k), zeros += p[k] == 0, ++count;
        const bool tail = p.size() == q.size() && count && zeros == count && first + 8 >= p.size();
        why.insert(tail ? "libxmp zeroes compressed-sample tails" : "sample data");
    }
    return why;
}

std::string patchForLibxmp(std::vector<uint8_t>& bytes) {
    if (bytes.size() > 32 && std::memcmp(bytes.data(), "MTM", 3) == 0 && bytes[32] == 0) {
        bytes[32] = 64;
        return "MTM beats per track 0 shown to libxmp as 64";
    }
    if (bytes.size() < 0x60 || std::memcmp(bytes.data() + 0x2C, "SCRM", 4) != 0) return "";
    auto u16 = [&](size_t at) { return at + 2 <= bytes.size() ? rd16le(&bytes[at]) : 0; };
    const size_t orders = u16(0x20), samples = u16(0x22);
    unsigned patched = 0;
    for (size_t i = 0; i < samples; ++i) {
        const size_t at = static_cast<size_t>(u16(0x60 + orders + 2 * i)) * 16;
        if (at + 80 > bytes.size() || bytes[at] != 1) continue;
        if (bytes[at + 76] || bytes[at + 77] || bytes[at + 78] || bytes[at + 79]) continue;
        bytes[at] = 0;
        ++patched;
    }
    return patched ? "S3M empty sample slots shown to libxmp as type 0" : "";
}

AudioComparison compareAudio(const std::vector<int16_t>& reference, const std::vector<int16_t>& test) {
    AudioComparison c;
    c.referenceFrames = reference.size() / 2;
    c.testFrames = test.size() / 2;
    c.identical = reference == test;
    double signal = 0, noise = 0;
    for (size_t k = 0; k < std::max(reference.size(), test.size()); ++k) {
        const double r = k < reference.size() ? reference[k] : 0.0;
        const double t = k < test.size() ? test[k] : 0.0;
        signal += r * r;
        noise += (t - r) * (t - r);
    }
    c.snrDb = noise == 0 ? std::numeric_limits<double>::infinity()
              : signal == 0 ? -std::numeric_limits<double>::infinity()
                            : 10.0 * std::log10(signal / noise);
    return c;
}

void expectEvents(const XmpModule& x, const std::vector<XmpCell>& cells) {
    for (const XmpCell& c : cells) {
        const xmp_event e = x.event(c.pattern, c.row, c.channel);
        EXPECT_EQ((std::vector<int>{e.note, e.ins, e.vol, e.fxt, e.fxp, e.f2t, e.f2p}),
                  (std::vector<int>{c.note, c.ins, c.vol, c.fxt, c.fxp, c.f2t, c.f2p}))
            << "pattern " << c.pattern << " row " << c.row << " channel " << c.channel;
    }
}

}  // namespace deqaz::test
