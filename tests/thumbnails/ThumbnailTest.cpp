#include "media/PosterFrame.h"
#include "support/TestLibrary.h"
#include "thumbnails/ThumbnailCache.h"
#include "thumbnails/ThumbnailFiles.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QImage>
#include <QTimer>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

void writePng(const fs::path& file, int width, int height, QColor color) {
    fs::create_directories(file.parent_path());
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(color);
    ASSERT_TRUE(image.save(QString::fromStdString(file.string()), "PNG"));
}

QImage load(const fs::path& file) {
    return QImage(QString::fromStdString(file.string()));
}

const ScreenID kScreen{"acme/onboarding/sign-up", "01.png"};

} // namespace

TEST(ThumbnailFilesTest, RendersAScaledJpegBesideTheFlow) {
    TempDir dir;
    const fs::path screen = dir / "acme/onboarding/sign-up/01.png";
    writePng(screen, 1179, 2556, QColor(255, 0, 0, 0)); // fully transparent
    const fs::path thumb = ThumbnailFiles::url(dir.path(), kScreen);
    EXPECT_EQ(thumb, dir / "acme/onboarding/sign-up/.thumbs/v1/01.jpg");
    EXPECT_FALSE(ThumbnailFiles::isFresh(screen, thumb));

    ASSERT_TRUE(ThumbnailFiles::render(screen, thumb));
    const QImage image = load(thumb);
    EXPECT_EQ(image.height(), ThumbnailFiles::kHeight);
    EXPECT_NEAR(image.width(), 277, 1);
    EXPECT_GT(qGray(image.pixel(10, 10)), 240) << "transparency becomes white, not black";
    EXPECT_TRUE(ThumbnailFiles::isFresh(screen, thumb));
    EXPECT_EQ(FileOps::list(thumb.parent_path()), std::vector<std::string>{"01.jpg"});

    fs::last_write_time(screen, fs::last_write_time(thumb) + std::chrono::seconds(5));
    EXPECT_FALSE(ThumbnailFiles::isFresh(screen, thumb)) << "an edited screen needs a new one";

    writeFile(dir / "broken.png", "not an image");
    EXPECT_FALSE(ThumbnailFiles::render(dir / "broken.png", dir / "t/broken.jpg"));
}

TEST(ThumbnailFilesTest, FollowsRemovalsCopiesAndSwaps) {
    TempDir dir;
    const std::string folder = "a/b/c";
    auto thumb = [&](const std::string& name) {
        return ThumbnailFiles::url(dir.path(), {folder, name});
    };
    writeFile(thumb("01.png"), "one");
    writeFile(thumb("02.png"), "two");
    writeFile(thumb("03.png"), "three");

    ThumbEdits edits;
    edits.removals = {{folder, "03.png"}};
    edits.copies = {{{folder, "01.png"}, {folder, "04.png"}}};
    edits.renames = {{{folder, "01.png"}, {folder, "02.png"}},
                     {{folder, "02.png"}, {folder, "01.png"}},
                     {{folder, "09.png"}, {folder, "03.png"}}};
    ThumbnailFiles::apply(dir.path(), edits);
    EXPECT_EQ(readFile(thumb("01.png")), "two");
    EXPECT_EQ(readFile(thumb("02.png")), "one");
    EXPECT_EQ(readFile(thumb("04.png")), "one");
    EXPECT_FALSE(fs::exists(thumb("03.png")));
    EXPECT_EQ(FileOps::list(thumb("01.png").parent_path()).size(), 3u) << "no temporary left";
}

// Runs the event loop until `count` announcements came from the cache.
struct Announcements {
    explicit Announcements(ThumbnailCache& cache) {
        QObject::connect(&cache, &ThumbnailCache::ready, [this](const ScreenID& s) {
            ready.push_back(s);
            loop.quit();
        });
        QObject::connect(&cache, &ThumbnailCache::failed, [this](const ScreenID& s) {
            failed.push_back(s);
            loop.quit();
        });
    }
    void waitFor(std::size_t count) {
        QTimer safety; // a safety net, not a timing assumption
        safety.setSingleShot(true);
        QObject::connect(&safety, &QTimer::timeout, &loop, &QEventLoop::quit);
        safety.start(20000);
        while (ready.size() + failed.size() < count && safety.isActive())
            loop.exec();
    }
    std::vector<ScreenID> ready;
    std::vector<ScreenID> failed;
    QEventLoop loop;
};

TEST(ThumbnailCacheTest, MakesPicturesOffTheMainThreadAndAnnouncesThem) {
    TempDir dir;
    writePng(dir / kScreen.folder / kScreen.filename, 300, 900, Qt::blue);
    writeFile(dir / kScreen.folder / "02.png", "broken");
    ThumbnailCache cache(dir.path());
    cache.setImageHeight(150);
    Announcements heard(cache);

    EXPECT_TRUE(cache.image(kScreen).isNull());
    EXPECT_TRUE(cache.image(kScreen).isNull()) << "asked twice, made once";
    EXPECT_TRUE(cache.image({kScreen.folder, "02.png"}).isNull());
    EXPECT_TRUE(cache.image({"../escape", "01.png"}).isNull());
    EXPECT_TRUE(cache.hasFailed({"../escape", "01.png"})) << "never looked for outside the root";
    heard.waitFor(2);
    cache.waitForIdle();

    EXPECT_EQ(heard.ready, std::vector<ScreenID>{kScreen});
    EXPECT_EQ(heard.failed, (std::vector<ScreenID>{{kScreen.folder, "02.png"}}));
    EXPECT_TRUE(cache.hasFailed({kScreen.folder, "02.png"}));
    const QImage picture = cache.image(kScreen);
    EXPECT_EQ(picture.height(), 150);
    EXPECT_EQ(picture.width(), 50);
    EXPECT_GT(qBlue(picture.pixel(25, 75)), 240); // JPEG
    EXPECT_TRUE(fs::exists(ThumbnailFiles::url(dir.path(), kScreen)));
    EXPECT_TRUE(cache.image({kScreen.folder, "02.png"}).isNull());
    cache.waitForIdle();
    EXPECT_EQ(heard.failed.size(), 1u) << "a failure is not retried until the files change";
}

TEST(ThumbnailCacheTest, PicturesFollowScreenOperationsAndEditedFiles) {
    TempDir dir;
    const ScreenID one{kScreen.folder, "01.png"}, two{kScreen.folder, "02.png"};
    writePng(dir / one.folder / one.filename, 100, 200, Qt::red);
    writePng(dir / two.folder / two.filename, 100, 200, Qt::green);
    ThumbnailCache cache(dir.path());
    cache.setImageHeight(100);
    Announcements heard(cache);
    cache.image(one);
    cache.image(two);
    heard.waitFor(2);
    ASSERT_EQ(heard.ready.size(), 2u);

    // A swap, as a reorder of two screens makes it: pictures go with their screens at once.
    std::filesystem::rename(dir / one.folder / "01.png", dir / one.folder / "x.png");
    std::filesystem::rename(dir / one.folder / "02.png", dir / one.folder / "01.png");
    std::filesystem::rename(dir / one.folder / "x.png", dir / one.folder / "02.png");
    ThumbEdits swap;
    swap.renames = {{one, two}, {two, one}};
    cache.apply(swap);
    EXPECT_GT(qGreen(cache.image(one).pixel(10, 10)), 240); // JPEG
    EXPECT_GT(qRed(cache.image(two).pixel(10, 10)), 240);   // JPEG
    cache.waitForIdle();
    EXPECT_EQ(heard.ready.size(), 2u) << "moved thumbnail files need no new decoding";

    // The editor saves a new version of a screen: the old picture shows until the new one is in.
    writePng(dir / one.folder / one.filename, 100, 200, Qt::black);
    fs::last_write_time(dir / one.folder / one.filename,
                        fs::last_write_time(ThumbnailFiles::url(dir.path(), one)) +
                            std::chrono::seconds(5));
    cache.revalidate();
    EXPECT_GT(qGreen(cache.image(one).pixel(10, 10)), 240); // JPEG
    heard.waitFor(3);
    EXPECT_EQ(qGray(cache.image(one).pixel(10, 10)), 0);

    ThumbEdits removal;
    removal.removals = {two};
    cache.apply(removal);
    EXPECT_FALSE(fs::exists(ThumbnailFiles::url(dir.path(), two)));
}

TEST(ThumbnailCacheTest, KeepsWithinItsMemoryBudget) {
    TempDir dir;
    ThumbnailCache cache(dir.path());
    cache.setImageHeight(100);
    Announcements heard(cache);
    std::vector<ScreenID> screens;
    for (int i = 1; i <= 6; ++i) {
        screens.push_back({kScreen.folder, "0" + std::to_string(i) + ".png"});
        writePng(dir / kScreen.folder / screens.back().filename, 100, 100, Qt::gray);
        cache.image(screens.back());
    }
    heard.waitFor(6);
    cache.image(screens[0]); // recently used, so it stays
    cache.setMemoryBudget(3 * 100 * 100 * 4);
    EXPECT_FALSE(cache.image(screens[0]).isNull());
    int kept = 0;
    for (const auto& screen : screens)
        kept += cache.image(screen).isNull() ? 0 : 1;
    EXPECT_LE(kept, 3);
}

TEST(ThumbnailFilesTest, ClipsGetTheirFirstPictureAsPoster) {
    TempDir dir;
    const fs::path clip = dir / "a/b/c/02.mov";
    writeClip(clip, 320, 640);
    const QImage poster = PosterFrame::grab(clip);
    ASSERT_FALSE(poster.isNull());
    EXPECT_EQ(poster.size(), QSize(320, 640));
    EXPECT_GT(qRed(poster.pixel(160, 320)), 200);
    EXPECT_LT(qGreen(poster.pixel(160, 320)), 60);

    const fs::path thumb = ThumbnailFiles::url(dir.path(), {"a/b/c", "02.mov"});
    ASSERT_TRUE(ThumbnailFiles::render(clip, thumb));
    EXPECT_EQ(load(thumb).height(), ThumbnailFiles::kHeight);

    writeFile(dir / "broken.mov", "not a movie");
    EXPECT_TRUE(PosterFrame::grab(dir / "broken.mov").isNull());
    EXPECT_FALSE(ThumbnailFiles::render(dir / "broken.mov", dir / "t/broken.jpg"));
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
