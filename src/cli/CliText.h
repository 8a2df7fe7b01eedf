#pragma once

#include "cli/CliSupport.h"

#include <iosfwd>

namespace varnel {
class FlowStore;
}

namespace varnel::cli {

// `ocr [FOLDER]`: reads the text of every still screen whose picture changed since it was last
// read, in one flow or all; how many are left goes to `err`.
int ocr(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err);
// `search QUERY [--media images|videos]`: the flows the gallery would show for the query, each
// with the screens it would show.
int search(Invocation& inv, FlowStore& store, std::ostream& out);
// `translate FOLDER [FILE] --to LANG [--server URL]`: each recognized line of the flow's still
// screens (or of one) and its translation, stored for next time.
int translate(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err);

} // namespace varnel::cli
