#include "capture/SelectionPolicy.h"

#include <algorithm>

namespace varnel::SelectionPolicy {

namespace {

bool listed(const std::vector<DeviceInfo>& devices, const std::optional<std::string>& id) {
    return id && std::any_of(devices.begin(), devices.end(),
                             [&](const DeviceInfo& d) { return d.id == *id; });
}

} // namespace

std::optional<std::string> choose(const std::vector<DeviceInfo>& devices,
                                  const std::optional<std::string>& current,
                                  const std::optional<std::string>& preferred, bool userPicked) {
    if (userPicked && listed(devices, current))
        return current;
    if (listed(devices, preferred))
        return preferred;
    if (listed(devices, current))
        return current;
    if (devices.empty())
        return std::nullopt;
    return devices.front().id;
}

} // namespace varnel::SelectionPolicy
