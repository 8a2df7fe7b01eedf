#pragma once

#ifndef Q_MOC_RUN
#include "figma/FigmaAccountCache.h"
#include "figma/KeychainStore.h"

#include <string>
#endif

#include <QObject>

namespace varnel {

class FlowLibrary;

// What the thread panel asks of Figma for one pulled thread: a reply, or deleting the thread.
// Requests run off the main thread; the library is updated on it when Figma agreed.
class FigmaThreadActions : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kThreadGone = "This thread was deleted in Figma";

    FigmaThreadActions(FlowLibrary& library, SecretStore& secrets, FigmaAPIFactory factory,
                       QObject* parent = nullptr);

    void reply(const std::string& folderName, const std::string& filename,
               const std::string& rootId, const std::string& text);
    void deleteThread(const std::string& folderName, const std::string& filename,
                      const std::string& rootId);
    // The thread's address in Figma's web app; empty when the flow has no usable link.
    std::string threadURL(const std::string& folderName, const std::string& rootId);

signals:
    // `error` is empty on success, else the line to show under the thread.
    void finished(const QString& folderName, const QString& rootId, const QString& error);

private:
    template <typename Work, typename Apply>
    void request(const std::string& folderName, const std::string& rootId, Work work, Apply apply);

    FlowLibrary& library_;
    SecretStore& secrets_;
    FigmaAPIFactory factory_;
};

} // namespace varnel
