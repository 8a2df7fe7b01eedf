#pragma once

#include "text/OCRIndex.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace varnel {

// A copy of every flow's search text at the library root, so that a library is searchable as
// soon as it opens, without reading every "ocr.json". It is derived only: the sidecars stay
// the truth. Each flow's rows carry the stamps (modification time and size) of its "meta.json"
// and "ocr.json" when they were read, and rows whose files changed since are not used; a cache
// of another version, or one that can't be read, is started afresh. Deleting it loses nothing.
class SearchCache {
public:
    static constexpr int kVersion = 2;
    static constexpr std::string_view kFileName = ".search-cache.sqlite";

    // What a flow's files looked like when its text was read.
    struct Stamp {
        std::int64_t metaTime = -1, metaSize = -1, ocrTime = -1, ocrSize = -1;
        bool operator==(const Stamp&) const = default;
    };
    // None when the flow's meta can't be looked at.
    static std::optional<Stamp> stampOf(const std::filesystem::path& flowFolder);

    // `writable` false opens an existing cache for reading only and never changes it.
    SearchCache(const std::filesystem::path& root, bool writable);
    ~SearchCache();
    SearchCache(const SearchCache&) = delete;
    SearchCache& operator=(const SearchCache&) = delete;
    bool isOpen() const { return db_ != nullptr; }

    // The flows among `folders` whose rows still describe their files.
    std::map<std::string, OCRIndex::Derived> load(const std::vector<std::string>& folders) const;
    // The same, but with only the screens whose folded text holds `foldedQuery`, each holding
    // its folded text: enough to answer one search without reading every screen's text.
    std::map<std::string, OCRIndex::Derived> loadMatching(const std::vector<std::string>& folders,
                                                          const std::string& foldedQuery) const;
    // Whether a flow must be read again: a still without text, or one whose picture changed
    // since it was read.
    static bool picturesChanged(const std::filesystem::path& flowFolder,
                                const OCRIndex::Derived& derived);
    // Stores a flow's text as just read, with the stamp taken before reading it.
    void store(const std::string& folder, const Stamp& stamp, const OCRIndex::Derived& derived);
    // Forgets the flows not among `folders`.
    void keepOnly(const std::vector<std::string>& folders);

private:
    void create();
    std::map<std::string, OCRIndex::Derived> read(const std::vector<std::string>& folders,
                                                  const std::string* foldedQuery) const;
    bool exec(const char* sql) const;

    std::filesystem::path root_;
    sqlite3* db_ = nullptr;
};

} // namespace varnel
