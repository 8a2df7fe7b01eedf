#pragma once

#include "library/Errors.h"

#include <filesystem>

namespace varnel {

class EmptyFlowCreationError : public LibraryError {
public:
    enum class Case { missingApplication, missingName };
    explicit EmptyFlowCreationError(Case c);
    Case errorCase() const { return case_; }

private:
    Case case_;
};

class EmptyFlowRollbackError : public LibraryError {
public:
    EmptyFlowRollbackError(std::string persistenceError, std::string cleanupError,
                           std::filesystem::path folderURL);
    std::string persistenceError;
    std::string cleanupError;
    std::filesystem::path folderURL;
};

class EmptyFlowFolderStillExistsError : public LibraryError {
public:
    explicit EmptyFlowFolderStillExistsError(std::filesystem::path folderURL);
    std::filesystem::path folderURL;
};

class FlowDeletionRollbackError : public LibraryError {
public:
    FlowDeletionRollbackError(std::filesystem::path originalFolderURL,
                              std::filesystem::path quarantineURL, std::string indexWriteError,
                              std::string moveRollbackError);
    std::filesystem::path originalFolderURL;
    std::filesystem::path quarantineURL;
    std::string indexWriteError;
    std::string moveRollbackError;
};

class FlowDeletionCleanupError : public LibraryError {
public:
    FlowDeletionCleanupError(std::filesystem::path quarantineURL, std::string cleanupError);
    std::filesystem::path quarantineURL;
    std::string cleanupError;
};

} // namespace varnel
