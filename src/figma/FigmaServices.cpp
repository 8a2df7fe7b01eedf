#include "figma/FigmaServices.h"

#include "figma/FigmaAPI.h"

namespace varnel {

namespace {

FigmaAPIFactory factoryFor(std::string baseURL) {
    return [baseURL = std::move(baseURL)](const std::string& token) {
        return std::make_unique<FigmaAPI>(token, baseURL);
    };
}

// VARNEL_FIGMA_API when it names an allowed address, else Figma's own.
std::string appBaseURL() {
    try {
        return FigmaAPI::configuredBaseURL();
    } catch (const std::invalid_argument& e) {
        qWarning("%s; using %s", e.what(), FigmaAPI::kBaseURL);
        return FigmaAPI::kBaseURL;
    }
}

} // namespace

FigmaServices::FigmaServices(FlowLibrary& library, QObject* parent)
    : FigmaServices(library, std::make_unique<KeychainStore>(), nullptr, appBaseURL(), parent) {}

FigmaServices::FigmaServices(FlowLibrary& library, SecretStore& secrets, std::string baseURL,
                             QObject* parent)
    : FigmaServices(library, nullptr, &secrets, baseURL, parent) {}

FigmaServices::FigmaServices(FlowLibrary& library, std::unique_ptr<SecretStore> owned,
                             SecretStore* borrowed, const std::string& baseURL, QObject* parent)
    : QObject(parent), ownedSecrets_(std::move(owned)),
      secrets_(borrowed ? *borrowed : *ownedSecrets_), avatars_(baseURL),
      account_(secrets_, avatars_, factoryFor(baseURL)),
      sync_(library, secrets_, factoryFor(baseURL)),
      threads_(library, secrets_, factoryFor(baseURL), &account_) {}

} // namespace varnel
