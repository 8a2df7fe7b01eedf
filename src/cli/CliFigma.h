#pragma once

#include "cli/CliSupport.h"

#include <iosfwd>
#include <string>

namespace varnel {
class FlowStore;
class SecretStore;
} // namespace varnel

namespace varnel::cli {

// Where `figma publish` finds the token and Figma; the command's own are the keychain and
// https://api.figma.com.
struct FigmaAccess {
    SecretStore* secrets = nullptr;
    std::string baseURL;
};

// `figma export FOLDER`, `figma link FOLDER URL`, `figma sync FOLDER` (or `figma publish`).
int figma(Invocation& inv, FlowStore& store, const FigmaAccess& access, std::ostream& out);

} // namespace varnel::cli
