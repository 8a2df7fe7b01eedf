#include "library/ScreenFiles.h"

#include "library/Uuid.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace varnel::ScreenFiles {

std::string extension(std::string_view filename) {
    const auto dot = filename.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {};
    return std::string(filename.substr(dot + 1));
}

std::string stem(std::string_view filename) {
    const auto dot = filename.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return std::string(filename);
    return std::string(filename.substr(0, dot));
}

bool isClip(std::string_view filename) {
    if (filename.size() < 4)
        return false;
    std::string suffix(filename.substr(filename.size() - 4));
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return suffix == ".mov";
}

std::string originalFilename(std::string_view filename) {
    const std::string ext = extension(filename);
    if (ext.empty())
        return std::string(filename) + ".orig";
    return stem(filename) + ".orig." + ext;
}

std::optional<long long> screenNumber(std::string_view filename) {
    if (filename.size() < 5)
        return std::nullopt;
    const auto suffix = filename.substr(filename.size() - 4);
    if (suffix != ".png" && suffix != ".mov")
        return std::nullopt;
    const auto digits = filename.substr(0, filename.size() - 4);
    if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    long long value = 0;
    const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (ec != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
    return value;
}

long long nextScreenNumber(const std::vector<std::string>& names) {
    long long highest = 0;
    for (const auto& name : names) {
        if (auto n = screenNumber(name))
            highest = std::max(highest, *n);
    }
    return highest + 1;
}

std::string capturedName(long long number, std::string_view extension) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%02lld", number);
    return std::string(buffer) + "." + std::string(extension);
}

std::string renumberedName(std::size_t position, std::size_t count, std::string_view oldName) {
    const int width = std::max<int>(2, static_cast<int>(std::to_string(count).size()));
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%0*zu", width, position);
    const std::string ext = extension(oldName);
    return ext.empty() ? std::string(buffer) : std::string(buffer) + "." + ext;
}

std::string claimScreenName(std::set<std::string>& claimed, std::string_view extension) {
    long long number = nextScreenNumber({claimed.begin(), claimed.end()});
    while (true) {
        std::string name =
            extension.empty() ? capturedName(number, "") : capturedName(number, extension);
        if (extension.empty())
            name.pop_back(); // no trailing dot
        if (claimed.insert(name).second)
            return name;
        ++number;
    }
}

namespace {

constexpr std::string_view kPatchMark = ".patch-";
constexpr std::string_view kPatchExtension = ".png";

bool isUuid(std::string_view text) {
    if (text.size() != 36)
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? c != '-' : !std::isxdigit(static_cast<unsigned char>(c)))
            return false;
    }
    return true;
}

// The stem a patch name was made for, or none when it isn't a patch name.
std::optional<std::string_view> patchStem(std::string_view name) {
    const std::size_t suffix = kPatchMark.size() + 36 + kPatchExtension.size();
    if (name.size() <= suffix || !name.ends_with(kPatchExtension))
        return std::nullopt;
    const std::string_view stemPart = name.substr(0, name.size() - suffix);
    const std::string_view rest = name.substr(stemPart.size());
    if (!rest.starts_with(kPatchMark) || !isUuid(rest.substr(kPatchMark.size(), 36)) ||
        stemPart.find('/') != std::string_view::npos || stemPart == "." || stemPart == "..")
        return std::nullopt;
    return stemPart;
}

} // namespace

bool isPatchFileName(std::string_view name) {
    return patchStem(name).has_value();
}

bool isPatchOf(std::string_view patchFile, std::string_view screenFilename) {
    const auto owner = patchStem(patchFile);
    return owner && *owner == stem(screenFilename);
}

std::string newPatchName(std::string_view screenFilename) {
    return stem(screenFilename) + std::string(kPatchMark) + newUUIDString() +
           std::string(kPatchExtension);
}

std::string patchRenamed(std::string_view patchFile, std::string_view screenFilename) {
    const auto owner = patchStem(patchFile);
    if (!owner)
        return newPatchName(screenFilename);
    return stem(screenFilename) + std::string(patchFile.substr(owner->size()));
}

} // namespace varnel::ScreenFiles
