#include "text/OCRIndex.h"

#include "library/ScreenFiles.h"
#include "text/HiddenText.h"
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
    // Text read before the picture last changed describes a picture that is gone.
    std::set<std::string> stale;
    for (const auto& screen : meta.screens) {
        if (ScreenFiles::isClip(screen.filename))
            continue;
        stills.insert(screen.filename);
        const auto mtime = modificationTime(flowFolder / screen.filename);
        if (!mtime)
            continue;
        auto entry = sidecar.screens.find(screen.filename);
        // What zones and patches cover is never kept, whenever it was read.
        if (entry != sidecar.screens.end()) {
            auto visible =
                HiddenText::visibleLines(entry->second.lines, HiddenText::coveredAreas(screen));
            if (visible.size() != entry->second.lines.size()) {
                entry->second.lines = std::move(visible);
                entry->second.text = ScreenOCR::searchBlob(entry->second.lines);
                changed = true;
            }
        }
        if (entry != sidecar.screens.end() && entry->second.mtime == *mtime)
            continue;
        if ((cancel && *cancel) || readOnly) {
            stale.insert(screen.filename);
            continue;
        }
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
        *lines = HiddenText::visibleLines(std::move(*lines), HiddenText::coveredAreas(screen));
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
        if (stale.contains(file))
            continue;
        derived.text.emplace(file, entry.text);
        derived.stills[file] = entry.mtime;
    }
    return derived;
}

std::vector<TextLine> textLines(const FlowStore& store, std::string_view folder,
                                const std::string& filename) {
    const auto flowFolder = store.flowURL(folder);
    const auto sidecar = OCRSidecar::read(flowFolder);
    if (!sidecar)
        return {};
    const auto entry = sidecar->screens.find(filename);
    if (entry == sidecar->screens.end() ||
        modificationTime(flowFolder / filename) != entry->second.mtime)
        return {};
    std::vector<NormalizedRect> covered;
    try {
        const FlowMeta meta = store.meta(folder);
        const ScreenRef* screen = meta.screen(filename);
        if (!screen)
            return {};
        covered = HiddenText::coveredAreas(*screen);
    } catch (const std::exception&) {
        return {}; // what covers the screen can't be told: show nothing rather than too much
    }
    return HiddenText::visibleLines(entry->second.lines, covered);
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

bool saveTranslations(const FlowStore& store, std::string_view folder, const std::string& filename,
                      const std::vector<TextLine>& translated) {
    const auto flowFolder = store.flowURL(folder);
    std::optional<OCRSidecar> sidecar = OCRSidecar::read(flowFolder);
    if (!sidecar || sidecar->version != OCRSidecar::kVersion)
        return false;
    const auto entry = sidecar->screens.find(filename);
    if (entry == sidecar->screens.end())
        return false;
    std::vector<TextLine>& stored = entry->second.lines;
    keepTranslations(translated, stored);
    sidecar->write(flowFolder);
    return true;
}

std::optional<std::string> forgetCovered(const FlowStore& store, std::string_view folder,
                                         const std::string& filename,
                                         const std::vector<NormalizedRect>& covered) {
    const auto flowFolder = store.flowURL(folder);
    std::optional<OCRSidecar> sidecar = OCRSidecar::read(flowFolder);
    if (!sidecar)
        return std::nullopt;
    const auto entry = sidecar->screens.find(filename);
    if (entry == sidecar->screens.end())
        return std::nullopt;
    entry->second.lines = HiddenText::visibleLines(std::move(entry->second.lines), covered);
    entry->second.text = ScreenOCR::searchBlob(entry->second.lines);
    entry->second.mtime = 0; // read again from the new picture
    sidecar->write(flowFolder);
    return entry->second.text;
}

} // namespace OCRIndex
} // namespace varnel
