#include "cli/CliFigma.h"

#include "figma/FigmaAPI.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaCommentSync.h"
#include "figma/FigmaExport.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaPlugin.h"
#include "figma/FigmaSyncService.h"
#include "figma/KeychainStore.h"
#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/Text.h"

#include <iostream>
#include <ostream>

#include <unistd.h>

namespace varnel::cli {

namespace {

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

int plugin(const Invocation& inv, std::ostream& out) {
    expectArguments(inv, 2, "plugin DIR");
    const auto file = FigmaPlugin::save(inv.arguments[1]);
    out << file.string() << "\n";
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

SecretStore& secretsOf(const FigmaAccess& access, KeychainStore& keychain) {
    return access.secrets ? *access.secrets : keychain;
}

int publish(const Invocation& inv, FlowStore& store, const FigmaAccess& access, std::ostream& out) {
    expectArguments(inv, 2, "sync FOLDER");
    const std::string& folder = inv.arguments[1];
    const FlowMeta meta = store.meta(folder);
    KeychainStore keychain;
    const auto token = FigmaAuth::token(secretsOf(access, keychain));
    if (!token)
        throw LibraryError(FigmaSyncService::kNoToken);
    FigmaAPI api(*token, access.baseURL.empty() ? FigmaAPI::configuredBaseURL() : access.baseURL);
    const FigmaSyncResult result = FigmaCommentSync::run(meta, api, store.figmaPersistence(folder));
    out << resultText(result) << "\n";
    return std::holds_alternative<FigmaSyncError>(result) ? kFailed : kSuccess;
}

// The token comes on standard input, never as an argument, where other users could read it.
int token(const Invocation& inv, const FigmaAccess& access, std::ostream& out) {
    const bool clear = inv.arguments.size() == 2 && inv.arguments[1] == "--clear";
    if (inv.arguments.size() != 1 && !clear)
        throw UsageError("usage: figma token [--clear] (the token is read from standard input)");
    KeychainStore keychain;
    SecretStore& secrets = secretsOf(access, keychain);
    if (clear) {
        FigmaAuth::setToken("", secrets);
        out << "The Figma token was removed from the keychain.\n";
        return kSuccess;
    }
    std::istream& in = access.in ? *access.in : std::cin;
    if (!access.in && isatty(STDIN_FILENO))
        std::cerr << "Paste your Figma personal access token, then press Enter: " << std::flush;
    std::string line;
    std::getline(in, line);
    if (Text::trimmed(line).empty())
        throw LibraryError("No token on standard input; nothing was stored.");
    FigmaAuth::setToken(line, secrets);
    if (!FigmaAuth::token(secrets))
        throw LibraryError("The keychain did not keep the token.");
    out << "The Figma token is stored in the keychain.\n";
    return kSuccess;
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
    if (sub == "token")
        return token(inv, access, out);
    if (sub == "plugin")
        return plugin(inv, out);
    throw UsageError("figma needs export, link, sync, token or plugin");
}

} // namespace varnel::cli
