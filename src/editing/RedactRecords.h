#pragma once

#include "library/JsonCoding.h"
#include "library/NormalizedRect.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// A zone or patch whose rectangle has no usable value (a null, or nothing on the picture). It
// never covered anything, so readers may leave it out.
class UnusableRect : public CodingError {
public:
    using CodingError::CodingError;
};

// One blur zone. The id is editor identity only: it is never stored and is made anew on decoding.
struct RedactShape {
    enum class Kind { rect, ellipse };

    std::string id;
    Kind kind = Kind::rect;
    NormalizedRect rect;

    bool operator==(const RedactShape&) const = default;

    static RedactShape fromJson(const Json& json);
    Json toJson() const;
};

std::string_view toString(RedactShape::Kind kind);
std::optional<RedactShape::Kind> redactShapeKind(std::string_view text);

// One clone patch as stored: its image file in the flow folder and where it lands.
struct RedactPatch {
    std::string id;
    std::string file;
    NormalizedRect rect;

    bool operator==(const RedactPatch&) const = default;

    static RedactPatch fromJson(const Json& json);
    Json toJson() const;
};

// How zones are rendered: a tint over a Gaussian blur of sigma `blur` image pixels.
struct RedactStyle {
    double red = 1.0;
    double green = 1.0;
    double blue = 1.0;
    double opacity = 0.35;
    double blur = 50;

    bool operator==(const RedactStyle&) const = default;

    static RedactStyle fromJson(const Json& json);
    Json toJson() const;
};

// The zones clamped to the picture, in order; zones left without area are dropped. Throws
// LibraryError when a value isn't a finite number, so that nothing unreadable is recorded.
std::vector<RedactShape> zonesOnPicture(const std::vector<RedactShape>& shapes);
// Throws LibraryError for a style with a value that isn't a finite number.
void requireFinite(const RedactStyle& style);

enum class RedactPreset { light, dark };

std::string_view toString(RedactPreset preset);
RedactStyle defaultStyle(RedactPreset preset);

} // namespace varnel
