#include "cli/CliText.h"

#include "cli/Cli.h"

#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/ScreenFiles.h"
#include "text/ApertiumEngine.h"
#include "text/LibrarySearch.h"
#include "text/LibreTranslateEngine.h"
#include "text/OCRIndex.h"
#include "text/OCRSidecar.h"
#include "text/ScreenOCR.h"
#include "text/ScreenTranslator.h"
#include "text/SearchCache.h"
#include "text/SearchFold.h"

#include <map>
#include <memory>
#include <optional>
#include <ostream>

namespace varnel::cli {

namespace {

std::vector<std::string> folders(const Invocation& inv, const FlowStore& store) {
    if (!inv.arguments.empty())
        return {inv.arguments[0]};
    std::vector<std::string> all;
    for (const auto& flow : store.readIndex().flows)
        all.push_back(flow.folderName);
    return all;
}

} // namespace

int ocr(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err) {
    if (inv.arguments.size() > 1)
        throw UsageError("ocr takes at most one FOLDER");
    const auto chosen = folders(inv, store);
    // One flow that can't be read is reported; the others are still read.
    std::map<std::string, std::string> broken;
    std::size_t left = 0;
    for (const auto& folder : chosen) {
        try {
            left += OCRIndex::staleScreens(store, folder).size();
        } catch (const std::exception& e) {
            broken.emplace(folder, e.what());
        }
    }
    err << "Reading text… " << left << (left == 1 ? " screen" : " screens") << " to read\n";

    std::unique_ptr<ScreenOCR> engine; // loaded only when something needs reading
    const OCRIndex::Recognizer recognize = [&](const fs::path& file) {
        if (!engine)
            engine = std::make_unique<ScreenOCR>();
        return engine->recognize(file);
    };
    SearchCache cache(store.root(), true);
    Json report = Json::array();
    for (const auto& folder : chosen) {
        OCRIndex::Derived derived;
        try {
            if (const auto it = broken.find(folder); it != broken.end())
                throw LibraryError(it->second);
            derived = OCRIndex::derive(store, folder, recognize, [&] {
                --left;
                err << "Reading text… " << left << " left\n";
            });
            if (const auto stamp = SearchCache::stampOf(store.flowURL(folder)))
                cache.store(folder, *stamp, derived);
        } catch (const std::exception& e) {
            broken.insert_or_assign(folder, e.what());
            err << "varnel-cli: " << folder << ": " << e.what() << "\n";
            if (inv.json)
                report.push_back({{"folder", folder}, {"error", e.what()}});
            continue;
        }
        if (inv.json)
            report.push_back({{"folder", folder},
                              {"screensWithText", derived.text.size()},
                              {"images", derived.media.images},
                              {"videos", derived.media.videos}});
        else
            out << folder << "\t" << derived.text.size() << " of " << derived.media.images
                << (derived.media.images == 1 ? " still" : " stills") << " with text\n";
    }
    if (inv.json)
        out << encodeLibraryJson(report);
    return broken.empty() ? kSuccess : kFailed;
}

int search(Invocation& inv, FlowStore& store, std::ostream& out) {
    auto opts = options(inv.arguments, {"--media"});
    if (inv.arguments.size() != 1)
        throw UsageError("search needs one QUERY");
    MediaFilter media = MediaFilter::all;
    if (opts.contains("--media")) {
        const auto chosen = mediaFilter(opts["--media"]);
        if (!chosen)
            throw UsageError("--media is all, images or videos");
        media = *chosen;
    }

    // The text read so far, as the sidecars hold it; no picture is read here. The search cache
    // answers for flows whose files are as it saw them, with only the screens that hold the
    // query; the others' sidecars are read, and cached for next time.
    const LibraryIndex index = store.readIndex();
    std::vector<std::string> folders;
    for (const auto& flow : index.flows)
        folders.push_back(flow.folderName);
    SearchCache cache(store.root(), true);
    std::map<std::string, OCRIndex::Derived> derived =
        cache.loadMatching(folders, SearchFold::fold(inv.arguments[0]));
    for (const auto& folder : folders) {
        if (derived.contains(folder))
            continue;
        try {
            auto read = OCRIndex::derive(store, folder, {}, {}, nullptr, true);
            if (const auto stamp = SearchCache::stampOf(store.flowURL(folder)))
                cache.store(folder, *stamp, read);
            derived.emplace(folder, std::move(read));
        } catch (const std::exception&) {
            // A flow whose meta can't be read isn't searched.
        }
    }
    std::map<std::string, FlowTextIndex> text;
    std::map<std::string, MediaCounts> counts;
    std::map<std::string, std::vector<std::string>> order;
    for (auto& [folder, flow] : derived) {
        counts.emplace(folder, flow.media);
        text.emplace(folder, std::move(flow.text));
        order.emplace(folder, std::move(flow.order));
    }

    const TextSearchIndex textIndex(text);
    LibrarySearch search(textIndex, counts);
    search.setQuery(inv.arguments[0]);
    search.setMedia(media);
    Json found = Json::array();
    for (const auto& flow : index.flows) {
        if (!order.contains(flow.folderName) || !search.matches(flow))
            continue;
        std::vector<ScreenRef> refs;
        for (const auto& file : order.at(flow.folderName)) {
            refs.emplace_back();
            refs.back().filename = file;
        }
        std::set<ScreenID> hits;
        for (const auto& file : search.screenHits(flow))
            hits.insert({flow.folderName, file});
        const auto shown = GalleryScreenFilter::visible(refs, flow.folderName, hits, media);
        Json screens = Json::array();
        for (const auto& screen : shown)
            screens.push_back(screen.screen.filename);
        if (inv.json) {
            found.push_back(
                {{"folder", flow.folderName}, {"name", flow.name}, {"screens", screens}});
            continue;
        }
        out << flow.folderName << "\t" << flow.name << "\n";
        for (const auto& screen : shown)
            out << "  " << screen.screen.filename << "\n";
    }
    if (inv.json)
        out << encodeLibraryJson(found);
    return kSuccess;
}

int translate(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err) {
    auto opts = options(inv.arguments, {"--to", "--server"});
    if (inv.arguments.empty() || inv.arguments.size() > 2 || !opts.contains("--to"))
        throw UsageError("usage: translate FOLDER [FILE] --to LANG [--server URL]");
    const std::string& folder = inv.arguments[0];
    const std::string to = opts["--to"];
    std::vector<std::string> files;
    if (inv.arguments.size() == 2) {
        files.push_back(inv.arguments[1]);
    } else {
        for (const auto& screen : store.meta(folder).screens)
            if (!ScreenFiles::isClip(screen.filename))
                files.push_back(screen.filename);
    }
    // Apertium first (nothing leaves the computer); a server only when the user names one.
    const ApertiumEngine apertium;
    std::vector<const TranslationEngine*> engines{&apertium};
    std::string server = opts.contains("--server") ? opts["--server"] : std::string();
    if (const char* env = std::getenv("VARNEL_TRANSLATION_SERVER"); server.empty() && env)
        server = env;
    std::optional<LibreTranslateEngine> libre;
    if (!server.empty())
        engines.push_back(&libre.emplace(server));

    Json report = Json::array();
    bool failed = false;
    for (const auto& file : files) {
        const auto result = ScreenTranslator::translate(store, folder, file, to, engines);
        Json lines = Json::array();
        if (!inv.json)
            out << file << "\n";
        for (const auto& line : result.lines) {
            if (inv.json) {
                lines.push_back(
                    {{"text", line.text},
                     {"from", line.from ? Json(*line.from) : Json()},
                     {"translation", line.translation ? Json(*line.translation) : Json()},
                     {"stored", line.reused}});
                continue;
            }
            out << "  " << line.text;
            if (line.translation)
                out << "\t→ " << *line.translation;
            out << "\n";
        }
        for (const auto& problem : result.problems)
            err << "varnel-cli: " << file << ": " << problem << "\n";
        failed = failed || !result.problems.empty();
        if (inv.json)
            report.push_back({{"file", file}, {"lines", lines}});
    }
    if (inv.json)
        out << encodeLibraryJson(report);
    return failed ? kFailed : kSuccess;
}

} // namespace varnel::cli
