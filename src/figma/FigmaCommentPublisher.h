#pragma once

#include "figma/FigmaCommentAPI.h"
#include "figma/FigmaCommentPlanner.h"
#include "figma/FigmaPublishPersistence.h"
#include "figma/PublishSummary.h"

#include <atomic>

namespace varnel {

// Carries out a plan one operation at a time, in order, recording each success before the next
// request goes out. A failed request is counted and the next one goes ahead; nothing is rolled
// back. A success that can't be recorded, or a stop, ends the run there.
class FigmaCommentPublisher {
public:
    FigmaCommentPublisher(FigmaCommentAPI& api, const FigmaPublishPersistence& persistence,
                          const std::atomic<bool>* stop = nullptr)
        : api_(api), persistence_(persistence), stop_(stop) {}

    PublishSummary publish(const std::string& fileKey, const FigmaCommentPlan& plan);

private:
    enum class Step { done, failed, stop };
    Step perform(const std::string& fileKey, const FigmaCommentOp& op, PublishSummary& summary);

    FigmaCommentAPI& api_;
    const FigmaPublishPersistence& persistence_;
    const std::atomic<bool>* stop_;
};

} // namespace varnel
