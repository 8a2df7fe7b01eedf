#include "ui/GalleryContent.h"

#include "library/AppArchive.h"
#include "organization/LibraryGrouping.h"

#include <algorithm>
#include <map>

namespace varnel {

std::string applicationOf(const FlowSummary& summary) {
    return summary.application.value_or(std::string(AppArchive::kSansApplication));
}

GalleryContent GalleryContent::make(const std::vector<FlowSummary>& summaries,
                                    const std::vector<std::string>& categoryOrder,
                                    const std::optional<std::string>& application) {
    std::map<std::string, std::vector<FlowSummary>> byApplication;
    for (const auto& flow : summaries)
        byApplication[applicationOf(flow)].push_back(flow);

    std::vector<std::string> applications;
    if (application) {
        applications.push_back(*application);
    } else {
        applications = LibraryGrouping::applications(summaries);
        // Flows without an application come after the named ones.
        const std::string sans(AppArchive::kSansApplication);
        if (byApplication.contains(sans) &&
            std::find(applications.begin(), applications.end(), sans) == applications.end())
            applications.push_back(sans);
    }

    GalleryContent content;
    for (const auto& app : applications) {
        const auto flows = byApplication.find(app);
        if (flows == byApplication.end())
            continue;
        if (!application)
            content.rows.push_back({GalleryRow::Kind::application, app, 0, app});
        for (auto& group : LibraryGrouping::group(flows->second, categoryOrder)) {
            content.rows.push_back({GalleryRow::Kind::category, group.name, 0, app});
            for (auto& flow : group.flows) {
                content.rows.push_back(
                    {GalleryRow::Kind::flow, flow.name, content.flows.size(), app});
                content.flows.push_back(std::move(flow));
            }
        }
    }
    return content;
}

std::optional<std::size_t> GalleryContent::rowOfFlow(const std::string& folderName) const {
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (rows[i].kind == GalleryRow::Kind::flow && flows[rows[i].flow].folderName == folderName)
            return i;
    return std::nullopt;
}

std::optional<std::size_t> GalleryContent::rowOfCategory(const std::string& application,
                                                         const std::string& category) const {
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (rows[i].kind == GalleryRow::Kind::category && rows[i].application == application &&
            rows[i].title == category)
            return i;
    return std::nullopt;
}

} // namespace varnel
