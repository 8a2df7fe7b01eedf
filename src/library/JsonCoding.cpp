#include "library/JsonCoding.h"

#include "library/Text.h"

#include <algorithm>
#include <cmath>

namespace varnel {

std::string encodeLibraryJson(const Json& value) {
    // nlohmann's object type is a std::map, so keys come out sorted.
    std::string out;
    try {
        out = value.dump(2, ' ', false, Json::error_handler_t::strict);
    } catch (const Json::type_error&) {
        throw CodingError(Text::kNotUtf8);
    }
    out.push_back('\n');
    return out;
}

Json parseLibraryJson(std::string_view bytes) {
    try {
        return Json::parse(bytes.begin(), bytes.end());
    } catch (const Json::exception& e) {
        // Syntax errors, and numbers out of range such as 1e999.
        throw CodingError(std::string("not valid JSON (") + e.what() + ")");
    }
}

namespace coding {
namespace {

std::string quoted(const char* key) {
    return std::string("key “") + key + "”";
}

} // namespace

const Json& requireObject(const Json& value, std::string_view what) {
    if (!value.is_object())
        throw CodingError(std::string(what) + " is not an object");
    return value;
}

bool hasValue(const Json& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && !it->is_null();
}

const Json& requireKey(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null())
        throw CodingError(quoted(key) + " is missing");
    return *it;
}

std::string requireString(const Json& object, const char* key) {
    const Json& value = requireKey(object, key);
    if (!value.is_string())
        throw CodingError(quoted(key) + " is not a string");
    return value.get<std::string>();
}

std::optional<std::string> optionalString(const Json& object, const char* key) {
    if (!hasValue(object, key))
        return std::nullopt;
    return requireString(object, key);
}

double requireNumber(const Json& object, const char* key) {
    const Json& value = requireKey(object, key);
    if (!value.is_number())
        throw CodingError(quoted(key) + " is not a number");
    return value.get<double>();
}

std::optional<double> optionalNumber(const Json& object, const char* key) {
    if (!hasValue(object, key))
        return std::nullopt;
    return requireNumber(object, key);
}

std::int64_t requireInteger(const Json& object, const char* key) {
    const Json& value = requireKey(object, key);
    if (value.is_number_integer())
        return value.get<std::int64_t>();
    if (value.is_number_float()) {
        const double d = value.get<double>();
        if (std::isfinite(d) && std::trunc(d) == d && std::fabs(d) < 9.0e15)
            return static_cast<std::int64_t>(d);
    }
    throw CodingError(quoted(key) + " is not an integer");
}

bool requireBool(const Json& object, const char* key) {
    const Json& value = requireKey(object, key);
    if (!value.is_boolean())
        throw CodingError(quoted(key) + " is not a boolean");
    return value.get<bool>();
}

std::optional<bool> optionalBool(const Json& object, const char* key) {
    if (!hasValue(object, key))
        return std::nullopt;
    return requireBool(object, key);
}

Date requireDate(const Json& object, const char* key) {
    const Json& value = requireKey(object, key);
    if (!value.is_number())
        throw CodingError(quoted(key) + " is not a date (seconds since 2001)");
    return Date{value.get<double>()};
}

std::optional<Date> optionalDate(const Json& object, const char* key) {
    if (!hasValue(object, key))
        return std::nullopt;
    return requireDate(object, key);
}

std::optional<std::vector<std::string>> optionalStrings(const Json& object, const char* key) {
    return optionalArray<std::string>(object, key, [key](const Json& element) {
        if (!element.is_string())
            throw CodingError(quoted(key) + " holds a value that is not a string");
        return element.get<std::string>();
    });
}

NormalizedRect readRect(const Json& value, const char* key) {
    auto number = [key](const Json& v) {
        if (!v.is_number())
            throw CodingError(quoted(key) + " is not a rectangle");
        return v.get<double>();
    };
    if (value.is_array() && value.size() == 2 && value[0].is_array() && value[1].is_array() &&
        value[0].size() == 2 && value[1].size() == 2) {
        return {number(value[0][0]), number(value[0][1]), number(value[1][0]), number(value[1][1])};
    }
    if (value.is_object() && value.contains("x") && value.contains("y") &&
        value.contains("width") && value.contains("height")) {
        return {number(value["x"]), number(value["y"]), number(value["width"]),
                number(value["height"])};
    }
    throw CodingError(quoted(key) + " is not a rectangle");
}

Json writeRect(const NormalizedRect& rect) {
    return Json::array({Json::array({rect.x, rect.y}), Json::array({rect.width, rect.height})});
}

Json unknownKeys(const Json& object, std::initializer_list<std::string_view> known) {
    Json extras = Json::object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (std::find(known.begin(), known.end(), it.key()) == known.end())
            extras[it.key()] = it.value();
    }
    return extras;
}

void mergeUnknownKeys(Json& target, const Json& extras) {
    if (!extras.is_object())
        return;
    for (auto it = extras.begin(); it != extras.end(); ++it) {
        if (!target.contains(it.key()))
            target[it.key()] = it.value();
    }
}

} // namespace coding
} // namespace varnel
