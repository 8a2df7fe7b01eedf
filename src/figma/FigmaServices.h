#pragma once

#ifndef Q_MOC_RUN
#include "figma/FigmaAccountCache.h"
#include "figma/FigmaAvatarCache.h"
#include "figma/FigmaSyncService.h"
#include "figma/FigmaThreadActions.h"
#include "figma/KeychainStore.h"

#include <memory>
#endif

#include <QObject>

namespace varnel {

class FlowLibrary;

// Everything the app's windows use to reach Figma, living as long as the library window.
class FigmaServices : public QObject {
    Q_OBJECT

public:
    // The app's own: the desktop keychain and https://api.figma.com.
    explicit FigmaServices(FlowLibrary& library, QObject* parent = nullptr);
    // Elsewhere, for tests: the secrets and the API's address are given.
    FigmaServices(FlowLibrary& library, SecretStore& secrets, std::string baseURL,
                  QObject* parent = nullptr);

    SecretStore& secrets() { return secrets_; }
    FigmaAvatarCache& avatars() { return avatars_; }
    FigmaAccountCache& account() { return account_; }
    FigmaSyncService& sync() { return sync_; }
    FigmaThreadActions& threads() { return threads_; }

private:
    FigmaServices(FlowLibrary& library, std::unique_ptr<SecretStore> owned, SecretStore* borrowed,
                  const std::string& baseURL, QObject* parent);

    std::unique_ptr<SecretStore> ownedSecrets_;
    SecretStore& secrets_;
    FigmaAvatarCache avatars_;
    FigmaAccountCache account_;
    FigmaSyncService sync_;
    FigmaThreadActions threads_;
};

} // namespace varnel
