#pragma once

#include "cli/CliSupport.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace varnel::cli {

struct FigmaAccess;

// Runs one varnel-cli command (arguments without the program name).
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
// The same, reaching Figma where `figmaAccess` says.
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        const FigmaAccess& figmaAccess);

} // namespace varnel::cli
