#include "figma/FigmaAPIError.h"

#include "library/Utf8.h"

namespace varnel {

FigmaAPIError::FigmaAPIError(Kind kind, long status, std::optional<std::string> body,
                             const std::string& what)
    : std::runtime_error(what), kind_(kind), status_(status), body_(std::move(body)) {}

FigmaAPIError::FigmaAPIError(long status, std::optional<std::string> body)
    : FigmaAPIError(Kind::status, status,
                    body && Utf8::isValid(*body) ? std::move(body) : std::nullopt,
                    "Figma answered HTTP " + std::to_string(status)) {}

FigmaAPIError FigmaAPIError::invalidResponse() {
    return FigmaAPIError(Kind::invalidResponse, 0, std::nullopt, "Figma's answer was not HTTP");
}

} // namespace varnel
