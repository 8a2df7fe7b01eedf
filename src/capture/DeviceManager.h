#pragma once

#ifndef Q_MOC_RUN
#include "capture/AdbClient.h"
#include "capture/DeviceInfo.h"
#include "capture/SimulatorWindows.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QObject>
#include <QThreadPool>
#include <QTimer>

class QFileSystemWatcher;

typedef struct _GstDevice GstDevice;

namespace varnel {

class AppSettings;
class CameraDiscovery;

// Where the device manager gets its sources from. The standard ones are GStreamer's device
// monitor and the X server's window list; tests may hand in their own lists.
struct DeviceSources {
    std::function<std::vector<DeviceInfo>()> cameras;
    // Runs on a worker thread; none when the window list can't be read.
    std::function<std::optional<std::vector<X11Window>>()> windows;
    // Registers the callback for cameras coming and going (called on any thread).
    std::function<void(std::function<void()>)> watchCameras;
    // The GStreamer device behind a camera id, with its own reference; null when gone.
    std::function<GstDevice*(const std::string&)> cameraDevice;
    // Video devices this user may not open (and so no camera list shows).
    std::function<std::vector<std::string>()> unreadableCameras;
    // Starts following Android devices; the callback gets every new list (on any thread).
    std::function<void(std::function<void(std::vector<DeviceInfo>)>)> watchAndroid;
    // The adb server that Android sources are captured through.
    AdbAddress adb = AdbAddress::current();
};

// The list of capture sources (cameras, Android devices, then windows) and the
// selection among them, kept across connects, disconnects and restarts. Main thread only.
class DeviceManager : public QObject {
    Q_OBJECT

public:
    explicit DeviceManager(AppSettings& settings, QObject* parent = nullptr);
    DeviceManager(AppSettings& settings, DeviceSources sources, QObject* parent = nullptr);
    ~DeviceManager() override;

    const std::vector<DeviceInfo>& devices() const { return devices_; }
    const std::optional<std::string>& selectedID() const { return selectedID_; }
    std::optional<DeviceInfo> selectedInfo() const;
    bool includeSimulator() const { return includeSimulator_; }
    // Video devices found at the last refresh that this user may not open.
    const std::vector<std::string>& unreadableCameras() const { return unreadable_; }

    void refresh();
    // Lists the Android devices now, starting the adb server when none runs (the command line
    // does not wait for the tracking).
    void refreshAndroid();
    void select(const std::string& id);
    void setIncludeSimulator(bool value);

    // The camera of the selection, with its own reference; null for a window or nothing.
    GstDevice* selectedDevice() const { return selectedID_ ? cameraDevice(*selectedID_) : nullptr; }
    // The window of the selection, when a window is selected.
    std::optional<X11Window> selectedWindow() const;
    // The same for any listed source.
    GstDevice* cameraDevice(const std::string& id) const;
    std::optional<X11Window> window(const std::string& id) const;

    // The adb server to capture Android sources ("adb:" + serial) through.
    AdbClient adbClient() const { return AdbClient(sources_.adb); }

    // Lets a test wait until the window list asked for last has been applied.
    void waitForWindowRefresh();

signals:
    void devicesChanged();
    void selectionChanged();

private:
    void discoverCameras();
    void refreshWindows();
    void applyWindows(unsigned generation, std::optional<std::vector<X11Window>> windows);
    void rebuild();

    AppSettings& settings_;
    std::unique_ptr<CameraDiscovery> discovery_;
    DeviceSources sources_;
    std::vector<DeviceInfo> devices_;
    std::optional<std::string> selectedID_;
    std::optional<std::string> preferredID_;
    bool userPicked_ = false;
    bool includeSimulator_ = false;
    std::vector<DeviceInfo> cameraDevices_;
    std::vector<std::string> unreadable_;
    std::vector<DeviceInfo> androidDevices_;
    std::unique_ptr<AdbDeviceTracker> androidTracker_;
    std::vector<DeviceInfo> windowDevices_;
    std::map<std::string, X11Window> windows_;
    unsigned windowGeneration_ = 0;
    QThreadPool windowLister_;
    std::unique_ptr<QFileSystemWatcher> devWatcher_;
    QTimer devSettle_;
    // Cleared first on destruction: lists from other threads are dropped from then on.
    std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
};

} // namespace varnel
