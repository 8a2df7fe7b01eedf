#include "capture/AdbSources.h"

#include "library/Text.h"

namespace varnel {

std::string AdbSources::avdName(const std::string& serial) {
    if (const auto known = avdNames_.find(serial); known != avdNames_.end())
        return known->second;
    std::string name;
    // Newer emulators say it under ro.boot, older ones under ro.kernel.
    for (const char* property : {"ro.boot.qemu.avd_name", "ro.kernel.qemu.avd_name"}) {
        try {
            name = Text::trimmed(client_.exec(serial, std::string("getprop ") + property, 4096));
        } catch (const AdbError&) {
        }
        if (!name.empty())
            break;
    }
    avdNames_[serial] = name;
    return name;
}

std::vector<DeviceInfo> AdbSources::list() {
    std::vector<AdbDevice> devices;
    try {
        devices = client_.devices();
    } catch (const AdbError&) {
        return {};
    }
    std::vector<DeviceInfo> sources;
    for (const auto& device : devices) {
        const std::string id = std::string(kPrefix) + device.serial;
        if (device.state == "device") {
            const std::string avd = device.isEmulator() ? avdName(device.serial) : std::string();
            sources.push_back({id, AdbClient::displayName(device, avd), false});
        } else if (device.state == "unauthorized") {
            sources.push_back({id, "Android — " + device.serial + " (allow USB debugging)", false});
        }
    }
    return sources;
}

} // namespace varnel
