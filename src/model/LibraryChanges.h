#pragma once

#include "model/LibraryHistory.h"
#include "thumbnails/ThumbEdits.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

class FlowLibrary;
struct TrashEntry;

// The window's changes of the library, each made here and returned as what undoes and redoes
// it. Each throws the library's error, having changed nothing it records, when it fails.
namespace LibraryChanges {

using Change = std::unique_ptr<LibraryChange>;

Change reorder(FlowLibrary& library, const std::string& folder,
               const std::vector<std::string>& order);
Change move(FlowLibrary& library, const std::string& source, const std::vector<std::string>& files,
            const std::string& target, std::size_t index);
Change deleteScreens(FlowLibrary& library, const std::string& folder,
                     const std::vector<std::string>& files);
Change deleteFlows(FlowLibrary& library, const std::vector<std::string>& folders,
                   const std::string& name);
Change renameScreen(FlowLibrary& library, const std::string& folder, const std::string& file,
                    const std::string& newName);
Change renameFlow(FlowLibrary& library, const std::string& folder, const std::string& newName);
// Files the flow under another application and category.
Change refile(FlowLibrary& library, const std::string& folder,
              const std::optional<std::string>& application,
              const std::optional<std::string>& category);
Change moveCategory(FlowLibrary& library, const std::string& category,
                    const std::optional<std::string>& before);
Change renameCategory(FlowLibrary& library, const std::string& category,
                      const std::string& newName);
// Puts back what the trash holds.
Change putBack(FlowLibrary& library, const TrashEntry& entry);

// Changes made elsewhere, recorded: screens added to a flow (duplicates, copies, files), a
// flow made.
Change addedScreens(FlowLibrary& library, const std::string& folder,
                    const std::vector<std::string>& added, const std::string& name);
// A flow filed elsewhere by a dialog that saved it itself.
Change refiled(FlowLibrary& library, const std::string& flowId,
               const std::optional<std::string>& application,
               const std::optional<std::string>& category);
Change createdFlow(FlowLibrary& library, const std::string& folder, const std::string& name);
// The names the copies of a duplication have once their flow was renumbered.
std::vector<std::string> copiesMade(const ThumbEdits& edits);
// Several changes as one, undone newest first.
Change together(std::string name, std::vector<Change> changes);

} // namespace LibraryChanges

} // namespace varnel
