#pragma once

#include "figma/FigmaCommentAPI.h"
#include "figma/FigmaCommentPlanner.h"
#include "figma/FigmaPublishPersistence.h"
#include "figma/PublishSummary.h"

namespace varnel {

// Carries out a plan one operation at a time, in order, recording each success as it happens.
// A failed operation is counted and the next one goes ahead; nothing is rolled back.
class FigmaCommentPublisher {
public:
    FigmaCommentPublisher(FigmaCommentAPI& api, const FigmaPublishPersistence& persistence)
        : api_(api), persistence_(persistence) {}

    PublishSummary publish(const std::string& fileKey, const FigmaCommentPlan& plan);

private:
    FigmaCommentAPI& api_;
    const FigmaPublishPersistence& persistence_;
};

} // namespace varnel
