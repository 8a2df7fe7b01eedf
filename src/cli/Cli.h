#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace varnel::cli {

enum ExitCode : int {
    kSuccess = 0,
    kFailed = 1,     // the operation failed; stderr says why
    kUsage = 2,      // the command line is wrong
    kCheckFailed = 3 // `check` found broken invariants
};

struct FigmaAccess;

// Runs one varnel-cli command (arguments without the program name).
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
// The same, reaching Figma where `figmaAccess` says.
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        const FigmaAccess& figmaAccess);

} // namespace varnel::cli
