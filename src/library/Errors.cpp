#include "library/Errors.h"

namespace varnel {

DecodingError::DecodingError(const std::filesystem::path& file, const std::string& detail)
    : LibraryError("The data in " + file.string() + " couldn’t be read: " + detail) {}

DecodingError::DecodingError(const std::string& what, const std::string& detail)
    : LibraryError("The " + what + " couldn’t be read: " + detail) {}

FileError::FileError(const std::string& action, const std::filesystem::path& path,
                     std::error_code ec)
    : LibraryError("Couldn’t " + action + " " + path.string() + ": " + ec.message()), code_(ec) {}

FileError::FileError(const std::string& action, const std::filesystem::path& path,
                     const std::string& reason)
    : LibraryError("Couldn’t " + action + " " + path.string() + ": " + reason) {}

UnsafeNameError::UnsafeNameError(const std::string& name, const std::string& reason)
    : LibraryError("The name “" + name + "” can’t be used: " + reason) {}

FlowNotFoundError::FlowNotFoundError(const std::string& folderName)
    : LibraryError("There is no flow at “" + folderName + "”.") {}

ScreenNotFoundError::ScreenNotFoundError(const std::string& folderName, const std::string& filename)
    : LibraryError("The flow “" + folderName + "” has no screen “" + filename + "”.") {}

RollbackError::RollbackError(const std::string& action, const std::string& dataLocation,
                             const std::string& error, const std::string& rollbackError)
    : LibraryError("Failed to " + action + " and to undo the change. Recoverable data remains at " +
                   dataLocation + ". Error: " + error + " Rollback error: " + rollbackError) {}

} // namespace varnel
