#pragma once

#include "cli/Cli.h"

#include <sstream>
#include <string>
#include <vector>

namespace varnel::test {

// What one run of the command printed and returned.
struct CliResult {
    int code;
    std::string out;
    std::string err;
};

// Runs the command in-process, on `library` when one is given.
inline CliResult runCli(std::vector<std::string> args, const std::string& library = {}) {
    if (!library.empty())
        args.insert(args.begin(), {"--library", library});
    std::ostringstream out, err;
    const int code = cli::run(args, out, err);
    return {code, out.str(), err.str()};
}

} // namespace varnel::test
