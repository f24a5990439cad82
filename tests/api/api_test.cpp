// The C API: a conversion in memory gives exactly what the deqaz program writes, also on four
// threads at once; what is not a QAZ file, or is damaged, gets the program's exit codes.
#include "deqaz/deqaz.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "common/endian.hpp"
#include "container/qaz_writer.hpp"
#include "support/module_builder.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

struct Converted {
    int result = -1;
    std::string bytes, ext;
};

Converted convert(const std::vector<uint8_t>& qaz) {
    void* module = &module;  // overwritten in every case
    size_t size = 1;
    char ext[4] = "?";
    Converted c{deqaz_convert(qaz.data(), qaz.size(), &module, &size, ext), "", ext};
    if (module) c.bytes.assign(static_cast<const char*>(module), size);
    EXPECT_EQ(module == nullptr, size == 0);
    deqaz_free(module);
    return c;
}

TEST(Api, ConvertsAsTheProgramDoesOnFourThreadsAtOnce) {
    const std::pair<uint32_t, const char*> origins[] = {
        {SH_ORIGIN_IT | SH_IT_INSTRUMENTS, "it"}, {0, "xm"}, {SH_ORIGIN_S3M, "s3m"}, {SH_ORIGIN_MOD, "mod"}, {SH_ORIGIN_MTM, "mtm"}};
    TempDir dir;
    for (auto [flags, ext] : origins) {
        SCOPED_TRACE(ext);
        const std::vector<uint8_t> qaz = writeQaz(makeRichModule(flags));
        dir.put("song.qaz", qaz);
        const ProcessResult program = runProcess({DEQAZ_BINARY, "-s", (dir / "song.qaz").string(), "STDOUT"});
        ASSERT_EQ(program.exitCode, 0);
        std::vector<Converted> results(4);
        std::vector<std::thread> threads;
        for (Converted& r : results) threads.emplace_back([&r, &qaz] { r = convert(qaz); });
        for (std::thread& t : threads) t.join();
        for (const Converted& r : results) {
            EXPECT_EQ(r.result, DEQAZ_OK);
            EXPECT_EQ(r.ext, ext);
            EXPECT_TRUE(r.bytes == program.out);
        }
    }
}

TEST(Api, RefusesWhatIsNotAWholeQazFile) {
    std::vector<uint8_t> qaz = writeQaz(makeRichModule());
    qaz.resize(24);  // the header and the start of the packed body
    for (const auto& [bytes, result] : std::vector<std::pair<std::vector<uint8_t>, int>>{
             {{'Q', 'A', 'Z', 6}, DEQAZ_NOT_QAZ}, {{'Q', 'A', 'Z'}, DEQAZ_NOT_QAZ}, {{'Q', 'A', 'Z', 5}, DEQAZ_DAMAGED}, {qaz, DEQAZ_DAMAGED}})
        EXPECT_EQ(convert(bytes).result, result) << bytes.size();
    void* module = &qaz;
    size_t size = 5;
    EXPECT_EQ(deqaz_convert(nullptr, 4, &module, &size, nullptr), DEQAZ_NOT_QAZ);
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(size, 0u);
    // Missing out-parameters, and sizes past the container's 32-bit offsets, are refused before
    // any byte is read.
    const std::vector<uint8_t> good = writeQaz(makeRichModule());
    deqaz_info* info = nullptr;
    const std::pair<int, int> refused[] = {
        {deqaz_convert(good.data(), good.size(), nullptr, &size, nullptr), DEQAZ_NOT_QAZ},
        {deqaz_convert(good.data(), good.size(), &module, nullptr, nullptr), DEQAZ_NOT_QAZ},
        {deqaz_convert(good.data(), size_t{1} << 32, &module, &size, nullptr), DEQAZ_NOT_QAZ},
        {deqaz_convert_ex(good.data(), good.size(), nullptr, nullptr), DEQAZ_NOT_QAZ},
        {deqaz_inspect(good.data(), good.size(), nullptr), DEQAZ_NOT_QAZ},
        {deqaz_inspect(good.data(), size_t{1} << 32, &info), DEQAZ_NOT_QAZ},
        {deqaz_pack(nullptr, 5, nullptr, 0, &module, &size, nullptr), DEQAZ_BAD_OPTIONS},
        {deqaz_pack(good.data(), good.size(), nullptr, 0, nullptr, &size, nullptr), DEQAZ_BAD_OPTIONS}};
    for (auto [result, expected] : refused) EXPECT_EQ(result, expected);
    EXPECT_EQ(info, nullptr);
}


// The variant with options: exact bytes by default, the two header bytes players need on request
// (each fix noted), an output limit, and the messages the program would print.
TEST(Api, ConvertsWithOptionsAndReportsMessages) {
    for (auto [flags, headerByte, fix] : {std::tuple{SH_ORIGIN_MTM, 32, "MTM beats per track"}, {SH_ORIGIN_S3M, -1, "S3M empty sample"}}) {
        const std::vector<uint8_t> qaz = writeQaz(makeRichModule(flags));
        const Converted exact = convert(qaz);
        deqaz_options options{DEQAZ_FOR_PLAYERS, 0, 0, 0, 0};
        deqaz_result r;
        ASSERT_EQ(deqaz_convert_ex(qaz.data(), qaz.size(), &options, &r), DEQAZ_OK);
        const std::string bytes(static_cast<const char*>(r.module), r.module_size);
        ASSERT_EQ(bytes.size(), exact.bytes.size());
        std::vector<size_t> changed;
        for (size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != exact.bytes[i]) changed.push_back(i);
        ASSERT_EQ(changed.size(), 1u) << fix;
        if (headerByte >= 0) {
            EXPECT_EQ(changed[0], static_cast<size_t>(headerByte));
        }
        EXPECT_EQ(bytes[changed[0]], headerByte >= 0 ? 64 : 0);
        EXPECT_NE(std::string(r.notes ? r.notes : "").find(fix), std::string::npos) << (r.notes ? r.notes : "");
        EXPECT_STREQ(r.ext, flags == SH_ORIGIN_MTM ? "mtm" : "s3m");
        deqaz_free(r.module), deqaz_free(r.messages), deqaz_free(r.notes);

        // Caps of exactly what the module needs are enough; below it, each fails the run: the
        // output, the body, the sample data, the cells.
        const deqaz_options exactCaps{0, exact.bytes.size(), rd32le(&qaz[4]), 0, 0};
        EXPECT_EQ(deqaz_convert_ex(qaz.data(), qaz.size(), &exactCaps, &r), DEQAZ_OK);
        deqaz_free(r.module), deqaz_free(r.messages), deqaz_free(r.notes);
        for (const auto& [caps, message] : {std::pair{deqaz_options{0, 1000, 0, 0, 0}, "Insufficient memory"},
                                            {deqaz_options{0, 0, 100, 0, 0}, "Something is wrong with this file!"},
                                            {deqaz_options{0, 0, 0, 100, 0}, "Something is wrong with this file!"},
                                            {deqaz_options{0, 0, 0, 0, 64}, "Something is wrong with this file!"}}) {
            EXPECT_EQ(deqaz_convert_ex(qaz.data(), qaz.size(), &caps, &r), DEQAZ_DAMAGED);
            EXPECT_EQ(r.module, nullptr);
            EXPECT_EQ(std::string(r.messages ? r.messages : ""), std::string("error: ") + message + "\n");
            deqaz_free(r.messages), deqaz_free(r.notes);
        }
    }
    deqaz_result r;
    EXPECT_EQ(deqaz_convert_ex("QAZ\x09", 4, nullptr, &r), DEQAZ_NOT_QAZ);
    EXPECT_STREQ(r.messages, "error: This is not a QAZ file!\n");
    deqaz_free(r.messages);
}

// Inspection reads the records alone: per sample the coding the file stores, its sizes (which
// with the packed body make up the whole file) and the sample a copy repeats.
TEST(Api, InspectsWithoutConverting) {
    const SongHeader song = makeRichModule();
    const std::vector<std::string> codings = {"raw", "raw", "raw", "delta", "delta", "predict", "predict", "copy", "empty", "predict"};
    for (LossyCoding lossy : {LossyCoding::None, LossyCoding::Vorbis, LossyCoding::Layer3}) {
        QazWriteOptions options;
        options.lossy = lossy;
        options.lossyOnlyWhenSmaller = false;
        const std::vector<uint8_t> qaz = writeQaz(song, options);
        deqaz_info* info = nullptr;
        ASSERT_EQ(deqaz_inspect(qaz.data(), qaz.size(), &info), DEQAZ_OK);
        EXPECT_EQ((std::vector<int>{info->version, info->channels, info->orders, info->patterns, info->instruments}),
                  (std::vector<int>{5, song.channels, song.orderCount, song.patternCount, static_cast<int>(song.instruments.size())}));
        EXPECT_EQ(std::string(info->format) + info->name, "it" + song.name);
        ASSERT_EQ(info->sample_count, static_cast<int>(codings.size()));
        uint64_t stored = 0;
        for (int i = 0; i < info->sample_count; ++i) {
            const deqaz_sample_info& s = info->samples[i];
            const bool own = codings[i] != "copy" && codings[i] != "empty";
            EXPECT_EQ(s.coding, lossy == LossyCoding::None || !own ? codings[i] : lossy == LossyCoding::Vorbis ? "vorbis" : "mp3") << i;
            EXPECT_EQ(s.name, song.samples[i].name);
            EXPECT_EQ(s.copy_of, codings[i] == "copy" ? 6 : -1);
            EXPECT_EQ(s.decoded_size, song.samples[i].rawStoredBytes());
            EXPECT_EQ(s.channels, song.samples[i].flags & SF_STEREO ? 2 : 1) << i;
            stored += s.stored_size;
        }
        EXPECT_EQ(stored + 12 + rd32le(&qaz[8]), qaz.size());
        deqaz_free(info);
    }
    deqaz_info sentinel{};
    deqaz_info* info = &sentinel;
    EXPECT_EQ(deqaz_inspect("QAZ\x06", 4, &info), DEQAZ_NOT_QAZ);
    EXPECT_EQ(info, nullptr);
    EXPECT_EQ(deqaz_inspect("QAZ\x05", 4, &info), DEQAZ_DAMAGED);
}


// Packing in memory gives the bytes qaz writes for the same coding and version; what cannot be
// packed gets its code and its reason.
TEST(Api, PacksAsQazDoes) {
    TempDir dir;
    const std::string module = readFile(std::string(DEQAZ_CORPUS) + "/regression/xm/Arpeggio.xm");
    dir.put("song.xm", module);
    for (auto [coding, version] : {std::pair{"auto", 0}, {"predict", 4}, {"vorbis:0.1", 5}}) {
        const ProcessResult program = runProcess({DEQAZ_QAZ_BINARY, "-s", "-c", coding, "-v", std::to_string(version ? version : 5),
                                                  (dir / "song.xm").string(), "STDOUT"});
        void* qaz = nullptr;
        size_t size = 0;
        char* messages = nullptr;
        ASSERT_EQ(deqaz_pack(module.data(), module.size(), coding, version, &qaz, &size, &messages), DEQAZ_OK) << coding;
        EXPECT_STREQ(messages, "XM: tracker name written back as FastTracker's\n");
        deqaz_free(messages);
        EXPECT_TRUE(std::string(static_cast<const char*>(qaz), size) == program.out) << coding;
        deqaz_free(qaz);
    }
    const std::tuple<std::string, const char*, int, int, std::string> refused[] = {
        {module, "flac", 5, DEQAZ_BAD_OPTIONS, ""}, {module, "auto", 3, DEQAZ_BAD_OPTIONS, ""},
        {std::string(2000, 'x'), nullptr, 0, DEQAZ_NOT_MODULE, "unknown module format"}};
    for (const auto& [bytes, coding, version, code, reason] : refused) {
        void* qaz = &qaz;
        size_t size = 1;
        char* messages = nullptr;
        EXPECT_EQ(deqaz_pack(bytes.data(), bytes.size(), coding, version, &qaz, &size, &messages), code);
        EXPECT_EQ(qaz, nullptr);
        EXPECT_EQ(std::string(messages ? messages : "").substr(0, reason.size()), reason);
        deqaz_free(messages);
    }
}

}  // namespace
}  // namespace deqaz
