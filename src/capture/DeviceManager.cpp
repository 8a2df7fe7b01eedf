#include "capture/DeviceManager.h"

#include "app/AppSettings.h"
#include "capture/AdbSources.h"
#include "capture/CameraDiscovery.h"
#include "capture/SelectionPolicy.h"
#include "capture/VideoNodes.h"
#include "capture/WindowList.h"

#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QMetaObject>

namespace varnel {

DeviceManager::DeviceManager(AppSettings& settings, QObject* parent)
    : DeviceManager(settings, DeviceSources{}, parent) {}

DeviceManager::DeviceManager(AppSettings& settings, DeviceSources sources, QObject* parent)
    : QObject(parent), settings_(settings), sources_(std::move(sources)) {
    windowLister_.setMaxThreadCount(1);
    if (!sources_.cameras) {
        discovery_ = std::make_unique<CameraDiscovery>();
        sources_.cameras = [d = discovery_.get()] { return d->devices(); };
        sources_.watchCameras = [d = discovery_.get()](std::function<void()> changed) {
            d->watch(std::move(changed));
        };
        sources_.cameraDevice = [d = discovery_.get()](const std::string& id) {
            return d->find(id);
        };
        // Loopback nodes come and go without a word to GStreamer's monitor: /dev tells.
        devSettle_.setSingleShot(true);
        devSettle_.setInterval(300);
        connect(&devSettle_, &QTimer::timeout, this, &DeviceManager::refresh);
        devWatcher_ = std::make_unique<QFileSystemWatcher>(QStringList{QStringLiteral("/dev")});
        connect(devWatcher_.get(), &QFileSystemWatcher::directoryChanged, &devSettle_,
                qOverload<>(&QTimer::start));
    }
    if (!sources_.windows)
        sources_.windows = [] { return WindowList::list(); };
    if (!sources_.unreadableCameras) {
        sources_.unreadableCameras = [] {
            std::vector<std::string> nodes;
            for (const auto& node : VideoNodes::unreadable())
                nodes.push_back(node.string());
            return nodes;
        };
    }

    if (!sources_.watchAndroid) {
        // The server's own tracking: a phone plugged in or an emulator started shows at once.
        sources_.watchAndroid = [this](std::function<void(std::vector<DeviceInfo>)> apply) {
            auto sources = std::make_shared<AdbSources>(AdbClient(sources_.adb));
            androidTracker_ = std::make_unique<AdbDeviceTracker>(
                AdbClient(sources_.adb), [sources, apply] { apply(sources->list()); });
        };
    }

    preferredID_ = settings_.preferredDeviceID();
    includeSimulator_ = settings_.includeSimulator();
    discoverCameras();
    rebuild();
    refreshWindows();
    if (sources_.watchCameras) {
        sources_.watchCameras([this] {
            QMetaObject::invokeMethod(
                this, [this] { refresh(); }, Qt::QueuedConnection);
        });
    }
    sources_.watchAndroid([this, alive = alive_](std::vector<DeviceInfo> devices) {
        if (!*alive)
            return;
        QMetaObject::invokeMethod(
            this,
            [this, devices = std::move(devices)]() mutable {
                androidDevices_ = std::move(devices);
                rebuild();
            },
            Qt::QueuedConnection);
    });
    connect(&settings_, &AppSettings::changed, this, [this](const QString& key) {
        if (key == QLatin1String("includeSimulator"))
            setIncludeSimulator(settings_.includeSimulator());
    });
}

DeviceManager::~DeviceManager() {
    // The monitor's and the tracker's threads may still post a refresh: stop them first.
    *alive_ = false;
    androidTracker_.reset();
    discovery_.reset();
    windowLister_.waitForDone();
}

std::optional<DeviceInfo> DeviceManager::selectedInfo() const {
    for (const auto& device : devices_) {
        if (device.id == selectedID_)
            return device;
    }
    return std::nullopt;
}

void DeviceManager::refresh() {
    discoverCameras();
    rebuild();
    refreshWindows();
}

void DeviceManager::refreshAndroid() {
    const AdbClient client = adbClient();
    client.ensureServer();
    androidDevices_ = AdbSources(client).list();
    rebuild();
}

void DeviceManager::select(const std::string& id) {
    selectedID_ = id;
    userPicked_ = true;
    if (!id.starts_with(SimulatorWindows::kWindowPrefix)) {
        preferredID_ = id;
        settings_.setPreferredDeviceID(id);
    }
    emit selectionChanged();
}

void DeviceManager::setIncludeSimulator(bool value) {
    if (value == includeSimulator_)
        return;
    includeSimulator_ = value;
    refresh();
}

GstDevice* DeviceManager::cameraDevice(const std::string& id) const {
    if (id.starts_with(SimulatorWindows::kWindowPrefix) || AdbSources::isAdbID(id) ||
        !sources_.cameraDevice)
        return nullptr;
    return sources_.cameraDevice(id);
}

std::optional<X11Window> DeviceManager::selectedWindow() const {
    return selectedID_ ? window(*selectedID_) : std::nullopt;
}

std::optional<X11Window> DeviceManager::window(const std::string& id) const {
    const auto it = windows_.find(id);
    if (it == windows_.end())
        return std::nullopt;
    return it->second;
}

void DeviceManager::waitForWindowRefresh() {
    windowLister_.waitForDone();
    QCoreApplication::sendPostedEvents(this);
}

void DeviceManager::discoverCameras() {
    cameraDevices_ = sources_.cameras ? sources_.cameras() : std::vector<DeviceInfo>{};
    unreadable_ = sources_.unreadableCameras();
}

void DeviceManager::refreshWindows() {
    const unsigned generation = ++windowGeneration_;
    if (!includeSimulator_) {
        applyWindows(generation, std::vector<X11Window>{});
        return;
    }
    windowLister_.start([this, generation, list = sources_.windows] {
        auto windows = list();
        QMetaObject::invokeMethod(
            this,
            [this, generation, windows = std::move(windows)]() mutable {
                applyWindows(generation, std::move(windows));
            },
            Qt::QueuedConnection);
    });
}

void DeviceManager::applyWindows(unsigned generation,
                                 std::optional<std::vector<X11Window>> windows) {
    if (generation != windowGeneration_)
        return; // a newer refresh is on its way
    windowDevices_.clear();
    windows_.clear();
    if (windows && includeSimulator_) {
        for (auto& found : SimulatorWindows::select(*windows)) {
            windows_[found.device.id] = found.window;
            windowDevices_.push_back(std::move(found.device));
        }
    }
    rebuild();
}

void DeviceManager::rebuild() {
    std::vector<DeviceInfo> devices = cameraDevices_;
    devices.insert(devices.end(), androidDevices_.begin(), androidDevices_.end());
    devices.insert(devices.end(), windowDevices_.begin(), windowDevices_.end());
    auto selected = SelectionPolicy::choose(devices, selectedID_, preferredID_, userPicked_);
    const bool listChanged = devices.size() != devices_.size() ||
                             !std::equal(devices.begin(), devices.end(), devices_.begin(),
                                         [](const DeviceInfo& a, const DeviceInfo& b) {
                                             return a.id == b.id && a.name == b.name;
                                         });
    devices_ = std::move(devices);
    const bool selectionMoved = selected != selectedID_;
    selectedID_ = std::move(selected);
    if (listChanged)
        emit devicesChanged();
    if (selectionMoved)
        emit selectionChanged();
}

} // namespace varnel
