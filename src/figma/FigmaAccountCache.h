#pragma once

#ifndef Q_MOC_RUN
#include "figma/FigmaCommentAPI.h"
#include "figma/FigmaRecords.h"
#include "figma/KeychainStore.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#endif

#include <QImage>
#include <QObject>

namespace varnel {

class FigmaAvatarCache;

// Makes the client for a token; the app's reaches https://api.figma.com.
using FigmaAPIFactory = std::function<std::unique_ptr<FigmaCommentAPI>(const std::string& token)>;

// Who is signed in to Figma, for the settings pane. Main thread only.
class FigmaAccountCache : public QObject {
    Q_OBJECT

public:
    FigmaAccountCache(SecretStore& secrets, FigmaAvatarCache& avatars, FigmaAPIFactory factory,
                      QObject* parent = nullptr);
    // Aborts the request in flight.
    ~FigmaAccountCache() override;

    const std::optional<FigmaAccount>& account() const { return account_; }
    bool loading() const { return loading_; }
    // Asks Figma once, when a token is stored and nothing is known or under way.
    void ensureLoaded();
    // Forgets the account, as after the token changed.
    void clear();
    QImage avatar() const;
    // Why the last request failed, for the settings pane; empty after a success.
    const std::string& lastError() const { return lastError_; }

signals:
    void changed();

private:
    SecretStore& secrets_;
    FigmaAvatarCache& avatars_;
    FigmaAPIFactory factory_;
    std::optional<FigmaAccount> account_;
    bool loading_ = false;
    unsigned generation_ = 0;
    std::string lastError_;
    std::shared_ptr<std::atomic<bool>> stop_ = std::make_shared<std::atomic<bool>>(false);
};

} // namespace varnel
