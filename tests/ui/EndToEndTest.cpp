// The real application on a real X server: a generated library is opened and the screen is
// grabbed to check what a user would see.
#include "library/FlowStore.h"
#include "support/TestLibrary.h"
#include "support/XServer.h"

#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QThread>

#include <unistd.h>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

struct Colour {
    int r, g, b;
    bool near(QRgb pixel) const {
        return std::abs(qRed(pixel) - r) < 30 && std::abs(qGreen(pixel) - g) < 30 &&
               std::abs(qBlue(pixel) - b) < 30;
    }
};

// Where a colour shows on the screen, and how much of it.
struct Patch {
    int pixels = 0;
    QRect bounds;
};

Patch find(const QImage& image, Colour colour) {
    Patch patch;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            if (!colour.near(line[x]))
                continue;
            ++patch.pixels;
            patch.bounds |= QRect(x, y, 1, 1);
        }
    }
    return patch;
}

} // namespace

TEST(EndToEndTest, TheGalleryShowsEachFlowAsABandOfThumbnails) {
    TempDir dir;
    const fs::path root = dir / "Library";
    const Colour red{220, 50, 60}, green{40, 190, 90};
    {
        FlowStore store(root);
        const auto signUp = store.createEmptyFlow("Acme", "Sign up", "Onboarding", Date{7e8});
        const auto logIn = store.createEmptyFlow("Acme", "Log in", "Onboarding", Date{7e8});
        std::vector<fs::path> reds, greens;
        for (int i = 0; i < 3; ++i) {
            reds.push_back(dir / ("red" + std::to_string(i) + ".png"));
            writePicture(reds.back(), 390, 844, qRgb(red.r, red.g, red.b));
        }
        for (int i = 0; i < 2; ++i) {
            greens.push_back(dir / ("green" + std::to_string(i) + ".png"));
            writePicture(greens.back(), 390, 844, qRgb(green.r, green.g, green.b));
        }
        store.addScreens(signUp.folderName, reds, Date{7e8});
        store.addScreens(logIn.folderName, greens, Date{7e8});
    }
    // The thumbnail height comes from the settings.
    writeFile(dir / "config/Varnel/Varnel.conf", "[General]\nthumbnailHeight=160\n");
    // The desktop prefers dark, as GNOME writes it; the app's appearance follows the desktop.
    writeFile(dir / "config/gtk-3.0/settings.ini",
              "[Settings]\ngtk-application-prefer-dark-theme=1\n");

    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("XDG_CONFIG_HOME", QString::fromStdString((dir / "config").string()));
    env.insert("XDG_RUNTIME_DIR", QString::fromStdString(dir.path().string()));
    app.setProcessEnvironment(env);
    app.start(VARNEL_APP_PATH, {"--library", QString::fromStdString(root.string())});
    ASSERT_TRUE(app.waitForStarted(30000));

    // Thumbnails are made in the background: grab until all five are on screen.
    QImage shot;
    Patch reds, greens;
    const int tile = 160 * 160 * 9 / 19; // a thumbnail's area at this height, about
    for (int attempt = 0; attempt < 300; ++attempt) {
        shot = QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
            QImage::Format_RGB32);
        reds = find(shot, red);
        greens = find(shot, green);
        if (reds.pixels > 3 * tile * 8 / 10 && greens.pixels > 2 * tile * 8 / 10)
            break;
        QThread::msleep(100);
    }
    const fs::path saved = fs::path(SCREENSHOT_DIR) / "gallery.png";
    fs::create_directories(saved.parent_path());
    shot.save(QString::fromStdString(saved.string()));
    app.terminate();
    ASSERT_TRUE(app.waitForFinished(30000));

    SCOPED_TRACE("screenshot: " + saved.string());
    EXPECT_GT(reds.pixels, 3 * tile * 8 / 10) << "three thumbnails of the first flow";
    EXPECT_GT(greens.pixels, 2 * tile * 8 / 10) << "two of the second";
    // One band above the other, each a row of thumbnails side by side, 160 pixels tall.
    EXPECT_LT(reds.bounds.bottom(), greens.bounds.top());
    EXPECT_NEAR(reds.bounds.height(), 160, 4);
    EXPECT_GT(reds.bounds.width(), 3 * 70);
    EXPECT_GT(greens.bounds.width(), 2 * 70);
    EXPECT_LT(greens.bounds.width(), 3 * 70);
    EXPECT_EQ(reds.bounds.left(), greens.bounds.left()) << "bands start at the same margin";
    // The default appearance follows the desktop, which prefers dark here.
    EXPECT_LT(qGray(shot.pixel(reds.bounds.right() + 200, reds.bounds.center().y())), 60);
}

int main(int argc, char** argv) {
    XServer server;
    if (!server.running()) {
        fprintf(stderr, "Couldn't start Xvfb\n");
        return 1;
    }
    setenv("DISPLAY", server.display().c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    int result = 1;
    {
        QGuiApplication app(argc, argv);
        ::testing::InitGoogleTest(&argc, argv);
        result = RUN_ALL_TESTS();
    }
    return result;
}
