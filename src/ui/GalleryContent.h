#pragma once

#include "library/FlowSummary.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel {

// One row of the gallery: a heading, or the band of one flow.
struct GalleryRow {
    enum class Kind { application, category, flow };
    Kind kind = Kind::flow;
    std::string title;       // the heading's text, or the flow's name
    std::size_t flow = 0;    // for a band: its index in GalleryContent::flows
    std::string application; // the application the row belongs to
};

// What the gallery shows for the sidebar's choice: every application under its heading
// ("All"), or one application; within each, the categories in the user's order and their
// flows in index order.
struct GalleryContent {
    std::vector<FlowSummary> flows;
    std::vector<GalleryRow> rows;

    static GalleryContent make(const std::vector<FlowSummary>& summaries,
                               const std::vector<std::string>& categoryOrder,
                               const std::optional<std::string>& application);

    std::optional<std::size_t> rowOfFlow(const std::string& folderName) const;
    // The heading of a category of an application.
    std::optional<std::size_t> rowOfCategory(const std::string& application,
                                             const std::string& category) const;
};

// The application a summary is filed under in the views.
std::string applicationOf(const FlowSummary& summary);

// The applications of the sidebar and of "All": the named ones, then "Sans application" when
// some flow has none.
std::vector<std::string> shownApplications(const std::vector<FlowSummary>& summaries);

} // namespace varnel
