#pragma once

#include <optional>
#include <string_view>

namespace varnel {

// How a screen was captured; stored as its string value.
enum class CaptureSource { manual, automatic };

std::string_view toString(CaptureSource source);
std::optional<CaptureSource> captureSource(std::string_view text);

} // namespace varnel
