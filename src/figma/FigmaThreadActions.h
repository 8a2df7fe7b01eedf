#pragma once

#ifndef Q_MOC_RUN
#include "figma/FigmaAccountCache.h"
#include "figma/KeychainStore.h"

#include <atomic>
#include <memory>
#include <set>
#include <string>
#endif

#include <QObject>

namespace varnel {

class FlowLibrary;

// What the thread panel asks of Figma for one pulled thread: a reply, or deleting the thread.
// Requests run off the main thread, one at a time per thread; the library is updated on it when
// Figma agreed.
class FigmaThreadActions : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kThreadGone = "This thread was deleted in Figma";
    static constexpr const char* kNotAuthor = "Only the thread’s author can delete it";

    // `account` names the signed-in user of replies when Figma can't be asked.
    FigmaThreadActions(FlowLibrary& library, SecretStore& secrets, FigmaAPIFactory factory,
                       const FigmaAccountCache* account = nullptr, QObject* parent = nullptr);
    // Aborts the requests in flight.
    ~FigmaThreadActions() override;

    // Both are ignored while a request for the thread is under way.
    void reply(const std::string& folderName, const std::string& filename,
               const std::string& rootId, const std::string& text);
    void deleteThread(const std::string& folderName, const std::string& filename,
                      const std::string& rootId);
    bool isBusy(const std::string& rootId) const { return busy_.contains(rootId); }
    // The thread's address in Figma's web app; empty when the flow has no usable link.
    std::string threadURL(const std::string& folderName, const std::string& rootId);

signals:
    // `error` is empty on success, else the line to show under the thread.
    void finished(const QString& folderName, const QString& rootId, const QString& error);

private:
    template <typename Work, typename Apply, typename Explain>
    void request(const std::string& folderName, const std::string& rootId, Work work, Apply apply,
                 Explain explain);

    FlowLibrary& library_;
    SecretStore& secrets_;
    FigmaAPIFactory factory_;
    const FigmaAccountCache* account_;
    std::set<std::string> busy_; // thread roots with a request under way
    std::shared_ptr<std::atomic<bool>> stop_ = std::make_shared<std::atomic<bool>>(false);
};

} // namespace varnel
