#pragma once

#include <string>

namespace varnel {

// What one publish did, for the flow's band.
struct PublishSummary {
    int posted = 0;
    int deleted = 0;
    int removedLocally = 0;
    int commentsElsewhere = 0;
    int skipped = 0;
    int failures = 0;
    int kept = 0;         // changes not sent, because others replied in those threads
    bool stopped = false; // the run ended before its work was done

    bool operator==(const PublishSummary&) const = default;

    // "2 posted · 1 failed — publish again to retry", or "Nothing to publish".
    std::string text() const;
};

} // namespace varnel
