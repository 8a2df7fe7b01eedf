#pragma once

#include <compare>
#include <string>

namespace varnel {

// Library dates are seconds since 2001-01-01 00:00:00 UTC, kept as a double so that values
// written by older libraries survive a round trip exactly.
struct Date {
    static constexpr double kReferenceUnixSeconds = 978307200.0;

    double seconds = 0;

    static Date now();
    static Date fromUnixSeconds(double unix) { return Date{unix - kReferenceUnixSeconds}; }
    double unixSeconds() const { return seconds + kReferenceUnixSeconds; }

    auto operator<=>(const Date&) const = default;
};

// The date in the local time zone as "2024-05-01 14.03.27", the default name of a capture.
std::string localTimestamp(Date date);

} // namespace varnel
