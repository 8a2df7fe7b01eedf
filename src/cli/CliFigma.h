#pragma once

#include "cli/CliSupport.h"

#include <iosfwd>
#include <istream>
#include <string>

namespace varnel {
class FlowStore;
class SecretStore;
} // namespace varnel

namespace varnel::cli {

// Where `figma sync` finds the token and Figma, and `figma token` reads; the command's own are
// the keychain, VARNEL_FIGMA_API or https://api.figma.com, and standard input.
struct FigmaAccess {
    SecretStore* secrets = nullptr;
    std::string baseURL;
    std::istream* in = nullptr;
};

// `figma export FOLDER`, `figma link FOLDER URL`, `figma sync FOLDER` (or `figma publish`),
// `figma token [--clear]`, `figma plugin DIR`.
int figma(Invocation& inv, FlowStore& store, const FigmaAccess& access, std::ostream& out);

} // namespace varnel::cli
