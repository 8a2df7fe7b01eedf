#pragma once

#include <string>

namespace varnel {

// A capture source: a camera-type device ("/dev/v4l/by-id/…", a serial, a PipeWire node), an
// Android device ("adb:" + serial) or a window ("window:" + its X window id). Identity is the id
// alone.
struct DeviceInfo {
    std::string id;
    std::string name;
    bool isWindow = false;

    bool operator==(const DeviceInfo& other) const { return id == other.id; }
};

} // namespace varnel
