// The device list and its selection rules with the sources handed in as plain lists.
#include "app/AppSettings.h"
#include "capture/DeviceManager.h"
#include "capture/SelectionPolicy.h"
#include "capture/VideoNodes.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QSettings>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

DeviceInfo camera(const std::string& id) {
    return DeviceInfo{id, "Camera " + id, false};
}

TEST(SelectionPolicyTest, RulesInOrder) {
    const std::vector<DeviceInfo> list = {camera("a"), camera("b"), {"window:7", "Sim", true}};
    using SelectionPolicy::choose;
    // A pick of this run stays while it is listed, even over the remembered camera.
    EXPECT_EQ(choose(list, "window:7", "a", true), "window:7");
    // Otherwise the remembered camera takes the selection back.
    EXPECT_EQ(choose(list, "b", "a", false), "a");
    // The pick is gone: remembered, then current, then first.
    EXPECT_EQ(choose(list, "gone", "b", true), "b");
    EXPECT_EQ(choose(list, "window:7", "gone", false), "window:7");
    EXPECT_EQ(choose(list, "gone", "gone-too", true), "a");
    EXPECT_EQ(choose({}, "a", "a", true), std::nullopt);
}

class ManagerTest : public ::testing::Test {
protected:
    ManagerTest()
        : settings(std::make_unique<QSettings>(
              QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)) {}

    std::unique_ptr<DeviceManager> make() {
        DeviceSources sources;
        sources.cameras = [this] { return cameras; };
        sources.windows = [this]() -> std::optional<std::vector<X11Window>> {
            ++windowLists;
            return windows;
        };
        sources.watchCameras = [this](std::function<void()> changed) { plug = std::move(changed); };
        auto manager = std::make_unique<DeviceManager>(settings, sources);
        manager->waitForWindowRefresh();
        return manager;
    }

    // A camera comes or goes: the monitor's callback, then the main loop.
    void replug(DeviceManager& manager, std::vector<DeviceInfo> now) {
        cameras = std::move(now);
        plug();
        QCoreApplication::sendPostedEvents();
        manager.waitForWindowRefresh();
    }

    TempDir dir;
    AppSettings settings;
    std::vector<DeviceInfo> cameras;
    std::optional<std::vector<X11Window>> windows = std::vector<X11Window>{};
    std::function<void()> plug;
    int windowLists = 0;
};

TEST_F(ManagerTest, CamerasComeFirstThenWindows) {
    cameras = {camera("usb-1")};
    windows = std::vector<X11Window>{{42, "Simulator", "Simulator", "iPhone 15", 10, 10}};
    settings.setIncludeSimulator(true);
    auto manager = make();
    ASSERT_EQ(manager->devices().size(), 2u);
    EXPECT_EQ(manager->devices()[0].id, "usb-1");
    EXPECT_EQ(manager->devices()[1].id, "window:42");
    EXPECT_EQ(manager->selectedID(), "usb-1");
    EXPECT_TRUE(manager->includeSimulator()) << "mirrored from the setting";
}

TEST_F(ManagerTest, APhonePickedBeforeARestartIsSelectedWhenItReturns) {
    cameras = {camera("webcam"), camera("phone")};
    {
        auto first = make();
        first->select("phone");
    }
    cameras = {camera("webcam")};
    auto manager = make();
    EXPECT_EQ(manager->selectedID(), "webcam");
    replug(*manager, {camera("webcam"), camera("phone")});
    EXPECT_EQ(manager->selectedID(), "phone") << "the remembered phone wins over the automatic";
}

TEST_F(ManagerTest, AWindowPickedInThisRunSurvivesAPhoneReconnecting) {
    cameras = {camera("webcam")};
    settings.setPreferredDeviceID(std::string("phone"));
    windows = std::vector<X11Window>{{9, "Simulator", "Simulator", "iPhone 15", 10, 10}};
    settings.setIncludeSimulator(true);
    auto manager = make();
    manager->select("window:9");
    EXPECT_EQ(settings.preferredDeviceID(), "phone") << "a window leaves the remembered one";
    replug(*manager, {camera("webcam"), camera("phone")});
    EXPECT_EQ(manager->selectedID(), "window:9");

    // The pick goes away: the remembered camera takes over.
    windows = std::vector<X11Window>{};
    manager->refresh();
    manager->waitForWindowRefresh();
    EXPECT_EQ(manager->selectedID(), "phone");
}

TEST_F(ManagerTest, WindowListingFailureListsNoWindowsSilently) {
    cameras = {camera("webcam")};
    windows = std::nullopt;
    settings.setIncludeSimulator(true);
    auto manager = make();
    ASSERT_EQ(manager->devices().size(), 1u);
    EXPECT_EQ(manager->selectedID(), "webcam");
}

TEST_F(ManagerTest, SettingTheSameSwitchAgainDoesNothing) {
    auto manager = make();
    const int before = windowLists;
    int changes = 0;
    QObject::connect(manager.get(), &DeviceManager::devicesChanged, [&] { ++changes; });
    manager->setIncludeSimulator(false);
    EXPECT_EQ(windowLists, before);
    manager->setIncludeSimulator(true);
    manager->waitForWindowRefresh();
    EXPECT_EQ(windowLists, before + 1);
    EXPECT_EQ(changes, 0) << "no window, no change to the list";
}

TEST_F(ManagerTest, EmptyListHasNoSelection) {
    auto manager = make();
    EXPECT_TRUE(manager->devices().empty());
    EXPECT_EQ(manager->selectedID(), std::nullopt);
    EXPECT_EQ(manager->selectedInfo(), std::nullopt);
    EXPECT_EQ(manager->selectedDevice(), nullptr);
}

// A camera this user may not open is missing from GStreamer's list: the video nodes say so.
TEST(VideoNodesTest, ListsVideoNodesByNumberAndTellsWhichCantBeOpened) {
    TempDir dev;
    for (const char* name : {"video10", "video2", "video0", "videoX", "vbi0", "video"})
        writeFile(dev / name, "");
    const auto nodes = VideoNodes::list(dev.path());
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(nodes[0].filename(), "video0");
    EXPECT_EQ(nodes[1].filename(), "video2");
    EXPECT_EQ(nodes[2].filename(), "video10") << "by number, not by name";
    const auto closed = VideoNodes::unreadable(
        dev.path(), [](const fs::path& node) { return node.filename() != "video2"; });
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_EQ(closed[0].filename(), "video2");
    EXPECT_TRUE(VideoNodes::list(dev / "missing").empty());

    // Loopback devices both take and give pictures: capture is what counts.
    const auto capture = VideoNodes::captureNodes(dev.path(), [](const fs::path& node) {
        std::optional<VideoNodes::Capabilities> caps;
        if (node.filename() == "video0")
            caps = VideoNodes::Capabilities{"Loopback phone", true};
        if (node.filename() == "video2")
            caps = VideoNodes::Capabilities{"Metadata", false};
        if (node.filename() == "video10")
            caps = VideoNodes::Capabilities{"", true};
        return caps;
    });
    ASSERT_EQ(capture.size(), 2u);
    EXPECT_EQ(capture[0].card, "Loopback phone");
    EXPECT_EQ(capture[1].node.filename(), "video10");
    EXPECT_EQ(capture[1].card, "Video device") << "a node without a name still gets one";
    EXPECT_FALSE(VideoNodes::query(dev / "video0")) << "a plain file is no video device";
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
