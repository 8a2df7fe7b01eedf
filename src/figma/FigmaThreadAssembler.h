#pragma once

#include "figma/FigmaBoardIndex.h"
#include "figma/FigmaRecords.h"
#include "figma/FigmaThread.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace varnel {

struct FigmaThreadAssembly {
    std::map<std::string, std::vector<FigmaThread>> threads; // by screen file name
    int commentsElsewhere = 0;

    bool operator==(const FigmaThreadAssembly&) const = default;
};

// Groups a file's comments into threads on the board's screens. No I/O.
namespace FigmaThreadAssembler {

// Threads and replies go oldest first (comments without a date last, then by id). A thread's
// place is the inverse of the publish anchor: its point on the canvas, relative to the screen
// box that holds it. Threads of local published pins are kept for their replies (the views
// don't draw them a second time), and are never counted as elsewhere.
FigmaThreadAssembly assemble(const std::vector<FigmaCommentRef>& refs,
                             const FigmaBoardGeometry& geometry,
                             const std::set<std::string>& localPostedIds);

} // namespace FigmaThreadAssembler

} // namespace varnel
