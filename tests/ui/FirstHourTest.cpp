// What a new user does by hand in the window: picking applications and screens, moving
// through them with the keyboard, deleting and taking it back, searching.
#include "app/AppSettings.h"
#include "library/ScreenFiles.h"
#include "model/FlowLibrary.h"
#include "model/LibraryHistory.h"
#include "model/ScreenImport.h"
#include "support/LibraryState.h"
#include "support/TestLibrary.h"
#include "support/WindowDriving.h"
#include "ui/GalleryView.h"
#include "ui/LibrarySidebar.h"
#include "ui/MainWindow.h"
#include "ui/TrashWindow.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollBar>
#include <QSettings>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class FirstHourTest : public ::testing::Test {
protected:
    FirstHourTest() {
        window->resize(1100, 800);
        window->show();
        QApplication::processEvents();
    }
    std::unique_ptr<AppSettings> makeSettings() {
        return std::make_unique<AppSettings>(std::make_unique<QSettings>(
            QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat));
    }
    QPoint tileCenter(const std::string& folder, std::size_t index) {
        return test::tileCenter(window->gallery(), folder, index);
    }
    void addScreens(const std::string& folder, int count) {
        std::vector<fs::path> files;
        for (int i = 0; i < count; ++i) {
            files.push_back(dir / ("extra-" + std::to_string(i) + ".png"));
            writeFile(files.back(), pngBytes(1179, 2556, folder + " extra " + std::to_string(i)));
        }
        library.addScreens(folder, files);
    }
    QString status() const { return window->statusBar()->findChild<QLabel*>()->text(); }

    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowLibrary library{FlowStore(sample.root)};
    std::unique_ptr<AppSettings> settings = makeSettings();
    std::unique_ptr<MainWindow> window = std::make_unique<MainWindow>(library, *settings);
};

} // namespace

TEST_F(FirstHourTest, ClickingAnApplicationBelowAnExpandedOneSelectsThatApplication) {
    LibrarySidebar& sidebar = window->sidebar();
    auto rowOf = [&](const QString& text) {
        for (int i = 0; i < sidebar.topLevelItemCount(); ++i)
            if (sidebar.topLevelItem(i)->text(0) == text)
                return sidebar.visualItemRect(sidebar.topLevelItem(i)).center();
        ADD_FAILURE() << text.toStdString();
        return QPoint();
    };
    QTest::mouseClick(sidebar.viewport(), Qt::LeftButton, {}, rowOf("Acme"));
    ASSERT_EQ(sidebar.selectedApplication(), "Acme");
    ASSERT_EQ(sidebar.topLevelItem(1)->childCount(), 1) << "Acme shows its category";

    QTest::mouseClick(sidebar.viewport(), Qt::LeftButton, {}, rowOf("Bank"));
    EXPECT_EQ(sidebar.selectedApplication(), "Bank");
    ASSERT_TRUE(sidebar.currentItem());
    EXPECT_EQ(sidebar.currentItem()->text(0), "Bank") << "the highlighted row is the one picked";
    ASSERT_EQ(sidebar.selectedItems().size(), 1);
    EXPECT_EQ(sidebar.selectedItems().front()->text(0), "Bank");
    EXPECT_EQ(window->gallery().content().flows.size(), 1u);
}

TEST_F(FirstHourTest, APlainClickInsideASelectionPicksThatScreenAloneAndDeleteTakesOnlyIt) {
    const std::string signUp = SampleLibrary::signUp;
    GalleryView& gallery = window->gallery();
    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, {}, tileCenter(signUp, 0));
    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, Qt::ShiftModifier, tileCenter(signUp, 2));
    ASSERT_EQ(gallery.selectedScreens().size(), 3u);
    EXPECT_NE(status().indexOf("3 screens selected"), -1) << status().toStdString();

    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, {}, tileCenter(signUp, 1));
    EXPECT_EQ(gallery.selectedScreens(), (std::vector<ScreenID>{{signUp, "02.png"}}));
    EXPECT_NE(status().indexOf("1 screen selected"), -1) << status().toStdString();

    const std::string before = visibleState(library);
    window->action("Delete")->trigger();
    EXPECT_EQ(library.meta(signUp).screens.size(), 2u) << "only the screen picked";
    EXPECT_TRUE(gallery.selectedScreens().empty())
        << "the screen renumbered into the deleted one's name was not picked";
    EXPECT_FALSE(gallery.currentScreen());
    ASSERT_TRUE(window->findChild<QPushButton*>("statusUndo")->isVisible());
    window->findChild<QPushButton*>("statusUndo")->click();
    EXPECT_EQ(visibleState(library), before);
    EXPECT_EQ(gallery.selectedScreens(), (std::vector<ScreenID>{{signUp, "02.png"}}))
        << "what came back is selected";
}

TEST_F(FirstHourTest, UpAndDownMoveByTheLinesAsShownWithinAndBetweenFlows) {
    const std::string signUp = SampleLibrary::signUp, logIn = SampleLibrary::logIn;
    GalleryView& gallery = window->gallery();
    const auto perLine = static_cast<std::size_t>(gallery.galleryLayout().perLine());
    ASSERT_GE(perLine, 3u);
    // Sign up: one full line and a short one of a single screen.
    addScreens(signUp, static_cast<int>(perLine + 1 - 3));
    addScreens(logIn, static_cast<int>(perLine + 2 - 2));
    const auto screensIn = [&](const std::string& folder) { return library.meta(folder).screens; };
    gallery.selectScreen({signUp, screensIn(signUp)[2].filename});
    QTest::keyClick(&gallery, Qt::Key_Down);
    EXPECT_EQ(gallery.currentScreen(), (ScreenID{signUp, screensIn(signUp)[perLine].filename}))
        << "the short last line's only screen, not a screen of the next flow";
    QTest::keyClick(&gallery, Qt::Key_Down);
    EXPECT_EQ(gallery.currentScreen(), (ScreenID{logIn, screensIn(logIn)[0].filename}))
        << "the next flow's first line, in the same column";
    gallery.selectScreen({logIn, screensIn(logIn)[2].filename});
    QTest::keyClick(&gallery, Qt::Key_Up);
    EXPECT_EQ(gallery.currentScreen(), (ScreenID{signUp, screensIn(signUp)[perLine].filename}))
        << "up goes to the previous flow's last line";
    QTest::keyClick(&gallery, Qt::Key_Up);
    EXPECT_EQ(gallery.currentScreen(), (ScreenID{signUp, screensIn(signUp)[0].filename}));
}

TEST_F(FirstHourTest, EveryChangeMadeInTheWindowIsUndoneAndRedone) {
    const std::string signUp = SampleLibrary::signUp, logIn = SampleLibrary::logIn;
    GalleryView& gallery = window->gallery();
    writePicture(dir / "dropped.png", 60, 120, 0xff112233u);
    const std::vector<std::pair<std::string, std::function<void()>>> changes{
        {"Delete 2 Screens",
         [&] {
             gallery.selectScreens({{signUp, "01.png"}, {signUp, "03.mov"}});
             window->deleteSelection();
         }},
        {"Delete Flow",
         [&] {
             gallery.selectFlow(logIn);
             window->deleteFlow();
         }},
        {"Delete Application",
         [&] {
             gallery.selectFlow(signUp);
             window->deleteApplication();
         }},
        {"Duplicate Screen",
         [&] {
             gallery.selectScreen({signUp, "02.png"});
             window->duplicateScreens();
         }},
        {"Reorder Screens", [&] { window->dropScreens(signUp, {"03.mov"}, signUp, 0, false); }},
        {"Move 2 Screens",
         [&] {
             window->dropScreens(signUp, {"02.png", "01.png"}, logIn, 1, false);
         }},
        {"Copy Screen", [&] { window->dropScreens(signUp, {"01.png"}, signUp, 3, true); }},
        {"Add Screen", [&] { window->dropFiles({dir / "dropped.png"}, logIn, 0); }},
        {"Import Screens",
         [&] {
             writePicture(dir / "Trip" / "Booking" / "IMG_2.png", 60, 120, 0xff2233aau);
             writePicture(dir / "Trip" / "Booking" / "IMG_10.png", 60, 120, 0xff33aa22u);
             writePicture(dir / "Trip" / "Payment" / "IMG_1.png", 60, 120, 0xffaa2233u);
             ScreenImport::Plan plan = ScreenImport::plan({dir / "Trip"});
             plan.application = "Zeta";
             window->runImport(plan, false);
         }},
    };
    for (const auto& [name, change] : changes) {
        SCOPED_TRACE(name);
        const std::string before = visibleState(library);
        change();
        const std::string after = visibleState(library);
        ASSERT_NE(before, after);
        QAction* undo = window->findChild<QAction*>("undo");
        ASSERT_TRUE(undo->isEnabled());
        EXPECT_EQ(undo->text().toStdString(), "Undo " + name);
        undo->trigger();
        EXPECT_EQ(visibleState(library), before);
        QAction* redo = window->findChild<QAction*>("redo");
        EXPECT_EQ(redo->text().toStdString(), "Redo " + name);
        redo->trigger();
        EXPECT_EQ(visibleState(library), after);
        undo->trigger();
        EXPECT_EQ(visibleState(library), before);
    }
    EXPECT_EQ(window->findChild<QAction*>("undo")->shortcut(), QKeySequence::Undo);
    EXPECT_EQ(window->findChild<QAction*>("redo")->shortcut(), QKeySequence("Ctrl+Shift+Z"));
}

TEST_F(FirstHourTest, AMovedScreenStaysSelectedUnderItsNewName) {
    const std::string signUp = SampleLibrary::signUp, logIn = SampleLibrary::logIn;
    GalleryView& gallery = window->gallery();
    window->dropScreens(signUp, {"03.mov"}, signUp, 0, false);
    EXPECT_EQ(gallery.selectedScreens(), (std::vector<ScreenID>{{signUp, "01.mov"}}));
    window->dropScreens(signUp, {"02.png", "03.png"}, logIn, 1, false);
    EXPECT_EQ(gallery.selectedScreens(),
              (std::vector<ScreenID>{{logIn, "02.png"}, {logIn, "03.png"}}));
    EXPECT_EQ(readFile(sample.root / logIn / "02.png").substr(33), "sign-up-1");
}

TEST_F(FirstHourTest, AnUndoALaterChangeMadeImpossibleSaysWhy) {
    GalleryView& gallery = window->gallery();
    gallery.selectScreen({SampleLibrary::signUp, "01.png"});
    window->deleteSelection();
    library.deleteFlow(SampleLibrary::signUp); // outside the window's history
    QString said, why;
    answerNextBox(window.get(), "OK", &said, &why);
    window->undo();
    EXPECT_NE(said.indexOf("Couldn’t undo “Delete Screen”"), -1) << said.toStdString();
    EXPECT_NE(why.indexOf("no longer in the library"), -1) << why.toStdString();
    EXPECT_FALSE(window->findChild<QAction*>("undo")->isEnabled());
}

TEST_F(FirstHourTest, TheTrashPutsBackWhatWasDeletedAndThatCanBeUndoneToo) {
    GalleryView& gallery = window->gallery();
    gallery.selectFlow(SampleLibrary::transfer);
    window->deleteFlow();
    window->history().clear(); // as after a restart
    window->showTrash();
    auto* trash = window->findChild<TrashWindow*>();
    ASSERT_TRUE(trash);
    ASSERT_EQ(trash->list().topLevelItemCount(), 1);
    EXPECT_EQ(trash->list().topLevelItem(0)->text(0), "The flow “Transfer”");
    EXPECT_EQ(trash->list().topLevelItem(0)->text(1), "Bank");
    window->gallery().selectScreen({SampleLibrary::signUp, "01.png"});
    window->deleteSelection();
    ASSERT_EQ(trash->list().topLevelItemCount(), 2);
    EXPECT_EQ(trash->list().topLevelItem(0)->text(1), "Acme ▸ Onboarding") << "newest first";
    window->undo();
    trash->list().topLevelItem(0)->setSelected(true);
    trash->findChild<QPushButton*>()->parentWidget(); // the buttons exist
    for (auto* button : trash->findChildren<QPushButton*>())
        if (button->text().remove('&') == "Put Back")
            button->click();
    EXPECT_EQ(library.summaries().size(), 3u);
    EXPECT_EQ(trash->list().topLevelItem(0)->text(0), "The trash is empty.");
    EXPECT_EQ(gallery.currentFlow(), std::string(SampleLibrary::transfer));
    window->undo();
    EXPECT_EQ(library.summaries().size(), 2u);
    EXPECT_EQ(trash->list().topLevelItemCount(), 1);
}

TEST_F(FirstHourTest, SearchSaysWhereItLooksAndWhatItFound) {
    QLineEdit* search = window->searchField();
    window->sidebar().setCurrentItem(window->sidebar().topLevelItem(2)); // Bank
    ASSERT_EQ(window->sidebar().selectedApplication(), "Bank");
    QTest::keyClick(window.get(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(search->hasFocus());
    QTest::keyClicks(search, "log");
    auto* scope = window->findChild<QLabel*>("searchScopeText");
    ASSERT_TRUE(scope->isVisible());
    EXPECT_EQ(scope->text(), "Nothing found in Bank");
    auto* everywhere = window->findChild<QPushButton*>("searchEverywhere");
    ASSERT_TRUE(everywhere->isVisible());
    everywhere->click();
    EXPECT_FALSE(window->sidebar().selectedApplication());
    EXPECT_EQ(scope->text(), "2 screens in 1 flow in all applications");
    EXPECT_FALSE(everywhere->isVisible());
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_TRUE(search->text().isEmpty());
    EXPECT_FALSE(scope->isVisible());
}

TEST_F(FirstHourTest, ThumbnailsShowWhatWasDoneToAScreenAndItsTooltipTellsTheRest) {
    const std::string signUp = SampleLibrary::signUp;
    writePicture(sample.root / signUp / "01.png", 390, 844, 0xffffffffu);
    writePicture(sample.root / signUp / "03.png", 390, 844, 0xffffffffu);
    FlowMeta meta = library.meta(signUp);
    meta.screens[2].filename = "03.png";
    meta.deviceName = "Pixel 8";
    library.store().writeMeta(signUp, meta);
    fs::remove(sample.root / signUp / "03.mov");
    library.reload();
    GalleryView& gallery = window->gallery();
    for (int round = 0; round < 3; ++round) {
        gallery.viewport()->repaint();
        window->thumbnails().waitForIdle();
    }
    const QImage shown = gallery.viewport()->grab().toImage();
    // The top-right corner of each tile: 01 has pins (a dark pill), 03 nothing (white).
    auto corner = [&](std::size_t index) {
        const auto row = gallery.content().rowOfFlow(signUp);
        const QRect tile = gallery.galleryLayout()
                               .tileRect(*row, index)
                               .translated(0, -gallery.verticalScrollBar()->value());
        int dark = 0;
        for (int y = tile.top() + 6; y < tile.top() + 24; ++y)
            for (int x = tile.right() - 40; x < tile.right() - 6; ++x)
                dark += qGray(shown.pixel(x, y)) < 120;
        return dark;
    };
    EXPECT_GT(corner(0), 40) << "01.png has two pins";
    EXPECT_GT(corner(1), 20) << "02.png is blurred and patched";
    EXPECT_EQ(corner(2), 0) << "03.png has nothing done to it";

    const QString info = gallery.tileInfo({signUp, "02.png"});
    for (const char* part :
         {"02.png", "1179 × 2556 pixels", "On Pixel 8", "1 blur zone", "1 clone patch"})
        EXPECT_NE(info.indexOf(part), -1) << part << " in " << info.toStdString();
    EXPECT_NE(gallery.tileInfo({signUp, "01.png"}).indexOf("2 comments"), -1);

    // The tile under the pointer is marked as such.
    QTest::mouseMove(gallery.viewport(), [&] {
        const auto row = gallery.content().rowOfFlow(signUp);
        return gallery.galleryLayout().tileRect(*row, 2).center() -
               QPoint(0, gallery.verticalScrollBar()->value());
    }());
    EXPECT_EQ(gallery.hoveredScreen(), (ScreenID{signUp, "03.png"}));
}

TEST_F(FirstHourTest, AboutSaysTheVersionTheLicenceAndWhereTheProjectIs) {
    QString said;
    answerNextBox(window.get(), "OK", &said);
    window->action("About Varnel")->trigger();
    EXPECT_NE(said.indexOf("All rights reserved"), -1) << said.toStdString();
    EXPECT_NE(said.indexOf("https://varnel.app/"), -1) << said.toStdString();
}

TEST_F(FirstHourTest, HelpHasAUserGuideShippedWithTheApplication) {
    ASSERT_TRUE(window->findChild<QAction*>("userGuide"));
    const auto guide = MainWindow::userGuide();
    ASSERT_FALSE(guide.empty());
    const std::string text = readFile(guide);
    for (const char* topic : {"Import Screens", "Undo", "Trash", "Keyboard Shortcuts"})
        EXPECT_NE(text.find(topic), std::string::npos) << topic;
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
