#include "text/SearchCache.h"

#include "library/LibraryLayout.h"
#include "text/OCRSidecar.h"
#include "text/SearchFold.h"

#include <sqlite3.h>

#include <sys/stat.h>

#include <chrono>
#include <cmath>

namespace varnel {

namespace {

// A file changed twice within the clock's step keeps its time and may keep its size: a stamp
// this young is stored but not trusted, and the flow is read again next time.
constexpr std::int64_t kRacyNs = 2'000'000'000;

class Statement {
public:
    Statement(sqlite3* db, const char* sql) {
        sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr);
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    explicit operator bool() const { return statement_ != nullptr; }
    Statement& bind(int index, std::int64_t value) {
        sqlite3_bind_int64(statement_, index, value);
        return *this;
    }
    Statement& bind(int index, double value) {
        sqlite3_bind_double(statement_, index, value);
        return *this;
    }
    Statement& bind(int index, std::string_view text) {
        sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bindNull(int index) {
        sqlite3_bind_null(statement_, index);
        return *this;
    }
    bool step() { return sqlite3_step(statement_) == SQLITE_ROW; }
    bool run() {
        const int result = sqlite3_step(statement_);
        sqlite3_reset(statement_);
        return result == SQLITE_DONE;
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
    double real(int column) const { return sqlite3_column_double(statement_, column); }
    bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    std::string text(int column) const {
        const auto* bytes = sqlite3_column_text(statement_, column);
        return bytes
                   ? std::string(reinterpret_cast<const char*>(bytes),
                                 static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                   : std::string();
    }

private:
    sqlite3_stmt* statement_ = nullptr;
};

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

std::optional<SearchCache::Stamp> SearchCache::stampOf(const std::filesystem::path& flowFolder) {
    // Plain strings: a search stamps every flow of the library.
    std::string path = flowFolder.native();
    if (!path.ends_with('/'))
        path += '/';
    const std::size_t folderSize = path.size();
    struct stat info {};
    if (::stat(path.append(LibraryLayout::kMetaFile).c_str(), &info) != 0)
        return std::nullopt;
    Stamp stamp;
    stamp.metaTime = nanoseconds(info.st_mtim);
    stamp.metaSize = info.st_size;
    path.resize(folderSize);
    if (::stat(path.append(LibraryLayout::kOCRFile).c_str(), &info) == 0) {
        stamp.ocrTime = nanoseconds(info.st_mtim);
        stamp.ocrSize = info.st_size;
    }
    return stamp;
}

SearchCache::SearchCache(const std::filesystem::path& root, bool writable) : root_(root) {
    const auto file = root / kFileName;
    const int flags = writable ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    if (!writable && !std::filesystem::exists(file))
        return;
    if (sqlite3_open_v2(file.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        sqlite3_close(db_);
        db_ = nullptr;
        return;
    }
    // Another process (the command line, the app) may be writing: wait for it a little.
    sqlite3_busy_timeout(db_, 2000);
    int version = -1;
    {
        Statement read(db_, "SELECT value FROM info WHERE key = 'version'");
        if (read && read.step())
            version = static_cast<int>(read.integer(0));
    }
    if (version == kVersion)
        return;
    if (!writable) {
        sqlite3_close(db_);
        db_ = nullptr;
        return;
    }
    create();
}

SearchCache::~SearchCache() {
    sqlite3_close(db_);
}

bool SearchCache::exec(const char* sql) const {
    return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void SearchCache::create() {
    // A cache of another version, or a file that isn't one, is started afresh.
    const bool made =
        exec("PRAGMA journal_mode = WAL") && exec("DROP TABLE IF EXISTS info") &&
        exec("DROP TABLE IF EXISTS flows") && exec("DROP TABLE IF EXISTS screens") &&
        exec("CREATE TABLE info (key TEXT PRIMARY KEY, value INTEGER)") &&
        exec("CREATE TABLE flows (folder TEXT PRIMARY KEY, meta_time INTEGER, meta_size INTEGER,"
             " ocr_time INTEGER, ocr_size INTEGER, images INTEGER, videos INTEGER,"
             " trusted INTEGER, screens TEXT)") &&
        exec("DROP TABLE IF EXISTS folded") &&
        exec("CREATE TABLE screens (folder TEXT, file TEXT, read_at REAL, text TEXT,"
             " PRIMARY KEY (folder, file)) WITHOUT ROWID") &&
        // The text as search compares it, apart so that a search scans nothing else.
        exec("CREATE TABLE folded (folder TEXT, file TEXT, text TEXT,"
             " PRIMARY KEY (folder, file)) WITHOUT ROWID");
    Statement version(db_, "INSERT INTO info VALUES ('version', ?)");
    if (!made || !version || !version.bind(1, std::int64_t{kVersion}).run()) {
        sqlite3_close(db_);
        db_ = nullptr;
        std::error_code ignored;
        std::filesystem::remove(root_ / kFileName, ignored);
    }
}

bool SearchCache::picturesChanged(const std::filesystem::path& flowFolder,
                                  const OCRIndex::Derived& derived) {
    for (const auto& [file, readAt] : derived.stills) {
        if (!readAt)
            return true;
        if (const auto time = modificationTime(flowFolder / file); time && *time != *readAt)
            return true;
    }
    return false;
}

std::map<std::string, OCRIndex::Derived>
SearchCache::load(const std::vector<std::string>& folders) const {
    return read(folders, nullptr);
}

std::map<std::string, OCRIndex::Derived>
SearchCache::loadMatching(const std::vector<std::string>& folders,
                          const std::string& foldedQuery) const {
    return read(folders, &foldedQuery);
}

std::map<std::string, OCRIndex::Derived> SearchCache::read(const std::vector<std::string>& folders,
                                                           const std::string* foldedQuery) const {
    std::map<std::string, OCRIndex::Derived> found;
    if (!db_)
        return found;
    std::map<std::string, Stamp> wanted;
    for (const auto& folder : folders)
        if (LibraryLayout::isSafeFolderName(folder))
            if (const auto stamp = stampOf(root_ / folder))
                wanted.emplace(folder, *stamp);
    // One read transaction: the rows agree with each other.
    exec("BEGIN");
    {
        Statement flows(db_, "SELECT folder, meta_time, meta_size, ocr_time, ocr_size, images,"
                             " videos, trusted, screens FROM flows");
        while (flows && flows.step()) {
            const auto stamp = wanted.find(flows.text(0));
            const Stamp cached{flows.integer(1), flows.integer(2), flows.integer(3),
                               flows.integer(4)};
            if (stamp == wanted.end() || !(stamp->second == cached) || flows.integer(7) == 0)
                continue;
            OCRIndex::Derived& flow = found[stamp->first];
            flow.media = {static_cast<int>(flows.integer(5)), static_cast<int>(flows.integer(6))};
            // One file name a line: names never hold a line break.
            const std::string screens = flows.text(8);
            for (std::size_t at = 0; at < screens.size();) {
                const std::size_t end = std::min(screens.find('\n', at), screens.size());
                flow.order.push_back(screens.substr(at, end - at));
                at = end + 1;
            }
        }
    }
    {
        Statement screens(db_, foldedQuery ? "SELECT folder, file, NULL, text FROM folded"
                                             " WHERE instr(text, ?) > 0 ORDER BY folder"
                                           : "SELECT folder, file, read_at, text FROM screens"
                                             " ORDER BY folder");
        if (foldedQuery)
            screens.bind(1, *foldedQuery);
        auto flow = found.end();
        // An empty query holds no screen's text.
        while (screens && !(foldedQuery && foldedQuery->empty()) && screens.step()) {
            const std::string folder = screens.text(0);
            if (flow == found.end() || flow->first != folder)
                flow = found.find(folder);
            if (flow == found.end())
                continue;
            std::string file = screens.text(1);
            if (!LibraryLayout::isSafeFileName(file))
                continue;
            if (foldedQuery) {
                flow->second.text.emplace(std::move(file), screens.text(3));
                continue;
            }
            if (screens.isNull(2)) {
                flow->second.stills.emplace(std::move(file), std::nullopt);
                continue;
            }
            flow->second.text.emplace(file, screens.text(3));
            flow->second.stills.emplace(std::move(file), screens.real(2));
        }
    }
    exec("COMMIT");
    return found;
}

void SearchCache::store(const std::string& folder, const Stamp& stamp,
                        const OCRIndex::Derived& derived) {
    if (!db_)
        return;
    const bool trusted = stamp.metaTime < now() - kRacyNs && stamp.ocrTime < now() - kRacyNs;
    exec("BEGIN IMMEDIATE");
    Statement clear(db_, "DELETE FROM screens WHERE folder = ?");
    Statement clearFolded(db_, "DELETE FROM folded WHERE folder = ?");
    Statement flow(db_, "INSERT OR REPLACE INTO flows VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    std::string screens;
    for (const auto& file : derived.order)
        screens += (screens.empty() ? "" : "\n") + file;
    Statement screen(db_, "INSERT INTO screens VALUES (?, ?, ?, ?)");
    Statement folded(db_, "INSERT INTO folded VALUES (?, ?, ?)");
    bool stored = clear && clearFolded && flow && screen && folded && clear.bind(1, folder).run() &&
                  clearFolded.bind(1, folder).run();
    stored = stored && flow.bind(1, folder)
                           .bind(2, stamp.metaTime)
                           .bind(3, stamp.metaSize)
                           .bind(4, stamp.ocrTime)
                           .bind(5, stamp.ocrSize)
                           .bind(6, std::int64_t{derived.media.images})
                           .bind(7, std::int64_t{derived.media.videos})
                           .bind(8, std::int64_t{trusted})
                           .bind(9, screens)
                           .run();
    for (const auto& [file, readAt] : derived.stills) {
        if (!stored)
            break;
        screen.bind(1, folder).bind(2, file);
        const auto text = derived.text.find(file);
        if (readAt && text != derived.text.end())
            screen.bind(3, *readAt).bind(4, text->second);
        else
            screen.bindNull(3).bindNull(4);
        stored = screen.run();
        if (stored && readAt && text != derived.text.end())
            stored =
                folded.bind(1, folder).bind(2, file).bind(3, SearchFold::fold(text->second)).run();
    }
    exec(stored ? "COMMIT" : "ROLLBACK");
}

void SearchCache::keepOnly(const std::vector<std::string>& folders) {
    if (!db_)
        return;
    exec("BEGIN IMMEDIATE");
    exec("CREATE TEMP TABLE IF NOT EXISTS present (folder TEXT PRIMARY KEY)");
    exec("DELETE FROM present");
    Statement add(db_, "INSERT OR IGNORE INTO present VALUES (?)");
    for (const auto& folder : folders)
        if (add)
            add.bind(1, folder).run();
    exec("DELETE FROM flows WHERE folder NOT IN (SELECT folder FROM present)");
    exec("DELETE FROM screens WHERE folder NOT IN (SELECT folder FROM present)");
    exec("DELETE FROM folded WHERE folder NOT IN (SELECT folder FROM present)");
    exec("COMMIT");
}

} // namespace varnel
