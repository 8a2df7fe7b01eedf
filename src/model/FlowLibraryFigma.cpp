// The library's side of Figma: the export package and a publish's bookkeeping.
#include "model/FlowLibrary.h"

#include "figma/FigmaExport.h"
#include "library/Errors.h"
#include "library/FileOps.h"

#include <QtGlobal>

#include <set>

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

// The package is named after the flow: under a new name, the old one would linger beside the
// next export, and an old board could be imported from it.
void FlowLibrary::removeStaleFigmaZip(const std::string& folderName, const std::string& newName) {
    try {
        if (meta(folderName).name == newName)
            return;
        removeFigmaZip(folderName);
    } catch (const std::exception& e) {
        qWarning("The old Figma package of %s stays: %s", folderName.c_str(), e.what());
    }
}

void FlowLibrary::setFigmaFileURL(const std::string& folderName,
                                  const std::optional<std::string>& url) {
    mutate([&] { store_.setFigmaFileURL(folderName, url); });
}

std::string FlowLibrary::folderOfFlow(const std::string& flowId) const {
    for (const auto& summary : summaries_)
        if (summary.id == flowId)
            return summary.folderName;
    throw LibraryError("The flow is no longer in the library.");
}

FigmaPublishPersistence FlowLibrary::figmaPersistence(const std::string& folderName) {
    // Each step finds the flow by its id in this library, for the flow may be renamed or moved
    // while a run goes on; a step that finds it nowhere throws, which ends the run.
    const FlowMeta& m = meta(folderName);
    const std::string flowId = m.id;
    const std::filesystem::path libraryRoot = root();
    const auto folder = [this, flowId, libraryRoot] {
        if (root() != libraryRoot)
            throw LibraryError("The library was switched.");
        return folderOfFlow(flowId);
    };
    // A run names screens as they were when it started; screens may be deleted or renumbered
    // meanwhile. Each step lands on the screen the run meant, wherever it is now in this flow,
    // and a screen that left the flow gets nothing: never its neighbour, which took its name.
    std::vector<ScreenID> screens;
    for (const auto& screen : m.screens)
        screens.push_back({folderName, screen.filename});
    const auto followed = followScreens(screens);
    const auto screenNow = [followed, folderName](const std::string& flowFolder,
                                                  const std::string& file) {
        const auto now = followed->now({folderName, file});
        return now && now->folder == flowFolder ? std::optional(now->filename) : std::nullopt;
    };
    FigmaPublishPersistence p;
    p.markPosted = [this, folder, screenNow](const std::string& file, const std::string& pin,
                                             const std::string& id, const std::string& signature,
                                             const std::string& fileKey) {
        const std::string now = folder();
        const auto screen = screenNow(now, file);
        mutate([&] {
            if (screen)
                store_.markFigmaPosted(now, *screen, pin, id, signature, fileKey);
            else // deleted with its screen while it was being posted
                store_.queueFigmaDelete(now, id, fileKey);
        });
    };
    p.clearPendingDelete = [this, folder](const std::string& id) {
        mutate([&] { store_.clearFigmaPendingDelete(folder(), id); });
    };
    p.removeLocalPin = [this, folder, screenNow](const std::string& file, const std::string& pin) {
        const std::string now = folder();
        if (const auto screen = screenNow(now, file))
            mutate([&] { store_.removePinDeletedInFigma(now, *screen, pin); });
    };
    p.saveThreads = [this, folder, screenNow,
                     screens](const FigmaPublishPersistence::Threads& threads) {
        const std::string now = folder();
        FigmaPublishPersistence::Threads landed;
        std::set<std::string> covered;
        for (const auto& then : screens) {
            const auto screen = screenNow(now, then.filename);
            if (!screen)
                continue;
            covered.insert(*screen);
            if (const auto found = threads.find(then.filename); found != threads.end())
                landed[*screen] = found->second;
        }
        mutate([&] { store_.saveFigmaThreads(now, landed, Date::now(), covered); });
        emit figmaThreadsRefreshed(QString::fromStdString(now));
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
