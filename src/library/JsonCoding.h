#pragma once

#include "library/Date.h"
#include "library/NormalizedRect.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

using Json = nlohmann::json;

// Thrown by the readers below; the store turns it into a DecodingError naming the file.
class CodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The one encoder of every library file: pretty printed, keys sorted, ending in a newline.
std::string encodeLibraryJson(const Json& value);
Json parseLibraryJson(std::string_view bytes);

namespace coding {

const Json& requireObject(const Json& value, std::string_view what);
const Json& requireKey(const Json& object, const char* key);
bool hasValue(const Json& object, const char* key);

std::string requireString(const Json& object, const char* key);
std::optional<std::string> optionalString(const Json& object, const char* key);
double requireNumber(const Json& object, const char* key);
std::optional<double> optionalNumber(const Json& object, const char* key);
std::int64_t requireInteger(const Json& object, const char* key);
bool requireBool(const Json& object, const char* key);
std::optional<bool> optionalBool(const Json& object, const char* key);
Date requireDate(const Json& object, const char* key);
std::optional<Date> optionalDate(const Json& object, const char* key);
std::optional<std::vector<std::string>> optionalStrings(const Json& object, const char* key);

// Rectangles use the two-array form [[x, y], [width, height]]; the keyed object form is
// accepted on reading too.
NormalizedRect readRect(const Json& value, const char* key);
Json writeRect(const NormalizedRect& rect);

// Reads an array of records with `read`, each element an object.
template <typename T, typename Reader>
std::optional<std::vector<T>> optionalArray(const Json& object, const char* key, Reader read) {
    if (!hasValue(object, key))
        return std::nullopt;
    const Json& array = object.at(key);
    if (!array.is_array())
        throw CodingError(std::string("key “") + key + "” is not an array");
    std::vector<T> out;
    out.reserve(array.size());
    for (const Json& element : array)
        out.push_back(read(element));
    return out;
}

template <typename T, typename Reader>
std::vector<T> requireArray(const Json& object, const char* key, Reader read) {
    requireKey(object, key);
    return *optionalArray<T>(object, key, read);
}

template <typename T, typename Writer> Json writeArray(const std::vector<T>& values, Writer write) {
    Json array = Json::array();
    for (const T& value : values)
        array.push_back(write(value));
    return array;
}

// Keys of `object` not listed in `known`, kept so that records written by newer versions
// round-trip without loss.
Json unknownKeys(const Json& object, std::initializer_list<std::string_view> known);
void mergeUnknownKeys(Json& target, const Json& extras);

} // namespace coding
} // namespace varnel
