#pragma once

#include "comments/ScreenComment.h"
#include "figma/FigmaBoardIndex.h"
#include "figma/FigmaRecords.h"

#include <map>
#include <optional>
#include <set>
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
    // A comment already in the file is the pin's post (a run stopped before it was recorded):
    // record it instead of posting the pin a second time.
    struct Adopt {
        std::string filename;
        std::string commentId; // the local pin's id
        std::string figmaCommentId;
        std::string signature;
        bool operator==(const Adopt&) const = default;
    };
    struct RemoveLocal {
        std::string filename;
        std::string commentId; // the local pin's id
        std::string reason;
        bool operator==(const RemoveLocal&) const = default;
    };
    // A queued delete that is not sent, because others replied in the thread.
    struct Keep {
        std::string commentId; // in Figma
        bool operator==(const Keep&) const = default;
    };
    std::variant<Delete, Post, Adopt, RemoveLocal, Keep> value;
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
    // Changed pins left as they are in Figma, because others replied in their threads.
    std::vector<Skip> kept;

    int skipped() const { return static_cast<int>(skips.size()); }
};

// Decides what a publish sends, from the flow's pins and what Figma holds now. No I/O.
namespace FigmaCommentPlanner {

inline constexpr const char* kNotOnBoard = "screen not on the board";
inline constexpr const char* kOthersReplied = "others replied in Figma";

struct Screen {
    std::string filename;
    std::vector<ScreenComment> pins;
};

// What the linked file holds now, as far as a plan needs it.
struct FileState {
    struct Comment {
        std::optional<std::string> nodeId; // the anchor, none for a comment without one
        std::optional<double> offsetX;
        std::optional<double> offsetY;
        std::string message;
        std::optional<std::string> authorId;
        bool othersReplied = false; // a reply by someone other than the comment's author
    };
    std::string fileKey;
    std::map<std::string, Comment> comments; // top-level comments by id
    // The signed-in account, when known: only its comments are adopted.
    std::optional<std::string> accountId;

    static FileState of(std::string fileKey, const std::vector<FigmaCommentRef>& refs,
                        std::optional<std::string> accountId = std::nullopt);
};

// Local removals first, then posts and adoptions, then deletes; each group in screen and pin
// order. A repost posts before it deletes the old comment, so a failure between the two never
// loses a pin. A pin posted to another file is this file's unpublished pin; a thread in which
// others replied is never deleted, whatever the pin's record says.
FigmaCommentPlan plan(const std::vector<Screen>& screens,
                      const std::vector<std::string>& pendingDeletes, const FileState& file,
                      const FigmaBoardGeometry& geometry);

// Where a pin at (px, py) of a screen box is anchored: an offset from the board's root.
FigmaClientMeta anchor(const FigmaBoardGeometry& geometry, const FigmaBox& screen, double px,
                       double py);

// Whether the plan adopts anything, so that knowing the account would narrow it.
bool adopts(const FigmaCommentPlan& plan);

} // namespace FigmaCommentPlanner

} // namespace varnel
