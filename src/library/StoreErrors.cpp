#include "library/StoreErrors.h"

namespace varnel {

EmptyFlowCreationError::EmptyFlowCreationError(Case c)
    : LibraryError(c == Case::missingApplication ? "The flow needs an application name."
                                                 : "The flow needs a name."),
      case_(c) {}

EmptyFlowRollbackError::EmptyFlowRollbackError(std::string persistence, std::string cleanup,
                                               std::filesystem::path folder)
    : LibraryError("Failed to save the flow and remove its folder at " + folder.string() + ". " +
                   "Save error: " + persistence + " " + "Cleanup error: " + cleanup),
      persistenceError(std::move(persistence)), cleanupError(std::move(cleanup)),
      folderURL(std::move(folder)) {}

EmptyFlowFolderStillExistsError::EmptyFlowFolderStillExistsError(std::filesystem::path folder)
    : LibraryError("The flow folder still exists at " + folder.string() + " after cleanup."),
      folderURL(std::move(folder)) {}

FlowDeletionRollbackError::FlowDeletionRollbackError(std::filesystem::path original,
                                                     std::filesystem::path quarantine,
                                                     std::string indexError, std::string moveError)
    : LibraryError("Failed to update the flow index and move quarantined data back to " +
                   original.string() + ". Recoverable data remains at " + quarantine.string() +
                   ". " + "Index error: " + indexError + " " + "Move rollback error: " + moveError),
      originalFolderURL(std::move(original)), quarantineURL(std::move(quarantine)),
      indexWriteError(std::move(indexError)), moveRollbackError(std::move(moveError)) {}

FlowDeletionCleanupError::FlowDeletionCleanupError(std::filesystem::path quarantine,
                                                   std::string cleanup)
    : LibraryError("The flow was removed from the index, but its quarantined data could not be " +
                   std::string("fully removed at ") + quarantine.string() + ". " +
                   "Cleanup error: " + cleanup),
      quarantineURL(std::move(quarantine)), cleanupError(std::move(cleanup)) {}

} // namespace varnel
