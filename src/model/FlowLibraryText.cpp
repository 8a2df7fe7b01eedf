// The library's text index: refresh passes over every flow's "ocr.json" on a worker thread.
#include "model/FlowLibrary.h"

#include "text/OCRSidecar.h"
#include "text/ScreenOCR.h"
#include "text/SearchCache.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <chrono>
#include <set>

namespace varnel {

namespace {

// Tesseract is loaded only when a picture needs reading, and once per pass.
OCRIndex::Recognizer tesseractRecognizer() {
    auto engine = std::make_shared<std::unique_ptr<ScreenOCR>>();
    return [engine](const std::filesystem::path& file) -> std::optional<std::vector<TextLine>> {
        if (!*engine)
            *engine = std::make_unique<ScreenOCR>();
        return (*engine)->recognize(file);
    };
}

} // namespace

void FlowLibrary::refreshOCRIndex() {
    textAllDirty_ = true;
    refreshChangedText();
}

void FlowLibrary::textChanged(const std::string& folder) {
    textDirty_.insert(folder);
    if (automaticText_)
        refreshChangedText();
}

void FlowLibrary::refreshChangedText() {
    if (!textAllDirty_ && textDirty_.empty())
        return;
    if (ocrIndexing_) {
        ocrRerunRequested_ = true;
        return;
    }
    ocrIndexing_ = true;
    startOCRPass();
}

void FlowLibrary::startOCRPass() {
    std::vector<std::string> folders;
    for (const auto& summary : summaries_)
        if (textAllDirty_ || textDirty_.contains(summary.folderName))
            folders.push_back(summary.folderName);
    const bool everyFlow = textAllDirty_;
    textAllDirty_ = false;
    textDirty_.clear();
    picturesChanged_.clear();
    const unsigned generation = ocrGeneration_;
    cancelOCR_ = std::make_shared<std::atomic<bool>>(false);
    ocrPool_.setMaxThreadCount(1);
    ocrPool_.start([this, root = store_.root(), folders, everyFlow, generation, cancel = cancelOCR_,
                    factory = recognizerFactory_, readOnly = readOnly_.has_value()] {
        const FlowStore store(root);
        const auto post = [this, generation](auto apply) {
            QMetaObject::invokeMethod(this, [this, generation, apply] {
                if (generation == ocrGeneration_)
                    apply();
            });
        };
        // What the cache holds of flows whose files are as they were needs no reading: the
        // library is searchable at once, and only the rest is read.
        SearchCache cache(root, !readOnly);
        auto cached = cache.load(folders);
        if (!cached.empty())
            post([this, loaded = std::make_shared<CachedText>(cachedText(cached))] {
                adoptCachedText(std::move(*loaded));
            });
        std::set<std::string> fresh;
        for (const auto& [folder, derived] : cached)
            if (readOnly || !SearchCache::picturesChanged(store.flowURL(folder), derived))
                fresh.insert(folder);

        OCRIndex::Recognizer recognize = factory ? factory() : tesseractRecognizer();
        // Reading each flow's sidecar first tells how much there is to do.
        int remaining = 0;
        for (const auto& folder : folders) {
            try {
                if (!readOnly && !fresh.contains(folder))
                    remaining += static_cast<int>(OCRIndex::staleScreens(store, folder).size());
            } catch (const std::exception&) {
            }
        }
        post([this, remaining] { emit ocrProgress(remaining); });
        // The count goes to the window a few times a second, not once per picture.
        auto lastProgress = std::chrono::steady_clock::now();
        for (const auto& folder : folders) {
            if (*cancel)
                break;
            if (fresh.contains(folder))
                continue;
            try {
                const auto recognized = [&] {
                    --remaining;
                    const auto now = std::chrono::steady_clock::now();
                    if (now - lastProgress < std::chrono::milliseconds(100))
                        return;
                    lastProgress = now;
                    post([this, left = remaining] { emit ocrProgress(left); });
                };
                const auto before = SearchCache::stampOf(store.flowURL(folder));
                auto derived =
                    OCRIndex::derive(store, folder, recognize, recognized, cancel.get(), readOnly);
                // Kept for the command line's search only when the flow's record stayed as it
                // was while it was read: a blur meanwhile makes what was read out of date.
                if (const auto stamp = SearchCache::stampOf(store.flowURL(folder));
                    stamp && before && stamp->metaTime == before->metaTime &&
                    stamp->metaSize == before->metaSize && !readOnly)
                    cache.store(folder, *stamp, derived);
                post([this, folder, derived = std::move(derived)] { applyText(folder, derived); });
            } catch (const std::exception&) {
                // An unreadable flow has no text; the gallery shows why elsewhere.
            }
        }
        if (everyFlow && !*cancel && !readOnly)
            cache.keepOnly(folders);
        post([this, generation] { finishOCRPass(generation); });
    });
}

FlowLibrary::CachedText
FlowLibrary::cachedText(const std::map<std::string, OCRIndex::Derived>& cached) {
    CachedText loaded;
    for (const auto& [folder, derived] : cached) {
        loaded.text.emplace(folder, derived.text);
        loaded.media.emplace(folder, derived.media);
    }
    loaded.search = TextSearchIndex(loaded.text);
    return loaded;
}

void FlowLibrary::adoptCachedText(CachedText loaded) {
    // Only into an empty index: one that holds text already has it as fresh as the cache.
    if (!ocrIndex_.empty())
        return;
    std::set<std::string> present;
    for (const auto& summary : summaries_)
        present.insert(summary.folderName);
    std::erase_if(loaded.text, [&](const auto& entry) { return !present.contains(entry.first); });
    std::erase_if(loaded.media, [&](const auto& entry) { return !present.contains(entry.first); });
    ocrIndex_ = std::move(loaded.text);
    mediaIndex_ = std::move(loaded.media);
    textSearch_ = std::move(loaded.search);
    emit ocrIndexReplaced();
}

void FlowLibrary::applyText(const std::string& folder, const OCRIndex::Derived& read) {
    // A screen blurred while the pass read it: its text read from the old picture never shows.
    OCRIndex::Derived derived = read;
    if (picturesChanged_.contains(folder)) {
        const auto flowFolder = store_.flowURL(folder);
        std::erase_if(derived.text, [&](const auto& entry) {
            const auto readAt = derived.stills.find(entry.first);
            return readAt == derived.stills.end() || !readAt->second ||
                   modificationTime(flowFolder / entry.first) != *readAt->second;
        });
    }
    // Most flows read again are as they were: nothing to rebuild, nobody to tell.
    const auto text = ocrIndex_.find(folder);
    const auto media = mediaIndex_.find(folder);
    if (text != ocrIndex_.end() && media != mediaIndex_.end() && text->second == derived.text &&
        media->second == derived.media)
        return;
    ocrIndex_[folder] = derived.text;
    mediaIndex_[folder] = derived.media;
    textSearch_.setFlow(folder, derived.text);
    emit ocrIndexChanged(QString::fromStdString(folder));
}

void FlowLibrary::finishOCRPass(unsigned generation) {
    if (generation != ocrGeneration_)
        return;
    ocrIndexing_ = false;
    // Flows deleted since the pass began.
    std::set<std::string> present;
    for (const auto& summary : summaries_)
        present.insert(summary.folderName);
    std::erase_if(ocrIndex_, [&](const auto& entry) {
        if (present.contains(entry.first))
            return false;
        textSearch_.removeFlow(entry.first);
        return true;
    });
    std::erase_if(mediaIndex_, [&](const auto& entry) { return !present.contains(entry.first); });
    emit ocrProgress(0);
    if (ocrRerunRequested_) {
        ocrRerunRequested_ = false;
        refreshChangedText();
    }
}

void FlowLibrary::waitForTextRecognition() {
    while (ocrIndexing_) {
        ocrPool_.waitForDone();
        QCoreApplication::processEvents();
    }
}

std::vector<TextLine> FlowLibrary::textLines(const std::string& folderName,
                                             const std::string& filename) const {
    return OCRIndex::textLines(store_, folderName, filename);
}

void FlowLibrary::saveTextLines(const std::string& folderName, const std::string& filename,
                                const std::vector<TextLine>& lines) {
    if (readOnly_)
        return; // recognized text is derived: not kept is only read again
    OCRIndex::saveTextLines(store_, folderName, filename, lines);
    textChanged(folderName); // the search cache follows the sidecar
}

} // namespace varnel
