#pragma once

#include "figma/FigmaCommentAPI.h"
#include "figma/FigmaPublishPersistence.h"
#include "figma/FigmaSyncError.h"
#include "figma/PublishSummary.h"
#include "library/FlowMeta.h"

#include <atomic>
#include <variant>

namespace varnel {

using FigmaSyncResult = std::variant<PublishSummary, FigmaSyncError>;

// The line the flow's band shows for a run's result.
std::string resultText(const FigmaSyncResult& result);

// One publish: finds the flow's board in the linked file, sends the local changes, then pulls
// every thread back and stores it. Requests go one after another on the calling thread.
namespace FigmaCommentSync {

// Never throws: an error that stops the run before the publish step changes nothing locally.
// Once `stop` is set the run ends at the next request, with a summary that says so; what it
// did until then is recorded.
FigmaSyncResult run(const FlowMeta& meta, FigmaCommentAPI& api,
                    const FigmaPublishPersistence& persistence,
                    const std::atomic<bool>* stop = nullptr);

} // namespace FigmaCommentSync

} // namespace varnel
