#pragma once

#include "capture/DeviceInfo.h"
#include "capture/VideoNodes.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

typedef struct _GstDevice GstDevice;
typedef struct _GstDeviceMonitor GstDeviceMonitor;

namespace varnel {

// Camera-type sources ("Video/Source" devices: V4L2 and PipeWire cameras, phone mirrors
// that appear as cameras) through GStreamer's device monitor, and the V4L2 nodes that it leaves
// out (loopback devices, which take pictures as well as give them), found afresh on every call.
class CameraDiscovery {
public:
    using NodeScan = std::function<std::vector<VideoNodes::CaptureNode>()>;

    explicit CameraDiscovery(NodeScan scan = [] { return VideoNodes::captureNodes(); });
    ~CameraDiscovery();
    CameraDiscovery(const CameraDiscovery&) = delete;
    CameraDiscovery& operator=(const CameraDiscovery&) = delete;

    // The cameras in the order GStreamer lists them; a repeated id is listed once.
    std::vector<DeviceInfo> devices() const;

    // The device of that id with its own reference (release with gst_object_unref), or null.
    GstDevice* find(const std::string& id) const;

    // Starts watching; `changed` runs on a GStreamer thread whenever a camera comes or goes.
    void watch(std::function<void()> changed);

    // The id a device is known by: its stable V4L2 path, PipeWire node or serial.
    static std::string deviceID(GstDevice* device);

private:
    NodeScan scan_;
    GstDeviceMonitor* monitor_ = nullptr;
    std::shared_ptr<std::function<void()>> changed_;
    bool watching_ = false;
};

} // namespace varnel
