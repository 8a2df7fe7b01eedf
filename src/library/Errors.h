#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace varnel {

// Every failure the library reports is one of these: what() is the user-readable description.
class LibraryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    std::string description() const { return what(); }
};

// A file exists but does not hold the record it should.
class DecodingError : public LibraryError {
public:
    DecodingError(const std::filesystem::path& file, const std::string& detail);
    DecodingError(const std::string& what, const std::string& detail);
};

// A file-system operation failed.
class FileError : public LibraryError {
public:
    FileError(const std::string& action, const std::filesystem::path& path, std::error_code ec);
    FileError(const std::string& action, const std::filesystem::path& path,
              const std::string& reason);
    std::error_code code() const { return code_; }

private:
    std::error_code code_;
};

// A folder or file name that could lead outside the library or into its private folders.
class UnsafeNameError : public LibraryError {
public:
    UnsafeNameError(const std::string& name, const std::string& reason);
};

class FlowNotFoundError : public LibraryError {
public:
    explicit FlowNotFoundError(const std::string& folderName);
};

class ScreenNotFoundError : public LibraryError {
public:
    ScreenNotFoundError(const std::string& folderName, const std::string& filename);
};

// A multi-step change failed and could not be undone either; the description says where the
// data lies.
class RollbackError : public LibraryError {
public:
    RollbackError(const std::string& action, const std::string& dataLocation,
                  const std::string& error, const std::string& rollbackError);
};

} // namespace varnel
