#pragma once

#include "comments/ScreenComment.h"
#include "figma/FigmaBoardIndex.h"
#include "figma/FigmaRecords.h"

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace varnel {

// One step of a publish.
struct FigmaCommentOp {
    struct Delete {
        std::string commentId; // in Figma
        bool operator==(const Delete&) const = default;
    };
    struct Post {
        std::string filename;
        std::string commentId; // the local pin's id
        std::string message;
        std::string signature;
        FigmaClientMeta meta;
        bool operator==(const Post&) const = default;
    };
    struct RemoveLocal {
        std::string filename;
        std::string commentId; // the local pin's id
        std::string reason;
        bool operator==(const RemoveLocal&) const = default;
    };
    std::variant<Delete, Post, RemoveLocal> value;
    bool operator==(const FigmaCommentOp&) const = default;
};

struct FigmaCommentPlan {
    struct Skip {
        std::string filename;
        std::string commentId;
        std::string reason;
        bool operator==(const Skip&) const = default;
    };
    std::vector<FigmaCommentOp> operations;
    std::vector<Skip> skips;

    int skipped() const { return static_cast<int>(skips.size()); }
};

// Decides what a publish sends, from the flow's pins and what Figma holds now. No I/O.
namespace FigmaCommentPlanner {

struct Screen {
    std::string filename;
    std::vector<ScreenComment> pins;
};

// Figma comment id -> the node it is anchored on (none for a comment without one).
using Existing = std::map<std::string, std::optional<std::string>>;

// Local removals first, then posts, then deletes; each group in screen and pin order. A repost
// posts before it deletes the old comment, so a failure between the two never loses a pin.
FigmaCommentPlan plan(const std::vector<Screen>& screens,
                      const std::vector<std::string>& pendingDeletes, const Existing& existing,
                      const FigmaBoardGeometry& geometry);

// Where a pin at (px, py) of a screen box is anchored: an offset from the board's root.
FigmaClientMeta anchor(const FigmaBoardGeometry& geometry, const FigmaBox& screen, double px,
                       double py);

} // namespace FigmaCommentPlanner

} // namespace varnel
