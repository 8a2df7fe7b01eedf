#include "app/ReleaseFeed.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>

namespace varnel {

namespace {

struct ParsedVersion {
    std::vector<unsigned long> numbers;
    std::string preRelease;
};

std::optional<ParsedVersion> parseVersion(std::string_view text) {
    ParsedVersion parsed;
    const auto dash = text.find('-');
    if (dash != std::string_view::npos) {
        parsed.preRelease = std::string(text.substr(dash + 1));
        if (parsed.preRelease.empty())
            return std::nullopt;
        text = text.substr(0, dash);
    }
    while (true) {
        unsigned long number = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (ec != std::errc() || end == text.data())
            return std::nullopt;
        parsed.numbers.push_back(number);
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (text.empty())
            break;
        if (text.front() != '.' || text.size() == 1)
            return std::nullopt;
        text.remove_prefix(1);
    }
    return parsed.numbers.size() <= 4 ? std::optional(parsed) : std::nullopt;
}

std::string stringField(const nlohmann::json& release, const char* key, std::size_t index) {
    const auto found = release.find(key);
    if (found == release.end() || !found->is_string())
        throw ReleaseFeedError("release " + std::to_string(index + 1) + " has no \"" + key +
                               "\" text");
    return found->get<std::string>();
}

} // namespace

bool isVersion(std::string_view text) {
    return parseVersion(text).has_value();
}

int compareVersions(std::string_view a, std::string_view b) {
    const auto x = parseVersion(a);
    const auto y = parseVersion(b);
    if (!x || !y)
        return x ? 1 : (y ? -1 : 0);
    const std::size_t parts = std::max(x->numbers.size(), y->numbers.size());
    for (std::size_t i = 0; i < parts; ++i) {
        const unsigned long p = i < x->numbers.size() ? x->numbers[i] : 0;
        const unsigned long q = i < y->numbers.size() ? y->numbers[i] : 0;
        if (p != q)
            return p < q ? -1 : 1;
    }
    if (x->preRelease == y->preRelease)
        return 0;
    if (x->preRelease.empty() || y->preRelease.empty())
        return x->preRelease.empty() ? 1 : -1;
    return x->preRelease < y->preRelease ? -1 : 1;
}

ReleaseFeed ReleaseFeed::parse(std::string_view json) {
    const auto document = nlohmann::json::parse(json, nullptr, false);
    if (document.is_discarded())
        throw ReleaseFeedError("it is not JSON");
    if (!document.is_object() || !document.contains("releases") || !document["releases"].is_array())
        throw ReleaseFeedError("it has no \"releases\" list");
    ReleaseFeed feed;
    const auto& releases = document["releases"];
    for (std::size_t i = 0; i < releases.size(); ++i) {
        if (!releases[i].is_object())
            throw ReleaseFeedError("release " + std::to_string(i + 1) + " is not an object");
        const bool hasNotes = releases[i].contains("notes");
        Release release{stringField(releases[i], "version", i), stringField(releases[i], "date", i),
                        hasNotes ? stringField(releases[i], "notes", i) : std::string(),
                        stringField(releases[i], "url", i)};
        if (!isVersion(release.version))
            throw ReleaseFeedError("“" + release.version + "” is not a version");
        if (!release.url.starts_with("https://"))
            throw ReleaseFeedError("the download address of " + release.version +
                                   " is not an https address");
        feed.releases.push_back(std::move(release));
    }
    return feed;
}

std::optional<Release> ReleaseFeed::newest() const {
    const auto found =
        std::max_element(releases.begin(), releases.end(), [](const Release& a, const Release& b) {
            return compareVersions(a.version, b.version) < 0;
        });
    if (found == releases.end())
        return std::nullopt;
    return *found;
}

} // namespace varnel
