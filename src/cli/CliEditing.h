#pragma once

#include "cli/CliSupport.h"
#include "editing/RedactRecords.h"

#include <iosfwd>

namespace varnel {
class FlowStore;
}

namespace varnel::cli {

// `redact FOLDER FILE --zone rect|ellipse:x,y,w,h ... [--preset light|dark]`: the screen's zones
// become these and are baked into the still or clip, as saving them in the editor does.
int redact(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err);
// `revert FOLDER FILE`: throws a screen's edits away and puts its original back.
int revert(Invocation& inv, FlowStore& store, std::ostream& out);

// One "--zone" value; throws UsageError when malformed or outside 0..1.
RedactShape parseZone(const std::string& text);

} // namespace varnel::cli
