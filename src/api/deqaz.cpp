// The C API over the converter: the same steps as the program's run (magic, load, write), with
// every message kept in a context of the call's own and nothing printed.
#include "deqaz/deqaz.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "container/encode_module.hpp"
#include "container/module_info.hpp"
#include "container/loader.hpp"
#include "container/unpack.hpp"
#include "samples/lossy.hpp"
#include "writers/writers.hpp"

using namespace deqaz;

namespace {

// Loads a QAZ file; null with `code` set to the result the caller returns.
std::unique_ptr<SongHeader> load(const void* qaz, size_t qazSize, bool sampleData, int& code, Diagnostics& diag,
                                 const LoadLimits& limits = {}) {
    const auto* bytes = static_cast<const uint8_t*>(qaz);
    code = DEQAZ_NOT_QAZ;
    if (!bytes || qazSize > UINT32_MAX || !hasQazMagic(bytes, qazSize)) return nullptr;
    if (sampleData) initLossyDecoders();
    InputStream in{bytes, static_cast<uint32_t>(qazSize), 0};
    std::unique_ptr<SongHeader> song = loadModule(in, diag, sampleData, limits);
    code = song ? DEQAZ_OK : DEQAZ_DAMAGED;
    return song;
}

// Copies `text` into the string area of an info block and returns where it went.
const char* place(char*& strings, const std::string& text) {
    char* at = strings;
    std::memcpy(at, text.c_str(), text.size() + 1);
    strings += text.size() + 1;
    return at;
}

// A copy of `text` for the caller (null for an empty text); false when memory runs out.
bool handOut(const std::string& text, char** out) {
    *out = nullptr;
    if (text.empty()) return true;
    *out = static_cast<char*>(std::malloc(text.size() + 1));
    if (*out) std::memcpy(*out, text.c_str(), text.size() + 1);
    return *out != nullptr;
}

}  // namespace

extern "C" int deqaz_convert_ex(const void* qaz, size_t qazSize, const deqaz_options* options, deqaz_result* result) {
    if (!result) return DEQAZ_NOT_QAZ;
    *result = deqaz_result{};
    char* printed = nullptr;
    size_t printedSize = 0;
    int code = DEQAZ_DAMAGED;
    std::string notes;
    try {
        // What the program would print goes to a buffer of the call's own.
        Diagnostics diag;
        diag.err = open_memstream(&printed, &printedSize);
        std::unique_ptr<SongHeader> song;
        LoadLimits limits;
        if (options) limits = {options->max_body, options->max_pcm, options->max_cells};
        if (diag.err) song = load(qaz, qazSize, true, code, diag, limits);
        OutputBuffer out;
        if (options && options->max_output) out.setLimit(options->max_output);
        if (song && !writeModule(*song, out, diag, options && (options->flags & DEQAZ_FOR_PLAYERS))) {
            diag.setError("Insufficient memory");
            code = DEQAZ_DAMAGED;
        } else if (song) {
            result->module_size = out.outputSize();
            result->module = out.release();
            std::strcpy(result->ext, originExtension(song->origin()));
        }
        if (code == DEQAZ_NOT_QAZ) diag.setError("This is not a QAZ file!");
        if (code != DEQAZ_OK) diag.say((std::string("error: ") + diag.errorText + "\n").c_str());
        for (const std::string& n : diag.notes) notes += n + "\n";
        if (diag.err) std::fclose(diag.err);
    } catch (const std::bad_alloc&) {
        code = DEQAZ_DAMAGED;
    }
    const std::string text = printed ? std::string(printed, printedSize) : std::string();
    std::free(printed);
    if (!handOut(text, &result->messages) || !handOut(notes, &result->notes)) code = DEQAZ_DAMAGED;
    if (code != DEQAZ_OK) {
        deqaz_free(result->module);
        result->module = nullptr;
        result->module_size = 0;
    }
    return code;
}

extern "C" int deqaz_convert(const void* qaz, size_t qazSize, void** module, size_t* moduleSize, char ext[4]) {
    if (module) *module = nullptr;
    if (moduleSize) *moduleSize = 0;
    if (!module || !moduleSize) return DEQAZ_NOT_QAZ;
    deqaz_result r;
    const int code = deqaz_convert_ex(qaz, qazSize, nullptr, &r);
    deqaz_free(r.messages);
    deqaz_free(r.notes);
    *module = r.module;
    *moduleSize = r.module_size;
    if (ext && code == DEQAZ_OK) std::strcpy(ext, r.ext);
    return code;
}

extern "C" int deqaz_inspect(const void* qaz, size_t qazSize, deqaz_info** info) {
    if (!info) return DEQAZ_NOT_QAZ;
    *info = nullptr;
    try {
        int code;
        Diagnostics diag;
        diag.err = nullptr;  // nothing printed
        const std::unique_ptr<SongHeader> song = load(qaz, qazSize, false, code, diag);
        if (!song) return code;
        const ModuleInfo m = describeModule(*song, static_cast<const uint8_t*>(qaz)[3], static_cast<const uint8_t*>(qaz), qazSize);
        // One block: the info, the sample array, then the strings.
        size_t size = sizeof(deqaz_info) + m.samples.size() * sizeof(deqaz_sample_info) + m.name.size() + 1;
        for (const SampleInfo& s : m.samples) size += s.name.size() + 1;
        auto* block = static_cast<unsigned char*>(std::malloc(size));
        if (!block) return DEQAZ_DAMAGED;
        auto* out = new (block) deqaz_info{};
        auto* samples = reinterpret_cast<deqaz_sample_info*>(block + sizeof(deqaz_info));
        char* strings = reinterpret_cast<char*>(samples + m.samples.size());
        out->version = m.version;
        std::strcpy(out->format, originExtension(m.origin));
        out->name = place(strings, m.name);
        out->channels = static_cast<int>(m.channels);
        out->orders = static_cast<int>(m.orders);
        out->patterns = static_cast<int>(m.patterns);
        out->instruments = static_cast<int>(m.instruments);
        out->sample_count = static_cast<int>(m.samples.size());
        out->samples = samples;
        for (const SampleInfo& s : m.samples)
            new (samples++) deqaz_sample_info{place(strings, s.name), s.coding, s.copyOf, s.bits, s.channels,
                                              s.length, s.storedSize, s.decodedSize};
        *info = out;
        return DEQAZ_OK;
    } catch (const std::bad_alloc&) {
        return DEQAZ_DAMAGED;
    }
}

extern "C" int deqaz_pack(const void* module, size_t moduleSize, const char* coding, int version, void** qaz, size_t* qazSize,
                          char** messages) {
    if (qaz) *qaz = nullptr;
    if (qazSize) *qazSize = 0;
    if (messages) *messages = nullptr;
    if (!qaz || !qazSize || (!module && moduleSize)) return DEQAZ_BAD_OPTIONS;
    try {
        EncodeSettings settings;
        settings.write.version = static_cast<uint8_t>(version == 0 ? 5 : version);
        if ((version != 0 && version != 4 && version != 5) || !parseCoding(coding ? coding : "auto", settings))
            return DEQAZ_BAD_OPTIONS;
        const EncodeResult r = encodeModule(static_cast<const uint8_t*>(module), moduleSize, settings);
        std::string text;
        for (const std::string& w : r.warnings) text += w + "\n";
        if (r.code) text += r.error + "\n";
        if (messages && !text.empty()) {
            *messages = static_cast<char*>(std::malloc(text.size() + 1));
            if (!*messages) return DEQAZ_DAMAGED;
            std::memcpy(*messages, text.c_str(), text.size() + 1);
        }
        if (r.code) return r.code == 2 ? DEQAZ_NOT_MODULE : DEQAZ_DAMAGED;
        void* bytes = std::malloc(r.qaz.size());
        if (!bytes) return DEQAZ_DAMAGED;
        std::memcpy(bytes, r.qaz.data(), r.qaz.size());
        *qaz = bytes;
        *qazSize = r.qaz.size();
        return DEQAZ_OK;
    } catch (const std::bad_alloc&) {
        if (messages) deqaz_free(*messages), *messages = nullptr;
        return DEQAZ_DAMAGED;
    }
}

extern "C" void deqaz_free(void* p) { std::free(p); }

extern "C" const char* deqaz_version(void) { return DEQAZ_VERSION; }
