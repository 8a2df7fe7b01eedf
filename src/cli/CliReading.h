#pragma once

#include "cli/CliSupport.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace varnel {
class FlowStore;
}

namespace varnel::cli {

// `list`: the flows of the library, one a line.
int list(const Invocation& inv, FlowStore& store, std::ostream& out);
// `check`: the library's broken invariants; kCheckFailed when there are any.
int check(const Invocation& inv, FlowStore& store, std::ostream& out);

// Runs what needs no more than the store: help, `list` and `check`. Nothing when the command
// is another one, which the full command set runs.
std::optional<int> runReading(const std::vector<std::string>& args, std::ostream& out,
                              std::ostream& err);

} // namespace varnel::cli
