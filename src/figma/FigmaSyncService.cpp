#include "figma/FigmaSyncService.h"

#include "figma/FigmaAuth.h"
#include "figma/FigmaCommentSync.h"
#include "model/FlowLibrary.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace varnel {

namespace {

// Runs `change` on `context`'s thread and waits; what it throws is rethrown here, so that the
// publisher stops the run.
void onOwnerThread(QObject* context, const std::function<void()>& change) {
    std::exception_ptr error;
    QMetaObject::invokeMethod(
        context,
        [&] {
            try {
                change();
            } catch (...) {
                error = std::current_exception();
            }
        },
        Qt::BlockingQueuedConnection);
    if (error)
        std::rethrow_exception(error);
}

FigmaPublishPersistence marshalled(FigmaPublishPersistence inner, QObject* context) {
    FigmaPublishPersistence p;
    p.markPosted = [=](const std::string& file, const std::string& pin, const std::string& id,
                       const std::string& signature, const std::string& key) {
        onOwnerThread(context, [&] { inner.markPosted(file, pin, id, signature, key); });
    };
    p.clearPendingDelete = [=](const std::string& id) {
        onOwnerThread(context, [&] { inner.clearPendingDelete(id); });
    };
    p.removeLocalPin = [=](const std::string& file, const std::string& pin) {
        onOwnerThread(context, [&] { inner.removeLocalPin(file, pin); });
    };
    p.saveThreads = [=](const FigmaPublishPersistence::Threads& threads) {
        onOwnerThread(context, [&] { inner.saveThreads(threads); });
    };
    return p;
}

} // namespace

FigmaSyncService::FigmaSyncService(FlowLibrary& library, SecretStore& secrets,
                                   FigmaAPIFactory factory, QObject* parent)
    : QObject(parent), library_(library), secrets_(secrets), factory_(std::move(factory)) {
    pool_.setMaxThreadCount(4);
    connect(&library_, &FlowLibrary::changed, this, &FigmaSyncService::stopRelocatedRuns);
    connect(&library_, &FlowLibrary::aboutToSwitchRoot, this, &FigmaSyncService::stopAll);
}

FigmaSyncService::~FigmaSyncService() {
    blockSignals(true); // the views go with the app
    stopAll();
}

void FigmaSyncService::stopAll() {
    for (auto& [id, run] : running_)
        *run.stop = true;
    // A run may be waiting for this thread to record a step; let it through.
    while (!pool_.waitForDone(20))
        QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(this); // the runs' endings
}

std::optional<std::string> FigmaSyncService::flowId(const std::string& folderName) const {
    try {
        return library_.meta(folderName).id;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool FigmaSyncService::isSyncing(const std::string& folderName) const {
    const auto id = flowId(folderName);
    return id && running_.contains(*id);
}

std::optional<FigmaSyncService::Outcome>
FigmaSyncService::lastOutcome(const std::string& folderName) const {
    const auto id = flowId(folderName);
    const auto found = id ? outcomes_.find(*id) : outcomes_.end();
    if (found == outcomes_.end())
        return std::nullopt;
    return found->second;
}

void FigmaSyncService::publish(const std::string& folderName) {
    FlowMeta meta;
    try {
        meta = library_.meta(folderName);
    } catch (const std::exception&) {
        emit stateChanged(QString::fromStdString(folderName)); // the band shows why it can't
        return;
    }
    const std::string id = meta.id;
    if (running_.contains(id))
        return;
    // Taken before anything below can run the event loop (the keychain does), so that a second
    // click finds this run under way.
    Run& run = running_[id] = Run{folderName, library_.root()};
    const auto stop = run.stop;
    emit stateChanged(QString::fromStdString(folderName));

    const auto token = FigmaAuth::token(secrets_);
    std::shared_ptr<FigmaCommentAPI> api;
    std::optional<FigmaPublishPersistence> persistence;
    std::string failure;
    if (!token) {
        failure = kNoToken;
    } else {
        try {
            api = factory_(*token);
            api->setStopFlag(stop);
            persistence = marshalled(library_.figmaPersistence(folderName), this);
        } catch (const std::exception& e) {
            failure = e.what();
        }
    }
    if (!failure.empty() || *stop) {
        running_.erase(id);
        finish(id, folderName,
               {failure.empty() ? "Stopped — sync again to finish" : failure, true});
        return;
    }
    pool_.start([this, id, meta = std::move(meta), api, persistence = *persistence, stop] {
        const FigmaSyncResult result = FigmaCommentSync::run(meta, *api, persistence, stop.get());
        const Outcome outcome{resultText(result), std::holds_alternative<FigmaSyncError>(result)};
        QMetaObject::invokeMethod(this, [this, id, outcome] {
            const auto found = running_.find(id);
            if (found == running_.end())
                return;
            std::string folder = found->second.folderName;
            try {
                folder = library_.folderOfFlow(id);
            } catch (const std::exception&) {
            }
            running_.erase(found);
            finish(id, folder, outcome);
        });
    });
}

void FigmaSyncService::stopRelocatedRuns() {
    for (auto& [id, run] : running_) {
        std::optional<std::string> now;
        try {
            if (library_.root() == run.root)
                now = library_.folderOfFlow(id);
        } catch (const std::exception&) {
        }
        if (now != run.folderName)
            *run.stop = true;
    }
}

void FigmaSyncService::finish(const std::string& flowId, const std::string& folderName,
                              Outcome outcome) {
    outcomes_[flowId] = std::move(outcome);
    emit stateChanged(QString::fromStdString(folderName));
}

void FigmaSyncService::waitForIdle() {
    while (!running_.empty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

} // namespace varnel
