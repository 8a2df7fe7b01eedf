#include "figma/FigmaRecords.h"

#include <charconv>
#include <cmath>
#include <ctime>

namespace varnel {

namespace {

std::optional<std::string> stringAt(const Json& object, const char* key) {
    if (!object.is_object())
        return std::nullopt;
    const auto it = object.find(key);
    if (it == object.end() || !it->is_string())
        return std::nullopt;
    return it->get<std::string>();
}

std::optional<double> numberAt(const Json& object, const char* key) {
    if (!object.is_object())
        return std::nullopt;
    const auto it = object.find(key);
    if (it == object.end() || !it->is_number())
        return std::nullopt;
    return it->get<double>();
}

// Figma's payloads are decoded strictly where the record needs a value: a missing one is a
// decoding failure, which callers report like any other unusable answer.
std::string requiredString(const Json& object, const char* key) {
    if (auto value = stringAt(object, key))
        return *value;
    throw CodingError(std::string("Figma's answer lacks \"") + key + "\"");
}

FigmaBox boxOf(const Json& json) {
    return {numberAt(json, "x").value_or(0), numberAt(json, "y").value_or(0),
            numberAt(json, "width").value_or(0), numberAt(json, "height").value_or(0)};
}

// Reads `digits` decimal digits at `pos`.
bool readNumber(std::string_view text, std::size_t& pos, std::size_t digits, int& out) {
    if (pos + digits > text.size())
        return false;
    const char* begin = text.data() + pos;
    for (std::size_t i = 0; i < digits; ++i)
        if (begin[i] < '0' || begin[i] > '9')
            return false;
    std::from_chars(begin, begin + digits, out);
    pos += digits;
    return true;
}

bool expect(std::string_view text, std::size_t& pos, char c) {
    if (pos >= text.size() || (text[pos] != c && !(c == 'T' && text[pos] == 't')))
        return false;
    ++pos;
    return true;
}

} // namespace

FigmaAccount FigmaAccount::fromJson(const Json& json) {
    if (!json.is_object())
        throw CodingError("Figma's account answer is not an object");
    return {requiredString(json, "id"), requiredString(json, "handle"), stringAt(json, "email"),
            stringAt(json, "img_url")};
}

FigmaNode FigmaNode::fromJson(const Json& json) {
    if (!json.is_object())
        throw CodingError("a Figma node is not an object");
    FigmaNode node;
    node.id = requiredString(json, "id");
    node.name = stringAt(json, "name").value_or("");
    node.type = stringAt(json, "type").value_or("");
    if (auto it = json.find("absoluteBoundingBox"); it != json.end() && it->is_object())
        node.absoluteBoundingBox = boxOf(*it);
    if (auto it = json.find("sharedPluginData"); it != json.end() && it->is_object()) {
        PluginData data;
        for (const auto& [space, entries] : it->items()) {
            if (!entries.is_object())
                continue;
            auto& values = data[space];
            for (const auto& [key, value] : entries.items())
                if (value.is_string())
                    values[key] = value.get<std::string>();
        }
        node.sharedPluginData = std::move(data);
    }
    if (auto it = json.find("children"); it != json.end() && it->is_array()) {
        std::vector<FigmaNode> children;
        children.reserve(it->size());
        for (const auto& child : *it)
            children.push_back(fromJson(child));
        node.children = std::move(children);
    }
    return node;
}

const std::string* FigmaNode::pluginValue(std::string_view space, std::string_view key) const {
    if (!sharedPluginData)
        return nullptr;
    const auto entries = sharedPluginData->find(std::string(space));
    if (entries == sharedPluginData->end())
        return nullptr;
    const auto value = entries->second.find(std::string(key));
    return value == entries->second.end() ? nullptr : &value->second;
}

Json FigmaClientMeta::toJson() const {
    if (const auto* frame = std::get_if<FrameOffset>(&value))
        return Json{{"node_id", frame->nodeId},
                    {"node_offset", Json{{"x", frame->x}, {"y", frame->y}}}};
    const auto& absolute = std::get<Absolute>(value);
    return Json{{"x", absolute.x}, {"y", absolute.y}};
}

FigmaCommentRef FigmaCommentRef::fromJson(const Json& json) {
    if (!json.is_object())
        throw CodingError("a Figma comment is not an object");
    FigmaCommentRef ref;
    ref.id = requiredString(json, "id");
    ref.message = stringAt(json, "message").value_or("");
    ref.parentId = stringAt(json, "parent_id");
    if (ref.parentId && ref.parentId->empty())
        ref.parentId.reset();
    // A place that can't be read would make a pin's comment look moved, and be posted again:
    // it fails the answer. Replies have none (null).
    if (auto meta = json.find("client_meta"); meta != json.end() && !meta->is_null()) {
        if (!meta->is_object())
            throw CodingError("a Figma comment's place is not an object");
        ref.nodeId = stringAt(*meta, "node_id");
        if (!ref.nodeId && meta->contains("node_id"))
            throw CodingError("a Figma comment's node is not a string");
        // An offset from a frame, or a Vector: a point of the canvas.
        const Json point = ref.nodeId ? meta->value("node_offset", Json()) : *meta;
        ref.offsetX = numberAt(point, "x");
        ref.offsetY = numberAt(point, "y");
        if (!ref.offsetX || !ref.offsetY)
            throw CodingError("a Figma comment's place lacks its coordinates");
    }
    if (auto user = json.find("user"); user != json.end() && user->is_object()) {
        ref.authorHandle = stringAt(*user, "handle").value_or("");
        ref.authorImgURL = stringAt(*user, "img_url");
        ref.authorId = stringAt(*user, "id");
    }
    if (auto created = stringAt(json, "created_at"))
        ref.createdAt = parseFigmaDate(*created);
    if (auto resolved = stringAt(json, "resolved_at"))
        ref.resolvedAt = parseFigmaDate(*resolved);
    return ref;
}

std::optional<Date> parseFigmaDate(std::string_view text) {
    std::size_t pos = 0;
    int year, month, day, hour, minute, second;
    if (!readNumber(text, pos, 4, year) || !expect(text, pos, '-') ||
        !readNumber(text, pos, 2, month) || !expect(text, pos, '-') ||
        !readNumber(text, pos, 2, day) || !expect(text, pos, 'T') ||
        !readNumber(text, pos, 2, hour) || !expect(text, pos, ':') ||
        !readNumber(text, pos, 2, minute) || !expect(text, pos, ':') ||
        !readNumber(text, pos, 2, second))
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    double fraction = 0;
    if (pos < text.size() && text[pos] == '.') {
        const std::size_t start = ++pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9')
            ++pos;
        if (pos == start)
            return std::nullopt;
        double scale = 0.1;
        for (std::size_t i = start; i < pos; ++i, scale /= 10)
            fraction += (text[i] - '0') * scale;
    }
    int offsetSeconds = 0;
    if (pos < text.size() && (text[pos] == 'Z' || text[pos] == 'z')) {
        ++pos;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        const int sign = text[pos++] == '-' ? -1 : 1;
        int oh, om;
        if (!readNumber(text, pos, 2, oh) || !expect(text, pos, ':') ||
            !readNumber(text, pos, 2, om) || oh > 23 || om > 59)
            return std::nullopt;
        offsetSeconds = sign * (oh * 3600 + om * 60);
    } else {
        return std::nullopt;
    }
    if (pos != text.size())
        return std::nullopt;
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    const std::time_t unix = timegm(&tm);
    return Date::fromUnixSeconds(static_cast<double>(unix) - offsetSeconds + fraction);
}

} // namespace varnel
