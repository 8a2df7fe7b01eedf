#include "library/Date.h"

#include <chrono>

namespace varnel {

Date Date::now() {
    using namespace std::chrono;
    const auto since = duration_cast<microseconds>(system_clock::now().time_since_epoch());
    return fromUnixSeconds(static_cast<double>(since.count()) / 1e6);
}

} // namespace varnel
