#include "figma/FigmaSyncService.h"

#include "figma/FigmaAuth.h"
#include "figma/FigmaCommentSync.h"
#include "library/FlowLibrary.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace varnel {

namespace {

// Runs `change` on `context`'s thread and waits; what it throws is rethrown here, so that the
// publisher counts it as a failed step.
void onOwnerThread(QObject* context, const std::shared_ptr<std::atomic<bool>>& closing,
                   const std::function<void()>& change) {
    if (*closing)
        throw std::runtime_error("the app is closing");
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

FigmaPublishPersistence marshalled(FigmaPublishPersistence inner, QObject* context,
                                   std::shared_ptr<std::atomic<bool>> closing) {
    FigmaPublishPersistence p;
    p.markPosted = [=](const std::string& file, const std::string& pin, const std::string& id,
                       const std::string& signature) {
        onOwnerThread(context, closing, [&] { inner.markPosted(file, pin, id, signature); });
    };
    p.clearPendingDelete = [=](const std::string& id) {
        onOwnerThread(context, closing, [&] { inner.clearPendingDelete(id); });
    };
    p.removeLocalPin = [=](const std::string& file, const std::string& pin) {
        onOwnerThread(context, closing, [&] { inner.removeLocalPin(file, pin); });
    };
    p.saveThreads = [=](const FigmaPublishPersistence::Threads& threads) {
        onOwnerThread(context, closing, [&] { inner.saveThreads(threads); });
    };
    return p;
}

} // namespace

FigmaSyncService::FigmaSyncService(FlowLibrary& library, SecretStore& secrets,
                                   FigmaAPIFactory factory, QObject* parent)
    : QObject(parent), library_(library), secrets_(secrets), factory_(std::move(factory)) {
    pool_.setMaxThreadCount(1);
}

FigmaSyncService::~FigmaSyncService() {
    *closing_ = true;
    // A run may be waiting for this thread to record a step; let it through.
    while (!pool_.waitForDone(20))
        QCoreApplication::processEvents();
}

std::optional<FigmaSyncService::Outcome>
FigmaSyncService::lastOutcome(const std::string& folderName) const {
    const auto found = outcomes_.find(folderName);
    if (found == outcomes_.end())
        return std::nullopt;
    return found->second;
}

void FigmaSyncService::publish(const std::string& folderName) {
    if (isSyncing(folderName))
        return;
    const auto token = FigmaAuth::token(secrets_);
    if (!token) {
        finish(folderName, {kNoToken, true});
        return;
    }
    FlowMeta meta;
    std::shared_ptr<FigmaCommentAPI> api;
    try {
        meta = library_.meta(folderName);
        api = factory_(*token);
    } catch (const std::exception& e) {
        finish(folderName, {e.what(), true});
        return;
    }
    running_.insert(folderName);
    emit stateChanged(QString::fromStdString(folderName));
    const auto persistence = marshalled(library_.figmaPersistence(folderName), this, closing_);
    const auto closing = closing_;
    pool_.start([this, folderName, meta = std::move(meta), api, persistence, closing] {
        const FigmaSyncResult result = FigmaCommentSync::run(meta, *api, persistence);
        if (*closing)
            return;
        const Outcome outcome{resultText(result), std::holds_alternative<FigmaSyncError>(result)};
        QMetaObject::invokeMethod(this, [this, folderName, outcome] {
            running_.erase(folderName);
            finish(folderName, outcome);
        });
    });
}

void FigmaSyncService::finish(const std::string& folderName, Outcome outcome) {
    outcomes_[folderName] = std::move(outcome);
    emit stateChanged(QString::fromStdString(folderName));
}

void FigmaSyncService::waitForIdle() {
    while (!running_.empty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

} // namespace varnel
