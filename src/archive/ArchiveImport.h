#pragma once

#include "archive/AppArchive.h"
#include "library/FlowStore.h"

#include <string>
#include <vector>

namespace varnel {

struct ImportResult {
    std::string application;          // the application the flows went into
    std::vector<std::string> folders; // folder names of the imported flows
    std::vector<std::string> skipped; // why each skipped flow was skipped
};

// How many flows of an extracted archive the library already holds (same id). Flows whose
// meta can't be read don't count. Throws ArchiveError(inconsistent) when two flows of the
// archive have the same id.
std::size_t countConflicts(const FlowStore& store, const AppArchive::Extracted& extracted);

// Adopts every readable, safe flow of an extracted archive. Each flow comes in whole or not at
// all, so the index only ever lists flows whose files are in place. An archive with two flows
// of the same id is refused (ArchiveError) before anything changes.
ImportResult importExtracted(FlowStore& store, const AppArchive::Extracted& extracted,
                             ImportConflictResolution resolution);

} // namespace varnel
