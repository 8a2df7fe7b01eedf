#pragma once

#include "library/Date.h"
#include "library/JsonCoding.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace varnel {

// A box on the Figma canvas, in canvas units.
struct FigmaBox {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const FigmaBox&) const = default;
    bool contains(double px, double py) const {
        return px >= x && py >= y && px <= x + width && py <= y + height;
    }
};

// The signed-in user, from "/v1/me".
struct FigmaAccount {
    std::string id;
    std::string handle;
    std::optional<std::string> email;
    std::optional<std::string> imgUrl;

    bool operator==(const FigmaAccount&) const = default;
    static FigmaAccount fromJson(const Json& json);
};

// A node of a Figma document; only the keys the board lookup needs are read.
struct FigmaNode {
    using PluginData = std::map<std::string, std::map<std::string, std::string>>;

    std::string id;
    std::string name;
    std::string type;
    std::optional<FigmaBox> absoluteBoundingBox;
    std::optional<PluginData> sharedPluginData;
    std::optional<std::vector<FigmaNode>> children;

    bool operator==(const FigmaNode&) const = default;
    static FigmaNode fromJson(const Json& json);

    // The shared plugin data value under namespace/key, if the node has one.
    const std::string* pluginValue(std::string_view space, std::string_view key) const;
};

// Where a posted comment is anchored.
struct FigmaClientMeta {
    struct FrameOffset {
        std::string nodeId;
        double x = 0;
        double y = 0;
        bool operator==(const FrameOffset&) const = default;
    };
    struct Absolute {
        double x = 0;
        double y = 0;
        bool operator==(const Absolute&) const = default;
    };
    std::variant<FrameOffset, Absolute> value;

    bool operator==(const FigmaClientMeta&) const = default;
    Json toJson() const;
};

// One comment or reply of a file, as decoded from "/comments".
struct FigmaCommentRef {
    std::string id;
    // The anchor; without one, the offsets are a point of the canvas.
    std::optional<std::string> nodeId;
    std::optional<double> offsetX;
    std::optional<double> offsetY;
    std::string message;
    std::optional<std::string> parentId;
    std::string authorHandle;
    std::optional<std::string> authorImgURL;
    std::optional<std::string> authorId;
    std::optional<Date> createdAt;
    std::optional<Date> resolvedAt;

    bool operator==(const FigmaCommentRef&) const = default;
    static FigmaCommentRef fromJson(const Json& json);
};

// An ISO 8601 internet date-time, with or without fractional seconds; none for anything else.
std::optional<Date> parseFigmaDate(std::string_view text);

} // namespace varnel
