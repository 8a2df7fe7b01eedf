#include "library/ThumbnailCache.h"
#include "library/ThumbnailFiles.h"
#include "support/TestLibrary.h"

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

TEST(ThumbnailCacheTest, MakesThumbnailsOffTheMainThreadAndAnnouncesThem) {
    TempDir dir;
    writePng(dir / kScreen.folder / kScreen.filename, 300, 900, Qt::blue);
    writeFile(dir / kScreen.folder / "02.png", "broken");
    ThumbnailCache cache(dir.path());

    std::vector<ScreenID> ready;
    std::vector<ScreenID> failed;
    QEventLoop loop;
    QObject::connect(&cache, &ThumbnailCache::ready, [&](const ScreenID& s, const QString& path) {
        ready.push_back(s);
        EXPECT_TRUE(fs::exists(path.toStdString()));
        if (ready.size() + failed.size() == 2)
            loop.quit();
    });
    QObject::connect(&cache, &ThumbnailCache::failed, [&](const ScreenID& s) {
        failed.push_back(s);
        if (ready.size() + failed.size() == 2)
            loop.quit();
    });
    EXPECT_FALSE(cache.thumbnail(kScreen));
    EXPECT_FALSE(cache.thumbnail(kScreen)) << "asked twice, made once";
    EXPECT_FALSE(cache.thumbnail({kScreen.folder, "02.png"}));
    EXPECT_FALSE(cache.thumbnail({"../escape", "01.png"}));
    QTimer::singleShot(20000, &loop, &QEventLoop::quit); // a safety net, not a timing assumption
    loop.exec();

    EXPECT_EQ(ready, std::vector<ScreenID>{kScreen});
    EXPECT_EQ(failed, (std::vector<ScreenID>{{kScreen.folder, "02.png"}}));
    EXPECT_EQ(cache.thumbnail(kScreen), ThumbnailFiles::url(dir.path(), kScreen));
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
