#pragma once

#include "capture/DeviceInfo.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel::SelectionPolicy {

// Which source is selected after the list changed: the one the user picked in this run while
// it is there, else the remembered camera, else the current one, else the first.
std::optional<std::string> choose(const std::vector<DeviceInfo>& devices,
                                  const std::optional<std::string>& current,
                                  const std::optional<std::string>& preferred, bool userPicked);

} // namespace varnel::SelectionPolicy
