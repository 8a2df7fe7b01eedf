#pragma once

#include "library/FlowStore.h"

#include <string>
#include <vector>

namespace varnel {

// Verifies the library's invariants: the index matches the flow folders, every flow's screens
// are numbered 1 to N, and every file a meta names is in place. Returns what is broken.
std::vector<std::string> checkLibrary(const FlowStore& store);

} // namespace varnel
