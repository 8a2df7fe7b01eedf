#include "library/LibraryLayout.h"

#include "library/Errors.h"

namespace varnel::LibraryLayout {
namespace {

constexpr std::size_t kMaxSegment = 255;

const char* segmentProblem(std::string_view segment) {
    if (segment.empty())
        return "it has an empty part";
    if (segment == "." || segment == "..")
        return "it refers to a parent or current folder";
    if (segment.front() == '.')
        return "it names a hidden or private folder";
    if (segment.size() > kMaxSegment)
        return "a part is too long";
    if (segment.find('\0') != std::string_view::npos)
        return "it holds a NUL character";
    return nullptr;
}

const char* folderProblem(std::string_view folderName) {
    if (folderName.empty())
        return "it is empty";
    if (folderName.front() == '/')
        return "it is an absolute path";
    std::size_t start = 0;
    while (true) {
        const auto slash = folderName.find('/', start);
        const auto segment = folderName.substr(start, slash - start);
        if (const char* problem = segmentProblem(segment))
            return problem;
        if (slash == std::string_view::npos)
            return nullptr;
        start = slash + 1;
    }
}

const char* fileProblem(std::string_view filename) {
    if (filename.find('/') != std::string_view::npos)
        return "it holds a “/”";
    if (const char* problem = segmentProblem(filename))
        return problem;
    if (filename == kMetaFile || filename == kIndexFile || filename == kOCRFile)
        return "it is the name of a library file";
    return nullptr;
}

} // namespace

void validateFolderName(std::string_view folderName) {
    if (const char* problem = folderProblem(folderName))
        throw UnsafeNameError(std::string(folderName), problem);
}

void validateFileName(std::string_view filename) {
    if (const char* problem = fileProblem(filename))
        throw UnsafeNameError(std::string(filename), problem);
}

bool isWriteLeftover(std::string_view name) {
    return name.starts_with(".") && (name.ends_with(".tmp") || ((name.starts_with(".bake-") ||
                                                                 name.starts_with(".previous-")) &&
                                                                name.ends_with(".mov")));
}

bool isSafeFolderName(std::string_view folderName) {
    return folderProblem(folderName) == nullptr;
}

bool isSafeFileName(std::string_view filename) {
    return fileProblem(filename) == nullptr;
}

} // namespace varnel::LibraryLayout
