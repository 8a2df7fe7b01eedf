#include "cli/CliFigma.h"

#include "figma/FigmaAPI.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaCommentSync.h"
#include "figma/FigmaExport.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaSyncService.h"
#include "figma/KeychainStore.h"
#include "library/Errors.h"
#include "library/FlowStore.h"

#include <ostream>

namespace varnel::cli {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailed = 1;

void expectArguments(const Invocation& inv, std::size_t count, const char* usage) {
    if (inv.arguments.size() != count)
        throw UsageError(std::string("usage: figma ") + usage);
}

int exportPackage(const Invocation& inv, FlowStore& store, std::ostream& out) {
    expectArguments(inv, 2, "export FOLDER");
    const std::string& folder = inv.arguments[1];
    const FlowMeta meta = store.meta(folder);
    const auto destination = store.flowURL(folder) / FigmaExport::packageName(meta);
    FigmaExport::exportPackage(meta, store.flowURL(folder), destination);
    out << destination.string() << "\n";
    return kSuccess;
}

int link(const Invocation& inv, FlowStore& store, std::ostream& out) {
    expectArguments(inv, 3, "link FOLDER URL");
    const auto canonical = FigmaFileLink::canonicalURL(inv.arguments[2]);
    if (!canonical)
        throw LibraryError("Not a Figma file URL");
    store.setFigmaFileURL(inv.arguments[1], *canonical);
    out << *canonical << "\n";
    return kSuccess;
}

int publish(const Invocation& inv, FlowStore& store, const FigmaAccess& access, std::ostream& out) {
    expectArguments(inv, 2, "publish FOLDER");
    const std::string& folder = inv.arguments[1];
    const FlowMeta meta = store.meta(folder);
    KeychainStore keychain;
    SecretStore& secrets = access.secrets ? *access.secrets : keychain;
    const auto token = FigmaAuth::token(secrets);
    if (!token)
        throw LibraryError(FigmaSyncService::kNoToken);
    FigmaAPI api(*token, access.baseURL.empty() ? FigmaAPI::kBaseURL : access.baseURL);
    const FigmaSyncResult result = FigmaCommentSync::run(meta, api, store.figmaPersistence(folder));
    out << resultText(result) << "\n";
    return std::holds_alternative<FigmaSyncError>(result) ? kFailed : kSuccess;
}

} // namespace

int figma(Invocation& inv, FlowStore& store, const FigmaAccess& access, std::ostream& out) {
    const std::string sub = inv.arguments.empty() ? "" : inv.arguments[0];
    if (sub == "export")
        return exportPackage(inv, store, out);
    if (sub == "link")
        return link(inv, store, out);
    // A sync both sends the pins and pulls the threads; "publish" is its first name.
    if (sub == "sync" || sub == "publish")
        return publish(inv, store, access, out);
    throw UsageError("figma needs export, link or sync");
}

} // namespace varnel::cli
