#pragma once

#include "capture/AdbClient.h"
#include "capture/DeviceInfo.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// Android phones and emulators, as the adb server lists them, made capture sources.
class AdbSources {
public:
    static constexpr std::string_view kPrefix = "adb:";

    explicit AdbSources(AdbClient client) : client_(std::move(client)) {}

    // One source per device that is ready ("adb:" + serial, named by its model or its AVD), and
    // one per device waiting for the user to allow USB debugging, named so. Others (offline,
    // in recovery) are left out; no server, no sources.
    std::vector<DeviceInfo> list();

    static bool isAdbID(std::string_view id) { return id.starts_with(kPrefix); }
    static std::string serialOf(std::string_view id) {
        return std::string(id.substr(kPrefix.size()));
    }

private:
    std::string avdName(const std::string& serial);

    AdbClient client_;
    std::map<std::string, std::string> avdNames_; // an emulator keeps its AVD for its life
};

} // namespace varnel
