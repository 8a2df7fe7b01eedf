#pragma once

#include "library/Date.h"
#include "library/JsonCoding.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel {

struct FigmaReply {
    std::string id;
    std::string text;
    std::string authorHandle;
    std::optional<std::string> authorImgURL;
    std::string authorId;
    Date createdAt;

    bool operator==(const FigmaReply&) const = default;

    static FigmaReply fromJson(const Json& json);
    Json toJson() const;
};

// A Figma comment thread placed on one screen, as pulled from the linked file.
struct FigmaThread {
    std::string rootId;
    std::optional<double> x;
    std::optional<double> y;
    std::string text;
    std::string authorHandle;
    std::optional<std::string> authorImgURL;
    std::string authorId;
    Date createdAt;
    bool resolved = false;
    std::vector<FigmaReply> replies;

    bool operator==(const FigmaThread&) const = default;

    static FigmaThread fromJson(const Json& json);
    Json toJson() const;
};

} // namespace varnel
