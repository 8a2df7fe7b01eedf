#include "figma/FigmaCommentSync.h"

#include "figma/FigmaBoardIndex.h"
#include "figma/FigmaCommentPlanner.h"
#include "figma/FigmaCommentPublisher.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaThreadAssembler.h"

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

FigmaCommentPlanner::Existing existingOf(const std::vector<FigmaCommentRef>& refs) {
    FigmaCommentPlanner::Existing existing;
    for (const auto& ref : refs)
        existing[ref.id] = ref.nodeId;
    return existing;
}

} // namespace

FigmaSyncResult run(const FlowMeta& meta, FigmaCommentAPI& api,
                    const FigmaPublishPersistence& persistence) {
    const std::string link = meta.figmaFileURL.value_or("");
    const auto key = FigmaFileLink::key(link);
    if (!key)
        return FigmaSyncError{FigmaSyncError::Kind::badFileURL, "no file key in the link"};
    try {
        const auto board = findBoard(api, *key, FigmaFileLink::nodeId(link), meta.id);
        if (!board)
            return FigmaSyncError{FigmaSyncError::Kind::boardNotFound,
                                  "no board tagged " + meta.id};
        const auto imported = FigmaBoardIndex::importedAt(*board->root.node);
        if (meta.screensRenumberedAt && imported && *imported < *meta.screensRenumberedAt)
            return FigmaSyncError{FigmaSyncError::Kind::screensChanged,
                                  "board older than the screens"};

        const FigmaNode subtree = boardSubtree(api, *key, *board, meta.id);
        const FigmaBoardGeometry geometry = FigmaBoardIndex::geometry(subtree, board->root.pageId);
        const FigmaCommentPlan plan = FigmaCommentPlanner::plan(
            screensOf(meta), meta.figmaPendingDeletes.value_or(std::vector<std::string>{}),
            existingOf(api.comments(*key)), geometry);

        std::set<std::string> posted;
        for (const auto& screen : meta.screens)
            for (const auto& pin : screen.pins())
                if (pin.postedId)
                    posted.insert(*pin.postedId);
        // Pins posted by this run are local pins' comments too.
        FigmaPublishPersistence recording = persistence;
        recording.markPosted = [&](const std::string& file, const std::string& pin,
                                   const std::string& id, const std::string& signature) {
            persistence.markPosted(file, pin, id, signature);
            posted.insert(id);
        };
        PublishSummary summary = FigmaCommentPublisher(api, recording).publish(*key, plan);

        const auto pulled = api.comments(*key);
        const FigmaThreadAssembly assembly =
            FigmaThreadAssembler::assemble(pulled, geometry, posted);
        persistence.saveThreads(assembly.threads);
        summary.commentsElsewhere = assembly.commentsElsewhere;
        return summary;
    } catch (...) {
        return FigmaSyncError::from(std::current_exception());
    }
}

} // namespace FigmaCommentSync

} // namespace varnel
