#include "figma/FigmaCommentSync.h"

#include "figma/FigmaBoardIndex.h"
#include "figma/FigmaCommentPlanner.h"
#include "figma/FigmaCommentPublisher.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaThreadAssembler.h"
#include "figma/HttpClient.h"

#include <set>

namespace varnel {

std::string resultText(const FigmaSyncResult& result) {
    if (const auto* summary = std::get_if<PublishSummary>(&result))
        return summary->text();
    return std::get<FigmaSyncError>(result).message();
}

namespace FigmaCommentSync {

namespace {

struct Board {
    FigmaNode tree; // keeps the found root alive
    FigmaBoardIndex::Root root;
};

std::optional<Board> search(FigmaNode tree, const std::string& flowId) {
    Board board{std::move(tree), {}};
    const auto root = FigmaBoardIndex::findRoot(board.tree, flowId);
    if (!root)
        return std::nullopt;
    board.root = *root;
    return board;
}

std::optional<Board> findBoard(FigmaCommentAPI& api, const std::string& key,
                               const std::optional<std::string>& nodeId,
                               const std::string& flowId) {
    if (nodeId)
        if (auto board = search(api.file(key, *nodeId), flowId))
            return board;
    return search(api.file(key, 2), flowId);
}

FigmaNode boardSubtree(FigmaCommentAPI& api, const std::string& key, const Board& board,
                       const std::string& flowId) {
    if (auto subtree = api.nodes(key, board.root.node->id))
        return std::move(*subtree);
    if (auto deep = search(api.file(key, 6), flowId))
        return *deep->root.node;
    return *board.root.node;
}

std::vector<FigmaCommentPlanner::Screen> screensOf(const FlowMeta& meta) {
    std::vector<FigmaCommentPlanner::Screen> screens;
    for (const auto& screen : meta.screens)
        screens.push_back({screen.filename, screen.pins()});
    return screens;
}

// The account whose comments may be adopted; when it can't be read, a comment with the pin's
// text at the pin's exact place is taken as the pin's post whoever wrote it, rather than posting
// the pin twice.
std::optional<std::string> accountId(FigmaCommentAPI& api) {
    try {
        return api.me().id;
    } catch (const Http::Cancelled&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void checkStop(const std::atomic<bool>* stop) {
    if (stop && *stop)
        throw Http::Cancelled();
}

} // namespace

FigmaSyncResult run(const FlowMeta& meta, FigmaCommentAPI& api,
                    const FigmaPublishPersistence& persistence, const std::atomic<bool>* stop) {
    const std::string link = meta.figmaFileURL.value_or("");
    const auto key = FigmaFileLink::key(link);
    if (!key)
        return FigmaSyncError{FigmaSyncError::Kind::badFileURL, "no file key in the link"};
    try {
        checkStop(stop);
        const auto board = findBoard(api, *key, FigmaFileLink::nodeId(link), meta.id);
        if (!board)
            return FigmaSyncError{FigmaSyncError::Kind::boardNotFound,
                                  "no board tagged " + meta.id};
        const auto imported = FigmaBoardIndex::importedAt(*board->root.node);
        if (meta.screensRenumberedAt && imported && *imported < *meta.screensRenumberedAt)
            return FigmaSyncError{FigmaSyncError::Kind::screensChanged,
                                  "board older than the screens"};

        checkStop(stop);
        const FigmaNode subtree = boardSubtree(api, *key, *board, meta.id);
        const FigmaBoardGeometry geometry = FigmaBoardIndex::geometry(subtree, board->root.pageId);
        checkStop(stop);
        const auto refs = api.comments(*key);
        const auto screens = screensOf(meta);
        const auto pending = meta.figmaPendingDeletes.value_or(std::vector<std::string>{});
        FigmaCommentPlan plan = FigmaCommentPlanner::plan(
            screens, pending, FigmaCommentPlanner::FileState::of(*key, refs), geometry);
        if (FigmaCommentPlanner::adopts(plan)) {
            checkStop(stop);
            if (auto account = accountId(api))
                plan = FigmaCommentPlanner::plan(
                    screens, pending, FigmaCommentPlanner::FileState::of(*key, refs, account),
                    geometry);
        }

        std::set<std::string> posted;
        for (const auto& screen : meta.screens)
            for (const auto& pin : screen.pins())
                if (pin.postedId)
                    posted.insert(*pin.postedId);
        // Pins posted by this run are local pins' comments too.
        FigmaPublishPersistence recording = persistence;
        recording.markPosted = [&](const std::string& file, const std::string& pin,
                                   const std::string& id, const std::string& signature,
                                   const std::string& fileKey) {
            persistence.markPosted(file, pin, id, signature, fileKey);
            posted.insert(id);
        };
        PublishSummary summary = FigmaCommentPublisher(api, recording, stop).publish(*key, plan);
        if (summary.stopped)
            return summary;

        const auto pulled = api.comments(*key);
        checkStop(stop);
        const FigmaThreadAssembly assembly =
            FigmaThreadAssembler::assemble(pulled, geometry, posted);
        persistence.saveThreads(assembly.threads);
        summary.commentsElsewhere = assembly.commentsElsewhere;
        return summary;
    } catch (const Http::Cancelled&) {
        PublishSummary stopped;
        stopped.stopped = true;
        return stopped;
    } catch (...) {
        return FigmaSyncError::from(std::current_exception());
    }
}

} // namespace FigmaCommentSync

} // namespace varnel
