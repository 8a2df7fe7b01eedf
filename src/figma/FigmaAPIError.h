#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace varnel {

// Figma answered, but not with success; or what came back was no HTTP answer at all.
class FigmaAPIError : public std::runtime_error {
public:
    enum class Kind { status, invalidResponse };

    FigmaAPIError(long status, std::optional<std::string> body);
    static FigmaAPIError invalidResponse();

    Kind kind() const { return kind_; }
    long status() const { return status_; }
    const std::optional<std::string>& body() const { return body_; }

private:
    FigmaAPIError(Kind kind, long status, std::optional<std::string> body, const std::string& what);

    Kind kind_;
    long status_ = 0;
    std::optional<std::string> body_;
};

} // namespace varnel
