#include "ui/GalleryContent.h"

#include "archive/AppArchive.h"
#include "organization/LibraryGrouping.h"

#include <algorithm>
#include <map>

namespace varnel {

std::string applicationOf(const FlowSummary& summary) {
    return summary.application.value_or(std::string(AppArchive::kSansApplication));
}

std::vector<std::string> shownApplications(const std::vector<FlowSummary>& summaries) {
    std::vector<std::string> applications = LibraryGrouping::applications(summaries);
    const std::string sans(AppArchive::kSansApplication);
    const bool someWithout = std::any_of(summaries.begin(), summaries.end(),
                                         [](const FlowSummary& s) { return !s.application; });
    if (someWithout &&
        std::find(applications.begin(), applications.end(), sans) == applications.end())
        applications.push_back(sans);
    return applications;
}

GalleryContent GalleryContent::make(const std::vector<FlowSummary>& summaries,
                                    const std::vector<std::string>& categoryOrder,
                                    const std::optional<std::string>& application) {
    std::map<std::string, std::vector<FlowSummary>> byApplication;
    for (const auto& flow : summaries)
        byApplication[applicationOf(flow)].push_back(flow);

    const std::vector<std::string> applications =
        application ? std::vector<std::string>{*application} : shownApplications(summaries);

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
