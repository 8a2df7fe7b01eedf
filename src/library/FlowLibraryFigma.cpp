// The library's side of Figma: the export package and a publish's bookkeeping.
#include "library/FlowLibrary.h"

#include "figma/FigmaExport.h"
#include "library/FileOps.h"

#include <QtGlobal>

namespace varnel {

std::filesystem::path FlowLibrary::exportToFigmaInFlowFolder(const std::string& folderName) {
    const FlowMeta m = store_.meta(folderName);
    const auto folder = store_.flowURL(folderName);
    const auto destination = folder / FigmaExport::packageName(m);
    FigmaExport::exportPackage(m, folder, destination);
    return destination;
}

std::optional<std::filesystem::path> FlowLibrary::existingFigmaZip(const std::string& folderName) {
    try {
        const auto file = store_.flowURL(folderName) / FigmaExport::packageName(meta(folderName));
        if (FileOps::exists(file))
            return file;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

void FlowLibrary::removeFigmaZip(const std::string& folderName) {
    if (const auto file = existingFigmaZip(folderName))
        FileOps::remove(*file);
}

void FlowLibrary::setFigmaFileURL(const std::string& folderName,
                                  const std::optional<std::string>& url) {
    mutate([&] { store_.setFigmaFileURL(folderName, url); });
}

FigmaPublishPersistence FlowLibrary::figmaPersistence(const std::string& folderName) {
    // The store's bookkeeping, each step followed by a reload so the views see it.
    const FigmaPublishPersistence store = store_.figmaPersistence(folderName);
    FigmaPublishPersistence p;
    p.markPosted = [this, store](const std::string& file, const std::string& pin,
                                 const std::string& id, const std::string& signature) {
        mutate([&] { store.markPosted(file, pin, id, signature); });
    };
    p.clearPendingDelete = [this, store](const std::string& id) {
        mutate([&] { store.clearPendingDelete(id); });
    };
    p.removeLocalPin = [this, store](const std::string& file, const std::string& pin) {
        mutate([&] { store.removeLocalPin(file, pin); });
    };
    p.saveThreads = [this, store, folderName](const FigmaPublishPersistence::Threads& threads) {
        mutate([&] { store.saveThreads(threads); });
        emit figmaThreadsRefreshed(QString::fromStdString(folderName));
    };
    return p;
}

void FlowLibrary::addFigmaReply(const std::string& folderName, const std::string& filename,
                                const std::string& rootId, const FigmaReply& reply) {
    mutate([&] { store_.addFigmaReply(folderName, filename, rootId, reply); });
    emit figmaThreadsRefreshed(QString::fromStdString(folderName));
}

void FlowLibrary::removeFigmaThread(const std::string& folderName, const std::string& filename,
                                    const std::string& rootId) {
    mutate([&] { store_.removeFigmaThread(folderName, filename, rootId); });
    emit figmaThreadsRefreshed(QString::fromStdString(folderName));
}

} // namespace varnel
