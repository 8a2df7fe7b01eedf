#include "cli/CliCapture.h"

#include "cli/Cli.h"

#include "app/AppSettings.h"
#include "capture/AdbSources.h"
#include "capture/CaptureService.h"
#include "capture/DeviceManager.h"
#include "capture/SessionController.h"
#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/JsonCoding.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gst/gst.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ostream>

namespace varnel::cli {

namespace {

constexpr double kFirstFrameTimeout = 15;
constexpr double kClipFinishTimeout = 120;

bool takeFlag(std::vector<std::string>& arguments, const std::string& flag) {
    const auto it = std::find(arguments.begin(), arguments.end(), flag);
    if (it == arguments.end())
        return false;
    arguments.erase(it);
    return true;
}

double number(const std::map<std::string, std::string>& found, const std::string& key,
              double fallback) {
    const auto it = found.find(key);
    if (it == found.end())
        return fallback;
    try {
        std::size_t used = 0;
        const double value = std::stod(it->second, &used);
        if (used != it->second.size() || !std::isfinite(value) || value < 0)
            throw std::invalid_argument(key);
        return value;
    } catch (const std::exception&) {
        throw UsageError(key + " needs a number that is not negative");
    }
}

// Runs the event loop until `done` holds or `seconds` pass.
bool runUntil(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

void runFor(double seconds) {
    runUntil([] { return false; }, seconds);
}

} // namespace

int sources(Invocation& inv, std::ostream& out) {
    const bool windows = takeFlag(inv.arguments, "--include-simulator");
    if (!inv.arguments.empty())
        throw UsageError("sources takes no arguments but --include-simulator");
    AppSettings settings;
    DeviceManager manager(settings);
    manager.setIncludeSimulator(windows);
    manager.refreshAndroid();
    manager.waitForWindowRefresh();
    if (inv.json) {
        Json list = Json::array();
        for (const auto& device : manager.devices())
            list.push_back(
                {{"id", device.id}, {"name", device.name}, {"isWindow", device.isWindow}});
        out << list.dump(2) << "\n";
        return kSuccess;
    }
    for (const auto& device : manager.devices())
        out << device.id << "\t" << device.name << "\n";
    return kSuccess;
}

int capture(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err) {
    auto found = options(inv.arguments, {"--source", "--stills", "--interval", "--clip", "--app",
                                         "--name", "--category", "--append"});
    if (!inv.arguments.empty())
        throw UsageError("unexpected argument “" + inv.arguments.front() + "”");
    if (!found.count("--source"))
        throw UsageError("capture needs --source (see `varnel-cli sources`)");
    const bool appending = found.count("--append") > 0;
    if (!appending && (!found.count("--app") || !found.count("--name")))
        throw UsageError("capture needs --app and --name, or --append FOLDER");
    const double clipSeconds = number(found, "--clip", 0);
    const int stills = static_cast<int>(number(found, "--stills", clipSeconds > 0 ? 0 : 1));
    const double interval = number(found, "--interval", 1);
    if (stills == 0 && clipSeconds <= 0)
        throw UsageError("nothing to capture: give --stills or --clip");
    if (appending)
        store.meta(found["--append"]); // a missing or unreadable flow fails before capturing

    const std::string sourceID = found["--source"];
    AppSettings settings;
    DeviceManager manager(settings);
    manager.setIncludeSimulator(sourceID.starts_with(SimulatorWindows::kWindowPrefix));
    if (AdbSources::isAdbID(sourceID))
        manager.refreshAndroid();
    manager.waitForWindowRefresh();
    const auto listed = std::find_if(manager.devices().begin(), manager.devices().end(),
                                     [&](const DeviceInfo& d) { return d.id == sourceID; });
    if (listed == manager.devices().end())
        throw LibraryError("There is no source “" + sourceID +
                           "”; `varnel-cli sources --include-simulator` lists them.");
    const DeviceInfo device = *listed;

    CaptureService service;
    try {
        if (device.isWindow) {
            service.startWindow(*manager.window(device.id));
        } else if (AdbSources::isAdbID(device.id)) {
            service.startAdb(AdbSources::serialOf(device.id), manager.adbClient());
        } else {
            GstDevice* camera = manager.cameraDevice(device.id);
            const auto release = [&] {
                if (camera)
                    gst_object_unref(camera);
            };
            try {
                service.start(camera);
            } catch (...) {
                release();
                throw;
            }
            release();
        }
    } catch (const CaptureError& e) {
        throw LibraryError(std::string(device.isWindow ? "Couldn’t capture the window: "
                                                       : "Couldn’t switch device: ") +
                           e.what());
    }
    if (!runUntil([&] { return !service.latestFrame().isNull(); }, kFirstFrameTimeout))
        throw LibraryError("The source “" + device.name + "” shows no picture.");

    SessionController session(store, [&] { return service.stillFrame(); });
    try {
        session.start(appending ? std::optional<std::string>(found["--append"]) : std::nullopt);
    } catch (const std::exception& e) {
        throw LibraryError(std::string("Couldn’t start session: ") + e.what());
    }
    bool failed = false;
    for (int i = 0; i < stills; ++i) {
        if (i > 0)
            runFor(interval);
        if (!session.add(CaptureSource::manual)) {
            err << "varnel-cli: still " << i + 1 << " could not be captured: "
                << (service.isSourceHidden() ? "The window is minimized — restore it to capture."
                                             : session.addFailure())
                << "\n";
            failed = true;
        } else if (!session.addNote().empty()) {
            err << "varnel-cli: still " << i + 1 << ": " << session.addNote() << "\n";
        }
    }
    if (clipSeconds > 0) {
        bool ended = false;
        std::string failure;
        service.onRecordingFinished = [&](const std::filesystem::path&) { ended = true; };
        QObject::connect(&service, &CaptureService::recordingAbandoned, [&] { ended = true; });
        QObject::connect(&service, &CaptureService::recordingFailed,
                         [&](const QString& reason, bool kept) {
                             ended = true;
                             failure = reason.toStdString() +
                                       (kept ? " What was recorded until then is kept." : "");
                         });
        const auto size = service.resolution();
        if (const auto file = session.beginVideo(size.width, size.height)) {
            service.startRecording(*file);
            runUntil([&] { return ended; }, clipSeconds); // a failure ends it at once
            service.stopRecording();
            runUntil([&] { return ended; }, kClipFinishTimeout);
            const bool committed = session.commitVideo();
            if (!failure.empty()) {
                err << "varnel-cli: the clip stopped early: " << failure << "\n";
                failed = true;
            } else if (!committed) {
                err << "varnel-cli: the clip could not be recorded\n";
                failed = true;
            }
        }
    }
    service.stop();

    const auto saved =
        session.stop(found["--app"], found["--name"], found["--category"], device.name);
    if (!saved) {
        err << "varnel-cli: "
            << (appending ? "No screens added." : "No screens captured — nothing to save.") << "\n";
        return kFailed;
    }
    out << std::filesystem::relative(*saved, store.root()).string() << "\n";
    return failed ? kFailed : kSuccess;
}

} // namespace varnel::cli
