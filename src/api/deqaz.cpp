// The C API over the converter: the same steps as the program's run (magic, load, write), with
// every message kept in a context of the call's own and nothing printed.
#include "deqaz/deqaz.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "container/loader.hpp"
#include "container/unpack.hpp"
#include "samples/lossy.hpp"
#include "writers/writers.hpp"

using namespace deqaz;

extern "C" int deqaz_convert(const void* qaz, size_t qazSize, void** module, size_t* moduleSize, char ext[4]) {
    if (module) *module = nullptr;
    if (moduleSize) *moduleSize = 0;
    const auto* bytes = static_cast<const uint8_t*>(qaz);
    if (!bytes || !module || !moduleSize || qazSize > UINT32_MAX || !hasQazMagic(bytes, qazSize)) return DEQAZ_NOT_QAZ;
    try {
        Diagnostics diag;
        diag.err = nullptr;  // a library prints nothing
        initLossyDecoders();
        InputStream in{bytes, static_cast<uint32_t>(qazSize), 0};
        const std::unique_ptr<SongHeader> song = loadModule(in, diag);
        OutputBuffer out;
        if (!song || !writeModule(*song, out, diag)) return DEQAZ_DAMAGED;
        *moduleSize = out.outputSize();
        *module = out.release();
        if (ext) std::strcpy(ext, originExtension(song->origin()));
        return DEQAZ_OK;
    } catch (const std::bad_alloc&) {
        return DEQAZ_DAMAGED;
    }
}

extern "C" void deqaz_free(void* p) { std::free(p); }

extern "C" const char* deqaz_version(void) { return DEQAZ_VERSION; }
