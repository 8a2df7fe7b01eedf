#include "text/OCRIndex.h"

#include "library/ScreenFiles.h"
#include "text/OCRSidecar.h"
#include "text/ScreenOCR.h"

#include <map>
#include <set>

namespace varnel {

MediaCounts MediaCounts::of(const std::vector<ScreenRef>& screens) {
    MediaCounts counts;
    for (const auto& screen : screens)
        ++(ScreenFiles::isClip(screen.filename) ? counts.videos : counts.images);
    return counts;
}

namespace OCRIndex {

namespace {

void keepTranslations(const std::vector<TextLine>& before, std::vector<TextLine>& now) {
    std::map<std::string, const std::map<std::string, std::string>*> byText;
    for (const auto& line : before)
        if (line.translations)
            byText.emplace(line.text, &*line.translations);
    for (auto& line : now)
        if (const auto found = byText.find(line.text); found != byText.end())
            line.translations = *found->second;
}

// A sidecar of another version is dropped whole and rebuilt.
OCRSidecar current(const std::filesystem::path& flowFolder, bool* changed) {
    std::optional<OCRSidecar> sidecar = OCRSidecar::read(flowFolder);
    if (!sidecar)
        return {};
    if (sidecar->version != OCRSidecar::kVersion) {
        *changed = true;
        return {};
    }
    return *sidecar;
}

} // namespace

std::vector<std::string> staleScreens(const FlowStore& store, std::string_view folder) {
    const FlowMeta meta = store.meta(folder);
    const auto flowFolder = store.flowURL(folder);
    bool changed = false;
    const OCRSidecar sidecar = current(flowFolder, &changed);
    std::vector<std::string> stale;
    for (const auto& screen : meta.screens) {
        if (ScreenFiles::isClip(screen.filename))
            continue;
        const auto mtime = modificationTime(flowFolder / screen.filename);
        if (!mtime)
            continue;
        const auto entry = sidecar.screens.find(screen.filename);
        if (entry == sidecar.screens.end() || entry->second.mtime != *mtime)
            stale.push_back(screen.filename);
    }
    return stale;
}

Derived derive(const FlowStore& store, std::string_view folder, const Recognizer& recognize,
               const std::function<void()>& recognized, const std::atomic<bool>* cancel,
               bool readOnly) {
    const FlowMeta meta = store.meta(folder);
    const auto flowFolder = store.flowURL(folder);
    bool changed = false;
    OCRSidecar sidecar = current(flowFolder, &changed);

    std::set<std::string> stills;
    for (const auto& screen : meta.screens) {
        if (ScreenFiles::isClip(screen.filename))
            continue;
        stills.insert(screen.filename);
        const auto mtime = modificationTime(flowFolder / screen.filename);
        if (!mtime)
            continue;
        const auto entry = sidecar.screens.find(screen.filename);
        if (entry != sidecar.screens.end() && entry->second.mtime == *mtime)
            continue;
        if ((cancel && *cancel) || readOnly)
            continue;
        std::optional<std::vector<TextLine>> lines;
        try {
            lines = recognize(flowFolder / screen.filename);
        } catch (const std::exception&) {
            // Tried again at the next pass.
        }
        if (recognized)
            recognized();
        if (!lines) {
            // What was read from the old picture no longer describes it.
            changed |= sidecar.screens.erase(screen.filename) > 0;
            continue;
        }
        // A line read again as it was keeps its translations; a line whose text changed
        // loses them with its old text.
        if (entry != sidecar.screens.end())
            keepTranslations(entry->second.lines, *lines);
        sidecar.screens[screen.filename] = {ScreenOCR::searchBlob(*lines), *mtime,
                                            std::move(*lines)};
        changed = true;
    }
    changed |= std::erase_if(sidecar.screens,
                             [&](const auto& entry) { return !stills.contains(entry.first); }) > 0;
    if (changed && !readOnly) {
        sidecar.version = OCRSidecar::kVersion;
        try {
            sidecar.write(flowFolder);
        } catch (const std::exception&) {
            // The index in memory is still right; the next pass writes it.
        }
    }

    Derived derived{{}, MediaCounts::of(meta.screens), {}, {}};
    for (const auto& screen : meta.screens)
        derived.order.push_back(screen.filename);
    for (const auto& file : stills)
        derived.stills.emplace(file, std::nullopt);
    for (const auto& [file, entry] : sidecar.screens) {
        derived.text.emplace(file, entry.text);
        derived.stills[file] = entry.mtime;
    }
    return derived;
}

std::vector<TextLine> textLines(const FlowStore& store, std::string_view folder,
                                const std::string& filename) {
    const auto sidecar = OCRSidecar::read(store.flowURL(folder));
    if (!sidecar)
        return {};
    const auto entry = sidecar->screens.find(filename);
    return entry == sidecar->screens.end() ? std::vector<TextLine>{} : entry->second.lines;
}

void saveTextLines(const FlowStore& store, std::string_view folder, const std::string& filename,
                   const std::vector<TextLine>& lines) {
    const auto flowFolder = store.flowURL(folder);
    OCRSidecar sidecar = OCRSidecar::read(flowFolder).value_or(OCRSidecar{});
    sidecar.version = OCRSidecar::kVersion;
    sidecar.screens[filename] = {ScreenOCR::searchBlob(lines),
                                 modificationTime(flowFolder / filename).value_or(0), lines};
    sidecar.write(flowFolder);
}

} // namespace OCRIndex
} // namespace varnel
