#include "library/Date.h"

#include <chrono>
#include <ctime>

namespace varnel {

Date Date::now() {
    using namespace std::chrono;
    const auto since = duration_cast<microseconds>(system_clock::now().time_since_epoch());
    return fromUnixSeconds(static_cast<double>(since.count()) / 1e6);
}

std::string localTimestamp(Date date) {
    const auto unix = static_cast<std::time_t>(date.unixSeconds());
    std::tm local{};
    localtime_r(&unix, &local);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H.%M.%S", &local);
    return buffer;
}

} // namespace varnel
