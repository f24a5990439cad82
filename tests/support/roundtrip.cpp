#include "support/roundtrip.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "common/endian.hpp"
#include "support/run_process.hpp"
#include "support/temp_dir.hpp"

namespace deqaz::test {

namespace fs = std::filesystem;

namespace {

// The last line of a program's messages, for a failure's reason.
std::string lastLine(const std::string& text) {
    std::string t = text;
    while (!t.empty() && (t.back() == '\n' || t.back() == '\r')) t.pop_back();
    const size_t nl = t.rfind('\n');
    return nl == std::string::npos ? t : t.substr(nl + 1);
}

// qaz reports "original format: <channels>ch <ext>"; the extension names the output format.
std::string formatOf(const std::string& messages) {
    const std::string tag = "original format: ";
    const size_t at = messages.find(tag);
    if (at == std::string::npos) return "";
    const size_t space = messages.find(' ', at + tag.size());
    const size_t end = messages.find('\n', at);
    return space == std::string::npos ? "" : messages.substr(space + 1, end - space - 1);
}

// Schism Tracker's render of a module (its whole song, 44.1 kHz 16-bit stereo), or nothing when
// it is not installed or fails.
std::optional<std::vector<int16_t>> renderWithSchism(const fs::path& module, const fs::path& work) {
    static const bool installed = !findProgram("schismtracker").empty();
    if (!installed) return std::nullopt;
    const fs::path wav = work / "schism.wav";
    const fs::path home = work / "schism-home";
    fs::remove(wav);
    fs::create_directories(home);
    ProcessResult r = runProcess({"env", "HOME=" + home.string(), "SDL_VIDEODRIVER=dummy", "SDL_AUDIODRIVER=dummy",
                                  "timeout", "60", "schismtracker", "--diskwrite=" + wav.string(), module.string()});
    const std::vector<uint8_t> bytes = readBytes(wav);
    if (r.exitCode != 0 || bytes.size() < 12) return std::nullopt;
    // RIFF chunks after the 12-byte header; the samples are in "data".
    for (size_t at = 12; at + 8 <= bytes.size();) {
        const uint32_t size = rd32le(&bytes[at + 4]);
        if (std::memcmp(&bytes[at], "data", 4) == 0) {
            const size_t n = std::min<size_t>(size, bytes.size() - at - 8) / 2;
            std::vector<int16_t> pcm(n);
            for (size_t k = 0; k < n; ++k) pcm[k] = static_cast<int16_t>(rd16le(&bytes[at + 8 + 2 * k]));
            return pcm;
        }
        at += 8 + size_t{size} + (size & 1);
    }
    return std::nullopt;
}

}  // namespace

std::string RoundTripRow::structuralText() const {
    if (!failure.empty()) return failure;
    if (sourceXmp != 0) return "libxmp cannot load the source (" + std::to_string(sourceXmp) + ")";
    if (outputXmp != 0) return "libxmp cannot load the result (" + std::to_string(outputXmp) + ")";
    std::string text;
    for (const std::string& s : structural) text += (text.empty() ? "" : "; ") + s;
    if (text.empty()) text = movedColumns ? "identical (column moves)" : "identical";
    if (!libxmpPatch.empty()) text += " [" + libxmpPatch + "]";
    return text;
}

std::string comparisonText(const AudioComparison& audio) {
    if (audio.identical) return "bit-identical";
    char text[64];
    std::snprintf(text, sizeof text, "SNR %.1f dB", audio.snrDb);
    std::string s = text;
    if (audio.referenceFrames != audio.testFrames)
        s += ", " + std::to_string(audio.testFrames) + " frames vs " + std::to_string(audio.referenceFrames);
    return s;
}

std::string RoundTripRow::audioText() const {
    std::string s = !renderFailure.empty() ? renderFailure : rendered ? comparisonText(audio) : "-";
    if (rendered && !audio.identical && sourceTracker != outputTracker)
        s += " (libxmp plays the source as \"" + sourceTracker + "\", the result as \"" + outputTracker + "\")";
    if (schismRendered) s += "; Schism: " + comparisonText(schism);
    return s;
}

bool RoundTripReasons::load(const fs::path& path) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) {
        const size_t tab = line.find('\t');
        if (line.empty() || line[0] == '#' || tab == std::string::npos) continue;
        const std::string key = line.substr(0, tab);
        const std::string reason = line.substr(tab + 1);
        if (key[0] == '*') categories_[key.substr(1)] = reason;
        else if (key[0] == '~') modules_[key.substr(1)] = reason, unstable_.insert(key.substr(1));
        else modules_[key] = reason;
    }
    return true;
}

std::string RoundTripReasons::explain(const RoundTripRow& row) const {
    if (const auto it = modules_.find(row.file); it != modules_.end()) return it->second;
    if (!row.comparable() || row.structural.empty()) return "";
    std::string text;
    for (const std::string& category : row.structural) {
        const auto it = categories_.find(category);
        if (it == categories_.end()) return "";
        text += (text.empty() ? "" : "; ") + it->second;
    }
    return text;
}

RoundTripRow roundTrip(const fs::path& corpus, const std::string& rel, const RoundTripOptions& options) {
    RoundTripRow row;
    row.file = rel;
    const fs::path source = corpus / rel;
    const fs::path qazFile = options.work / "module.qaz";
    fs::remove(qazFile);
    const std::vector<uint8_t> sourceBytes = readBytes(source);
    row.sourceBytes = sourceBytes.size();

    ProcessResult enc = runProcess({options.qazBinary, "-y", "-c", options.coding, "-v", std::to_string(options.version),
                                    source.string(), qazFile.string()});
    if (enc.exitCode != 0) {
        row.failure = "qaz: " + lastLine(enc.err);
        return row;
    }
    row.format = formatOf(enc.err);
    row.qazBytes = fs::file_size(qazFile);
    const fs::path output = options.work / ("module." + (row.format.empty() ? std::string("out") : row.format));
    fs::remove(output);
    ProcessResult dec = runProcess({options.deqazBinary, "-y", qazFile.string(), output.string()});
    if (dec.exitCode != 0) {
        row.failure = "deqaz: " + lastLine(dec.err);
        return row;
    }
    std::vector<uint8_t> outputBytes = readBytes(output);
    row.outputBytes = outputBytes.size();

    XmpModule a, b;
    row.sourceXmp = a.load(sourceBytes);
    std::vector<uint8_t> forXmp = outputBytes;
    row.libxmpPatch = patchForLibxmp(forXmp);
    row.outputXmp = b.load(forXmp);
    if (row.comparable()) {
        row.structural = xmpDifferences(a, b, &row.movedColumns);
        row.sourceTracker = a.mod().type;
        row.outputTracker = b.mod().type;
        std::vector<int16_t> sourcePcm, outputPcm;
        const bool sourceOk = renderIsolated(sourceBytes, options.seconds, sourcePcm);
        const bool outputOk = renderIsolated(forXmp, options.seconds, outputPcm);
        if (sourceOk && outputOk) {
            row.audio = compareAudio(sourcePcm, outputPcm);
            row.rendered = true;
        } else {
            row.renderFailure = std::string("libxmp fails rendering the ") +
                                (sourceOk ? "result" : outputOk ? "source" : "source and the result");
        }
    }
    if (options.schism && !(row.rendered && row.audio.identical)) {
        const auto s = renderWithSchism(source, options.work);
        const auto o = s ? renderWithSchism(output, options.work) : std::nullopt;
        if (s && o) {
            row.schism = compareAudio(*s, *o);
            row.schismRendered = true;
        }
    }
    row.output = std::move(forXmp);
    return row;
}

std::vector<std::string> moduleFiles(const fs::path& corpus) {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        std::string ext = entry.path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (ext == ".it" || ext == ".xm" || ext == ".s3m" || ext == ".mod" || ext == ".mtm")
            files.push_back(fs::relative(entry.path(), corpus).generic_string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace deqaz::test
