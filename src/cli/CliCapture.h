#pragma once

#include "cli/CliSupport.h"

#include <iosfwd>

namespace varnel {
class FlowStore;
}

namespace varnel::cli {

// `sources`: the capture sources as the app's source picker lists them.
int sources(Invocation& inv, std::ostream& out);
// `capture`: one capture session from a source, saved as a flow; prints its folder name.
int capture(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err);

} // namespace varnel::cli
