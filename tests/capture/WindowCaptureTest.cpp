// Emulator windows on a real X server of the test's own: listing them by the window rule and
// capturing their pixels through the product's window path.
#include "app/AppSettings.h"
#include "capture/CaptureService.h"
#include "capture/DeviceManager.h"
#include "capture/GlobalHotkey.h"
#include "capture/WindowList.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"
#include "support/XServer.h"

#include <QCoreApplication>
#include <QSettings>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

XServer* server = nullptr;

// A client of the X server that makes plain windows with known colours.
class XClient {
public:
    XClient() : c_(xcb_connect(server->display().c_str(), nullptr)) {
        screen_ = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
    }
    ~XClient() { xcb_disconnect(c_); }

    // A mapped window whose background the server paints in `rgb`, with a second colour in
    // its top-left quarter.
    xcb_window_t window(const char* instance, const char* wmClass, const std::string& title,
                        int width, int height, std::uint32_t rgb, std::uint32_t corner) {
        const xcb_window_t id = xcb_generate_id(c_);
        const std::uint32_t values[] = {rgb, 1 /* override nothing */};
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, id, screen_->root, 10, 10,
                          static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual, XCB_CW_BACK_PIXEL,
                          values);
        std::string wmClassValue = std::string(instance) + '\0' + wmClass + '\0';
        xcb_change_property(c_, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            static_cast<std::uint32_t>(wmClassValue.size()), wmClassValue.data());
        if (!title.empty())
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, id, atom("_NET_WM_NAME"),
                                atom("UTF8_STRING"), 8, static_cast<std::uint32_t>(title.size()),
                                title.data());
        xcb_map_window(c_, id);
        paint(id, width, height, rgb, corner);
        return id;
    }

    void paint(xcb_window_t id, int width, int height, std::uint32_t rgb, std::uint32_t corner) {
        const std::uint32_t background[] = {rgb};
        xcb_change_window_attributes(c_, id, XCB_CW_BACK_PIXEL, background);
        xcb_clear_area(c_, 0, id, 0, 0, 0, 0);
        const xcb_gcontext_t gc = xcb_generate_id(c_);
        const std::uint32_t foreground[] = {corner};
        xcb_create_gc(c_, gc, id, XCB_GC_FOREGROUND, foreground);
        const xcb_rectangle_t quarter{0, 0, static_cast<std::uint16_t>(width / 2),
                                      static_cast<std::uint16_t>(height / 2)};
        xcb_poly_fill_rectangle(c_, id, gc, 1, &quarter);
        xcb_free_gc(c_, gc);
        sync();
    }

    // Plays the window manager's part: the list of managed windows on the root.
    void setClientList(const std::vector<xcb_window_t>& windows) {
        xcb_change_property(c_, XCB_PROP_MODE_REPLACE, screen_->root, atom("_NET_CLIENT_LIST"),
                            XCB_ATOM_WINDOW, 32, static_cast<std::uint32_t>(windows.size()),
                            windows.data());
        sync();
    }
    void clearClientList() {
        xcb_delete_property(c_, screen_->root, atom("_NET_CLIENT_LIST"));
        sync();
    }

    void unmap(xcb_window_t id) {
        xcb_unmap_window(c_, id);
        sync();
    }
    void map(xcb_window_t id) {
        xcb_map_window(c_, id);
        sync();
    }
    void resize(xcb_window_t id, int width, int height) {
        const std::uint32_t size[] = {static_cast<std::uint32_t>(width),
                                      static_cast<std::uint32_t>(height)};
        xcb_configure_window(c_, id, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
        sync();
    }

    void destroy(xcb_window_t id) {
        xcb_destroy_window(c_, id);
        sync();
    }

private:
    xcb_atom_t atom(const char* name) {
        auto* reply = xcb_intern_atom_reply(
            c_, xcb_intern_atom(c_, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
            nullptr);
        const xcb_atom_t value = reply->atom;
        std::free(reply);
        return value;
    }
    void sync() { std::free(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr)); }

    xcb_connection_t* c_;
    xcb_screen_t* screen_;
};

const X11Window* findWindow(const std::vector<X11Window>& windows, std::uint32_t id) {
    for (const auto& window : windows) {
        if (window.id == id)
            return &window;
    }
    return nullptr;
}

TEST(WindowListTest, ReadsClassTitleAndSizeWithOrWithoutAWindowManager) {
    XClient x;
    const auto simulator =
        x.window("Simulator", "Simulator", "iPhone 15 – iOS 17.2", 300, 200, 0x2040c0, 0xc02020);
    const auto editor = x.window("gedit", "Gedit", "notes.txt", 200, 100, 0xffffff, 0);

    const auto bare = WindowList::list(server->display());
    ASSERT_TRUE(bare);
    const X11Window* found = findWindow(*bare, simulator);
    ASSERT_NE(found, nullptr) << "without a window manager the root's children are read";
    EXPECT_EQ(found->wmInstance, "Simulator");
    EXPECT_EQ(found->wmClass, "Simulator");
    EXPECT_EQ(found->title, "iPhone 15 – iOS 17.2");
    EXPECT_EQ(found->width, 300);
    EXPECT_EQ(found->height, 200);
    EXPECT_NE(findWindow(*bare, editor), nullptr);

    x.setClientList({editor});
    const auto managed = WindowList::list(server->display());
    ASSERT_TRUE(managed);
    EXPECT_EQ(findWindow(*managed, simulator), nullptr) << "the manager's list is the list";
    EXPECT_NE(findWindow(*managed, editor), nullptr);
    x.clearClientList();
    x.destroy(simulator);
    x.destroy(editor);

    EXPECT_FALSE(WindowList::list(":999")) << "no such display";
}

TEST(WindowListTest, OnlyTitledEmulatorWindowsWithoutRemoteAreOffered) {
    const std::vector<X11Window> windows = {
        {1, "Simulator", "Simulator", "iPhone 15", 10, 10},
        {2, "Simulator", "Simulator", "", 10, 10},
        {3, "Simulator", "Simulator", "Remote Device", 10, 10},
        {4, "gedit", "Gedit", "Simulator", 10, 10},
        {5, "qemu-system-x86_64", "Emulator", "Android Emulator - Pixel_7:5554", 10, 10},
        {6, "scrcpy", "scrcpy", "Pixel 8", 10, 10},
        {7, "simulator", "simulator", "lower case is another application", 10, 10},
    };
    const auto offered = SimulatorWindows::select(windows);
    std::vector<std::string> names;
    for (const auto& window : offered)
        names.push_back(window.device.id + " " + window.device.name);
    EXPECT_EQ(names, (std::vector<std::string>{
                         "window:1 Window — iPhone 15",
                         "window:5 Window — Android Emulator - Pixel_7:5554",
                         "window:6 Window — Pixel 8",
                     }));
    EXPECT_TRUE(offered.at(0).device.isWindow);
}

class WindowDevices : public ::testing::Test {
protected:
    WindowDevices()
        : settings(std::make_unique<QSettings>(
              QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)) {}

    TempDir dir;
    AppSettings settings;
};

TEST_F(WindowDevices, IncludeSimulatorAddsAndRemovesWindowsAndThePickIsNotRemembered) {
    XClient x;
    const auto window = x.window("Simulator", "Simulator", "iPad Air", 120, 90, 0x00ff00, 0);
    const std::string id = "window:" + std::to_string(window);
    DeviceManager manager(
        settings,
        DeviceSources{[] { return std::vector<DeviceInfo>{}; }, {}, {}, {}, {}, [](auto) {}, {}});
    manager.waitForWindowRefresh();
    EXPECT_TRUE(manager.devices().empty()) << "windows are off by default";

    settings.setIncludeSimulator(true);
    manager.waitForWindowRefresh();
    ASSERT_EQ(manager.devices().size(), 1u);
    EXPECT_EQ(manager.devices()[0].id, id);
    EXPECT_EQ(manager.devices()[0].name, "Window — iPad Air");
    EXPECT_EQ(manager.selectedID(), id);
    manager.select(id);
    EXPECT_EQ(settings.preferredDeviceID(), std::nullopt) << "windows are never remembered";
    ASSERT_TRUE(manager.selectedWindow());
    EXPECT_EQ(manager.selectedWindow()->id, window);
    EXPECT_EQ(manager.selectedDevice(), nullptr) << "a window is no camera";

    settings.setIncludeSimulator(false);
    EXPECT_TRUE(manager.devices().empty()) << "off empties the list at once";
    EXPECT_EQ(manager.selectedID(), std::nullopt);
    x.destroy(window);
}

// Whether the frame shows `rgb` at (x, y).
bool shows(const VideoFrame& frame, int x, int y, std::uint32_t rgb) {
    bool match = false;
    frame.withPixels([&](const std::uint8_t* pixels, std::size_t stride) {
        const std::uint8_t* p = pixels + static_cast<std::size_t>(y) * stride + x * 4;
        match = p[2] == ((rgb >> 16) & 0xff) && p[1] == ((rgb >> 8) & 0xff) && p[0] == (rgb & 0xff);
    });
    return match;
}

TEST(WindowCaptureTest, CapturesTheWindowsPixelsAsTheyChangeAndStopsWhenItCloses) {
    XClient x;
    const auto id = x.window("Simulator", "Simulator", "iPhone SE", 240, 160, 0x2040c0, 0xc02020);
    CaptureService service;
    QString stopped;
    QObject::connect(&service, &CaptureService::streamStopped,
                     [&](const QString& reason) { stopped = reason; });
    service.startWindow(X11Window{id, "Simulator", "Simulator", "iPhone SE", 240, 160});
    ASSERT_TRUE(service.isRunning());
    ASSERT_TRUE(waitUntil([&] {
        const auto frame = service.latestFrame();
        return !frame.isNull() && shows(frame, 200, 140, 0x2040c0);
    }));
    const VideoFrame first = service.latestFrame();
    EXPECT_EQ(first.width(), 240);
    EXPECT_EQ(first.height(), 160);
    EXPECT_TRUE(shows(first, 10, 10, 0xc02020)) << "the top-left quarter is at the top left";
    EXPECT_TRUE(shows(first, 200, 10, 0x2040c0));
    ASSERT_TRUE(waitUntil([&] { return service.resolution() == PixelSize{240, 160}; }));

    x.paint(id, 240, 160, 0x10a050, 0xf0f0f0);
    ASSERT_TRUE(waitUntil([&] { return shows(service.latestFrame(), 200, 140, 0x10a050); }))
        << "the new picture arrives";
    EXPECT_TRUE(shows(service.latestFrame(), 20, 20, 0xf0f0f0));

    x.destroy(id);
    ASSERT_TRUE(waitUntil([&] { return !service.isRunning(); }))
        << "the stream ends with its window";
    EXPECT_FALSE(stopped.isEmpty());
}

// Without a compositing window manager the screen shows whatever is on top; the capture
// reads the emulator window's own pixels, even where the capture window itself covers it.
TEST(WindowCaptureTest, ACoveredWindowIsCapturedAsItIsNotAsTheScreenShowsIt) {
    XClient x;
    const auto id = x.window("Simulator", "Simulator", "Covered", 240, 160, 0x2040c0, 0xc02020);
    const auto cover = x.window("varnel", "Varnel", "Capture", 300, 200, 0xf0f0f0, 0xf0f0f0);
    CaptureService service;
    service.startWindow(X11Window{id, "Simulator", "Simulator", "Covered", 240, 160});
    ASSERT_TRUE(waitUntil([&] { return !service.latestFrame().isNull(); }));
    EXPECT_TRUE(shows(service.latestFrame(), 200, 140, 0x2040c0)) << "not the covering window";

    x.paint(id, 240, 160, 0x10a050, 0x303030); // drawn while covered
    ASSERT_TRUE(waitUntil([&] { return shows(service.latestFrame(), 200, 140, 0x10a050); }))
        << "what the window draws under the cover arrives";
    EXPECT_TRUE(shows(service.latestFrame(), 10, 10, 0x303030));
    service.stop();
    x.destroy(cover);
    x.destroy(id);
}

// A minimized (unmapped) window gives no picture: no stale stills, and the source says why.
TEST(WindowCaptureTest, AHiddenWindowGivesNoPictureUntilItIsShownAgain) {
    XClient x;
    const auto id = x.window("Simulator", "Simulator", "Hidden", 200, 120, 0x2040c0, 0xc02020);
    CaptureService service;
    service.startWindow(X11Window{id, "Simulator", "Simulator", "Hidden", 200, 120});
    ASSERT_TRUE(waitUntil([&] { return !service.latestFrame().isNull(); }));
    EXPECT_FALSE(service.isSourceHidden());

    x.unmap(id);
    ASSERT_TRUE(waitUntil([&] { return service.isSourceHidden(); }));
    EXPECT_TRUE(service.latestFrame().isNull()) << "the last frame is stale";
    EXPECT_FALSE(service.stillFrame()) << "no still of a hidden window";
    waitUntil([] { return false; }, 0.3); // frames would have come by now
    EXPECT_TRUE(service.latestFrame().isNull());
    EXPECT_TRUE(service.isRunning()) << "the source waits for the window";

    x.paint(id, 200, 120, 0x10a050, 0x10a050);
    x.map(id);
    x.paint(id, 200, 120, 0x10a050, 0x10a050);
    ASSERT_TRUE(waitUntil([&] { return !service.isSourceHidden(); }));
    ASSERT_TRUE(waitUntil([&] { return shows(service.latestFrame(), 100, 60, 0x10a050); }))
        << "shown again, the window's current picture comes";
    service.stop();
    x.destroy(id);
}

// An emulator turned mid-clip: the window's new size is scaled into the clip's first size.
TEST(WindowCaptureTest, AWindowResizedMidClipKeepsTheClipsSize) {
    XClient x;
    const auto id = x.window("Simulator", "Simulator", "Turned", 120, 240, 0xd02020, 0xd02020);
    CaptureService service;
    service.startWindow(X11Window{id, "Simulator", "Simulator", "Turned", 120, 240});
    ASSERT_TRUE(waitUntil([&] { return !service.latestFrame().isNull(); }));
    TempDir dir;
    std::optional<std::filesystem::path> finished;
    service.onRecordingFinished = [&](const std::filesystem::path& file) { finished = file; };
    ASSERT_TRUE(service.startRecording(dir / "turned.mov"));
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= 10; }));
    x.resize(id, 240, 120);
    x.paint(id, 240, 120, 0x20c040, 0x20c040);
    ASSERT_TRUE(waitUntil([&] { return service.latestFrame().width() == 240; }));
    const auto before = service.recordingCounts().appended;
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= before + 10; }));
    service.stopRecording();
    ASSERT_TRUE(waitUntil([&] { return finished.has_value(); }));

    int letterboxed = 0;
    const auto info = readClip(*finished, [&](int, const unsigned char* bgrx, int stride) {
        auto green = [&](int px, int py) {
            const unsigned char* p = bgrx + py * stride + px * 4;
            return p[1] > 150 && p[2] < 100;
        };
        auto black = [&](int px, int py) {
            const unsigned char* p = bgrx + py * stride + px * 4;
            return p[0] < 30 && p[1] < 30 && p[2] < 30;
        };
        letterboxed += green(60, 120) && black(60, 10) && black(60, 230);
    });
    ASSERT_TRUE(info) << "the clip decodes";
    EXPECT_EQ(info->width, 120);
    EXPECT_EQ(info->height, 240);
    EXPECT_GE(letterboxed, 5) << "the turned window sits between bars";
    service.stop();
    x.destroy(id);
}

TEST(WindowCaptureTest, AWindowThatIsGoneCannotBeCaptured) {
    CaptureService service;
    EXPECT_THROW(
        service.startWindow(X11Window{0x7ffffff0, "Simulator", "Simulator", "Gone", 10, 10}),
        CaptureError);
    EXPECT_FALSE(service.isRunning());
}

TEST(GlobalHotkeyTest, TheShortcutFiresWhicheverWindowHasTheKeyboard) {
    GlobalHotkey hotkey;
    int fired = 0;
    QObject::connect(&hotkey, &GlobalHotkey::activated, [&] { ++fired; });
    ASSERT_TRUE(hotkey.setShortcut("Ctrl+Shift+K")) << hotkey.error().toStdString();

    GlobalHotkey rival;
    EXPECT_FALSE(rival.setShortcut("Ctrl+Shift+K")) << "one grab of a key per server";
    EXPECT_FALSE(rival.error().isEmpty());

    ASSERT_EQ(std::system("xdotool key ctrl+shift+k"), 0);
    ASSERT_TRUE(waitUntil([&] { return fired == 1; }));
    ASSERT_EQ(std::system("xdotool key ctrl+k"), 0); // another combination: not ours
    ASSERT_EQ(std::system("xdotool key ctrl+shift+k"), 0);
    ASSERT_TRUE(waitUntil([&] { return fired >= 2; }));
    waitUntil([] { return false; }, 0.3); // a stray activation would show by now
    EXPECT_EQ(fired, 2);

    ASSERT_TRUE(hotkey.setShortcut(""));
    EXPECT_TRUE(rival.setShortcut("Ctrl+Shift+K")) << "released for others";
    EXPECT_FALSE(hotkey.setShortcut("Ctrl+Shift")) << "no key";
}

} // namespace

int main(int argc, char** argv) {
    XServer xServer("1024x768x24");
    if (!xServer.running()) {
        fprintf(stderr, "Couldn't start Xvfb\n");
        return 1;
    }
    server = &xServer;
    setenv("DISPLAY", xServer.display().c_str(), 1);
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
