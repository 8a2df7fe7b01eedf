#include "ui/MainWindow.h"
#include "app/AppSettings.h"
#include "app/UpdateChecker.h"
#include "archive/AppArchive.h"
#include "archive/Zip.h"
#include "figma/FigmaPlugin.h"
#include "library/JsonCoding.h"
#include "model/FlowLibrary.h"
#include "support/MediaProbe.h"
#include "support/StaticServer.h"
#include "support/TestLibrary.h"
#include "support/WindowDriving.h"
#include "text/OCRIndex.h"
#include "text/OCRSidecar.h"
#include "ui/CategorizeDialog.h"
#include "ui/ClipSaveBanner.h"
#include "ui/GalleryView.h"
#include "ui/ImportDialogs.h"
#include "ui/InstanceChannel.h"
#include "ui/LibrarySidebar.h"
#include "ui/ScreenEditor.h"
#include "ui/ScreenPreview.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QCompleter>
#include <QDropEvent>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QSlider>
#include <QStatusBar>
#include <QStringListModel>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

std::vector<std::string> outline(const GalleryContent& content) {
    std::vector<std::string> out;
    for (const auto& row : content.rows)
        out.push_back(row.kind == GalleryRow::Kind::flow       ? content.flows[row.flow].name
                      : row.kind == GalleryRow::Kind::category ? "## " + row.title
                                                               : "# " + row.title);
    return out;
}

std::vector<std::string> children(QTreeWidgetItem* item) {
    std::vector<std::string> out;
    for (int i = 0; i < item->childCount(); ++i)
        out.push_back(item->child(i)->text(0).toStdString());
    return out;
}

QTreeWidgetItem* topLevel(LibrarySidebar& sidebar, const QString& text) {
    for (int i = 0; i < sidebar.topLevelItemCount(); ++i)
        if (sidebar.topLevelItem(i)->text(0) == text)
            return sidebar.topLevelItem(i);
    return nullptr;
}

// Delivers a drag that hovers over `point` and drops there, as the window system would.
void dropOn(QWidget* target, QPoint point, QMimeData* mime,
            Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QDragEnterEvent enter(point, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(target, &enter);
    QDragMoveEvent move(point, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(target, &move);
    QDropEvent drop(point, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(target, &drop);
    delete mime;
}

QMimeData* filesMime(const std::vector<fs::path>& paths) {
    auto* mime = new QMimeData;
    QList<QUrl> urls;
    for (const auto& path : paths)
        urls << QUrl::fromLocalFile(QString::fromStdString(path.string()));
    mime->setUrls(urls);
    return mime;
}

// Runs `answer` on the next modal dialog of type T once it is up.
template <typename T> void answerNext(QObject* owner, std::function<void(T*)> answer) {
    auto* poll = new QTimer(owner);
    QObject::connect(poll, &QTimer::timeout, [=] {
        auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        poll->stop();
        poll->deleteLater();
        answer(dialog);
    });
    poll->start(10);
}

// The summary an import left open, closed once read.
QString takeImportSummary(QWidget* window, QString* informative = nullptr) {
    auto* box = window->findChild<QMessageBox*>("importSummary");
    if (!box)
        return {};
    const QString text = box->text();
    if (informative)
        *informative = box->informativeText();
    box->setObjectName({});
    box->close();
    return text;
}

class MainWindowTest : public ::testing::Test {
protected:
    MainWindowTest() {
        window->resize(1100, 800);
        window->show();
        QApplication::processEvents();
    }
    std::unique_ptr<AppSettings> makeSettings() {
        return std::make_unique<AppSettings>(std::make_unique<QSettings>(
            QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat));
    }
    std::vector<std::string> names(const std::string& folder) {
        std::vector<std::string> out;
        for (const auto& s : sample.store.meta(folder).screens)
            out.push_back(s.filename);
        return out;
    }
    std::string payloadOf(const fs::path& file) { return readFile(file).substr(33); }
    void answerNextBox(const QString& button, QString* text, QString* informative = nullptr) {
        test::answerNextBox(window.get(), button, text, informative);
    }
    QPoint tileCenter(const std::string& folder, std::size_t index) {
        return test::tileCenter(window->gallery(), folder, index);
    }
    void waitForThumbnails() {
        // Each round makes what the last paint asked for; two rounds settle a reload.
        for (int round = 0; round < 3; ++round) {
            window->gallery().viewport()->repaint();
            window->thumbnails().waitForIdle();
        }
    }

    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowLibrary library{FlowStore(sample.root)};
    std::unique_ptr<AppSettings> settings = makeSettings();
    std::unique_ptr<MainWindow> window = std::make_unique<MainWindow>(library, *settings);
};

} // namespace

TEST_F(MainWindowTest, SidebarChoosesTheApplicationAndRemembersIt) {
    LibrarySidebar& sidebar = window->sidebar();
    ASSERT_EQ(sidebar.topLevelItemCount(), 3);
    EXPECT_EQ(sidebar.topLevelItem(0)->text(0), "All");
    EXPECT_EQ(outline(window->gallery().content()),
              (std::vector<std::string>{"# Acme", "## Onboarding", "Sign up", "Log in", "# Bank",
                                        "## Uncategorized", "Transfer"}));

    sidebar.setCurrentItem(topLevel(sidebar, "Acme"));
    EXPECT_EQ(settings->selectedApp(), "Acme");
    EXPECT_EQ(children(topLevel(window->sidebar(), "Acme")),
              std::vector<std::string>{"Onboarding"});
    EXPECT_EQ(outline(window->gallery().content()),
              (std::vector<std::string>{"## Onboarding", "Sign up", "Log in"}));
    EXPECT_EQ(window->selectedApplication(), "Acme");

    // The next start shows the same application.
    window.reset();
    settings = makeSettings();
    window = std::make_unique<MainWindow>(library, *settings);
    EXPECT_EQ(window->sidebar().selectedApplication(), "Acme");
    EXPECT_EQ(window->gallery().content().flows.size(), 2u);

    // Once the application is gone, "All" is shown again.
    library.deleteApplication("Acme");
    EXPECT_FALSE(window->sidebar().selectedApplication());
    EXPECT_FALSE(settings->selectedApp());
    EXPECT_EQ(window->gallery().content().flows.size(), 1u);
}

TEST_F(MainWindowTest, CategoriesAreReorderedByDraggingOneOntoAnother) {
    library.createEmptyFlow("Acme", "Pay", std::string("Payments"), Date{});
    library.createEmptyFlow("Acme", "Browse", std::string(""), Date{});
    library.createEmptyFlow("Acme", "Password", std::string("Settings"), Date{});
    LibrarySidebar& sidebar = window->sidebar();
    sidebar.setCurrentItem(topLevel(sidebar, "Acme"));
    EXPECT_EQ(children(topLevel(sidebar, "Acme")),
              (std::vector<std::string>{"Onboarding", "Payments", "Settings", "Uncategorized"}));

    auto drag = [&](const std::string& category, const std::string& onto, bool upperHalf) {
        QTreeWidgetItem* app = topLevel(sidebar, "Acme");
        QTreeWidgetItem *moved = nullptr, *target = nullptr;
        for (int i = 0; i < app->childCount(); ++i) {
            if (app->child(i)->text(0).toStdString() == category)
                moved = app->child(i);
            if (app->child(i)->text(0).toStdString() == onto)
                target = app->child(i);
        }
        ASSERT_TRUE(moved && target);
        const QRect rect = sidebar.visualItemRect(target);
        const QPoint point(rect.left() + 20, upperHalf ? rect.top() + 2 : rect.bottom() - 2);
        dropOn(sidebar.viewport(), point,
               sidebar.model()->mimeData({sidebar.indexFromItem(moved)}));
    };
    drag("Settings", "Onboarding", true);
    EXPECT_EQ(library.categoryOrder(),
              (std::vector<std::string>{"Settings", "Onboarding", "Payments"}));
    EXPECT_EQ(children(topLevel(sidebar, "Acme")),
              (std::vector<std::string>{"Settings", "Onboarding", "Payments", "Uncategorized"}));
    EXPECT_EQ(outline(window->gallery().content())[0], "## Settings") << "the gallery follows";

    drag("Settings", "Payments", false); // the lower half: after it
    EXPECT_EQ(children(topLevel(sidebar, "Acme")),
              (std::vector<std::string>{"Onboarding", "Payments", "Settings", "Uncategorized"}));
    drag("Onboarding", "Uncategorized", false); // nothing goes after the catch-all
    EXPECT_EQ(children(topLevel(sidebar, "Acme")),
              (std::vector<std::string>{"Payments", "Settings", "Onboarding", "Uncategorized"}));

    // "Uncategorized" can't be picked up.
    QTreeWidgetItem* app = topLevel(sidebar, "Acme");
    EXPECT_FALSE(app->child(3)->flags() & Qt::ItemIsDragEnabled);
    EXPECT_FALSE(sidebar.categoryDropAt(sidebar.visualItemRect(app).center()))
        << "an application is no place for a category";
}

TEST_F(MainWindowTest, GalleryShowsEveryScreenAsAThumbnailClipsWithTheirPoster) {
    writePicture(sample.root / SampleLibrary::signUp / "01.png", 390, 844, 0xff2060e0);
    writePicture(sample.root / SampleLibrary::signUp / "02.png", 390, 844, 0xff20c040);
    writeClip(sample.root / SampleLibrary::signUp / "03.mov", 390, 844);
    library.reload();
    waitForThumbnails();

    const QImage shot = window->gallery().viewport()->grab().toImage();
    auto at = [&](std::size_t index) {
        return shot.pixelColor(tileCenter(SampleLibrary::signUp, index));
    };
    EXPECT_GT(at(0).blue(), 200);
    EXPECT_LT(at(0).red(), 60);
    EXPECT_GT(at(1).green(), 170);
    EXPECT_LT(at(1).red(), 60);
    EXPECT_GT(at(2).red(), 200) << "the clip's first frame";
    EXPECT_LT(at(2).green(), 60);
    // Fake files of the other flows can't be shown; they say so instead of hanging.
    EXPECT_TRUE(window->thumbnails().hasFailed({SampleLibrary::logIn, "01.png"}));
    EXPECT_LT(shot.pixelColor(tileCenter(SampleLibrary::logIn, 0)).saturation(), 30);

    // A larger thumbnail height lays the bands out again and stores the choice.
    window->setThumbnailHeight(999);
    EXPECT_EQ(settings->thumbnailHeight(), 300);
    EXPECT_EQ(window->gallery().thumbnailHeight(), 300);
    EXPECT_EQ(window->findChild<QSlider*>()->value(), 300);
    waitForThumbnails();
    EXPECT_EQ(window->thumbnails().image({SampleLibrary::signUp, "01.png"}).height(), 300);
}

TEST_F(MainWindowTest, ScreensAreReorderedMovedAndCopiedByDragAndDrop) {
    GalleryView& gallery = window->gallery();
    auto left = [&](const std::string& folder, std::size_t index) {
        gallery.scrollToFlow(folder); // away from the edges, where a drag scrolls the view
        return tileCenter(folder, index) - QPoint(30, 0);
    };
    // Within a flow: the clip goes first.
    dropOn(gallery.viewport(), left(SampleLibrary::signUp, 0),
           gallery.mimeDataFor({{SampleLibrary::signUp, "03.mov"}}));
    EXPECT_EQ(names(SampleLibrary::signUp),
              (std::vector<std::string>{"01.mov", "02.png", "03.png"}));
    EXPECT_EQ(readFile(sample.root / SampleLibrary::signUp / "01.mov"), "sign-up-3");

    // Dropped where it was: nothing changes.
    const auto before = readFile(sample.root / SampleLibrary::signUp / "meta.json");
    dropOn(gallery.viewport(), left(SampleLibrary::signUp, 1),
           gallery.mimeDataFor({{SampleLibrary::signUp, "02.png"}}));
    EXPECT_EQ(readFile(sample.root / SampleLibrary::signUp / "meta.json"), before);

    // To another flow, between its two screens.
    dropOn(gallery.viewport(), left(SampleLibrary::logIn, 1),
           gallery.mimeDataFor({{SampleLibrary::signUp, "02.png"}}));
    EXPECT_EQ(names(SampleLibrary::signUp).size(), 2u);
    EXPECT_EQ(payloadOf(sample.root / SampleLibrary::logIn / "02.png"), "sign-up-1");
    EXPECT_EQ(payloadOf(sample.root / SampleLibrary::logIn / "03.png"), "log-in-2");

    // With Ctrl held the screen is copied; the source keeps it.
    dropOn(gallery.viewport(), left(SampleLibrary::transfer, 0),
           gallery.mimeDataFor({{SampleLibrary::signUp, "01.mov"}}), Qt::ControlModifier);
    EXPECT_EQ(names(SampleLibrary::transfer), (std::vector<std::string>{"01.mov", "02.png"}));
    EXPECT_EQ(names(SampleLibrary::signUp).size(), 2u);

    // Files from a file manager become screens where they are dropped; others are left out.
    writePicture(dir / "outside/new.png", 10, 20);
    writeFile(dir / "outside/notes.txt", "not a screen");
    auto* mime = new QMimeData;
    mime->setUrls(
        {QUrl::fromLocalFile(QString::fromStdString((dir / "outside/new.png").string())),
         QUrl::fromLocalFile(QString::fromStdString((dir / "outside/notes.txt").string()))});
    dropOn(gallery.viewport(), left(SampleLibrary::transfer, 0), mime);
    EXPECT_EQ(names(SampleLibrary::transfer),
              (std::vector<std::string>{"01.png", "02.mov", "03.png"}));
    EXPECT_EQ(readFile(sample.root / SampleLibrary::transfer / "01.png"),
              readFile(dir / "outside/new.png"));
    EXPECT_TRUE(fs::exists(dir / "outside/new.png")) << "copied, not moved";
}

TEST_F(MainWindowTest, ArrowsAndTheLargePreviewStepThroughTheGallery) {
    GalleryView& gallery = window->gallery();
    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, {}, tileCenter(SampleLibrary::signUp, 0));
    ASSERT_EQ(gallery.currentScreen(), (ScreenID{SampleLibrary::signUp, "01.png"}));
    EXPECT_TRUE(window->action("Rename Screen…")->isEnabled());
    QTest::keyClick(gallery.viewport(), Qt::Key_Right);
    EXPECT_EQ(gallery.currentScreen(), (ScreenID{SampleLibrary::signUp, "02.png"}));

    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, Qt::ShiftModifier,
                      tileCenter(SampleLibrary::signUp, 2));
    EXPECT_EQ(gallery.selectedScreens().size(), 2u) << "a range from the anchor";
    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, Qt::ControlModifier,
                      tileCenter(SampleLibrary::signUp, 0));
    EXPECT_EQ(gallery.selectedScreens(),
              (std::vector<ScreenID>{{SampleLibrary::signUp, "01.png"},
                                     {SampleLibrary::signUp, "02.png"},
                                     {SampleLibrary::signUp, "03.mov"}}));

    window->showPreview();
    ScreenPreview* preview = window->preview();
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->shownScreen(), (ScreenID{SampleLibrary::signUp, "01.png"}));
    EXPECT_EQ(preview->title(), "Sign up — 1 of 3");
    QTest::keyClick(preview, Qt::Key_Right);
    QTest::keyClick(preview, Qt::Key_Right);
    QTest::keyClick(preview, Qt::Key_Right); // past the clip, into the next band
    EXPECT_EQ(preview->shownScreen(), (ScreenID{SampleLibrary::logIn, "01.png"}));
    EXPECT_EQ(preview->title(), "Log in — 1 of 2");
    EXPECT_EQ(gallery.currentScreen(), preview->shownScreen()) << "the gallery follows";
    QTest::keyClick(preview, Qt::Key_Left);
    EXPECT_EQ(preview->shownScreen(), (ScreenID{SampleLibrary::signUp, "03.mov"}));
    QTest::keyClick(preview, Qt::Key_Escape);
    EXPECT_FALSE(preview->isVisible());

    // Clicking a band's title picks the flow, not a screen.
    const auto row = gallery.content().rowOfFlow(SampleLibrary::transfer);
    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, {},
                      gallery.galleryLayout().headerRect(*row).center() -
                          QPoint(0, gallery.verticalScrollBar()->value()));
    EXPECT_EQ(gallery.currentFlow(), SampleLibrary::transfer);
    EXPECT_FALSE(gallery.currentScreen());
    EXPECT_FALSE(window->action("Rename Screen…")->isEnabled());
    EXPECT_TRUE(window->action("Rename Flow…")->isEnabled());
}

// Pointing at a recognized line in the large preview shows its translation over the line,
// made by Apertium on this computer and stored for next time.
TEST_F(MainWindowTest, PointingAtALineShowsItsTranslationWhereTheLineIs) {
    const fs::path picture = sample.root / SampleLibrary::transfer / "01.png";
    writePicture(picture, 390, 844, 0xfff4f4f4u);
    OCRIndex::saveTextLines(sample.store, SampleLibrary::transfer, "01.png",
                            {{"Olvidé mi contraseña", {0.1, 0.3, 0.7, 0.04}, std::nullopt},
                             {"Transfer money", {0.1, 0.5, 0.5, 0.04}, std::nullopt}});
    GalleryView& gallery = window->gallery();
    QTest::mouseClick(gallery.viewport(), Qt::LeftButton, {},
                      tileCenter(SampleLibrary::transfer, 0));
    window->action("Show Translation")->setChecked(true);
    ScreenPreview* preview = window->preview();
    ASSERT_TRUE(preview);
    ASSERT_TRUE(waitUntil([&] { return preview->showsFullPicture(); }));
    EXPECT_TRUE(settings->showTranslation()) << "remembered";

    const auto darkPixels = [&](std::size_t line) {
        const QImage shot = preview->grab().toImage();
        const double ratio = preview->devicePixelRatioF();
        const QRectF area = preview->lineRect(line);
        const QRect box = QRectF(area.topLeft() * ratio, area.size() * ratio).toRect();
        int dark = 0;
        for (int y = box.top(); y <= box.bottom(); ++y)
            for (int x = box.left(); x <= box.right(); ++x)
                dark += QColor(shot.pixel(x, y)).lightness() < 100;
        return dark;
    };
    EXPECT_EQ(darkPixels(0), 0) << "nothing over the line until it is pointed at";
    const QPointF point = preview->lineRect(0).center();
    QMouseEvent move(QEvent::MouseMove, point, preview->mapToGlobal(point), Qt::NoButton,
                     Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(preview, &move);
    EXPECT_EQ(preview->hoveredLine(), 0u);
    ASSERT_TRUE(waitUntil([&] {
        const auto& lines = preview->textLines();
        return !preview->isTranslating() && lines[0].translations;
    })) << preview->translationProblem().toStdString();
    EXPECT_EQ(preview->textLines()[0].translations->at("en"), "I forgot my password");
    EXPECT_GT(darkPixels(0), 20) << "the translation is written over the line";
    EXPECT_EQ(darkPixels(1), 0) << "the line not pointed at is left as it is";
    EXPECT_EQ(
        OCRIndex::textLines(sample.store, SampleLibrary::transfer, "01.png")[0].translations->at(
            "en"),
        "I forgot my password")
        << "stored";
}

TEST_F(MainWindowTest, ScreenCommandsGoThroughTheLibraryAndKeepTheSelection) {
    GalleryView& gallery = window->gallery();
    gallery.selectScreen({SampleLibrary::signUp, "02.png"});
    window->duplicateScreens();
    EXPECT_EQ(names(SampleLibrary::signUp),
              (std::vector<std::string>{"01.png", "02.png", "03.png", "04.mov"}));
    EXPECT_EQ(gallery.currentScreen(), (ScreenID{SampleLibrary::signUp, "02.png"}));

    library.renameScreen(SampleLibrary::signUp, "02.png", "Plans");
    EXPECT_EQ(gallery.selectedScreens(),
              (std::vector<ScreenID>{{SampleLibrary::signUp, "02.png"}}));
    library.deleteScreens(SampleLibrary::signUp, {"02.png"});
    EXPECT_TRUE(gallery.selectedScreens().size() == 1u) << "02.png is now the duplicate";
    library.deleteFlow(SampleLibrary::signUp);
    EXPECT_TRUE(gallery.selectedScreens().empty()) << "the flow is gone";
    EXPECT_FALSE(gallery.currentScreen());
}

TEST_F(MainWindowTest, CategorizeSheetMovesAFlowAndStaysOpenOnFailure) {
    CategorizeDialog dialog(library, std::string(SampleLibrary::logIn), window.get());
    EXPECT_EQ(dialog.windowTitle(), "Categorize flow");
    EXPECT_EQ(dialog.flowPicker()->currentData().toString().toStdString(), SampleLibrary::logIn);
    EXPECT_EQ(dialog.flowPicker()->itemText(0), "Acme — Log in") << "by application, then name";
    EXPECT_EQ(dialog.applicationField()->text(), "Acme");
    EXPECT_EQ(dialog.categoryField()->text(), "Onboarding");
    EXPECT_EQ(dialog.categoryField()->placeholderText(), "e.g. Settings");
    auto suggestions = [&] {
        auto* model = qobject_cast<QStringListModel*>(dialog.categoryField()->completer()->model());
        return model ? model->stringList() : QStringList{"no model"};
    };
    EXPECT_EQ(suggestions(), QStringList{"Onboarding"});
    dialog.applicationField()->setText("Bank");
    EXPECT_TRUE(suggestions().isEmpty()) << "Bank has no categories yet";

    dialog.applicationField()->setText("  Bank ");
    dialog.categoryField()->setText("  Payments  ");
    dialog.save();
    EXPECT_EQ(dialog.result(), QDialog::Accepted);
    EXPECT_EQ(dialog.savedFolder(), "bank/payments/log-in");
    EXPECT_EQ(sample.store.meta("bank/payments/log-in").categoryL1, "Payments");

    CategorizeDialog broken(library, std::string(SampleLibrary::transfer), window.get());
    writeFile(sample.root / SampleLibrary::transfer / "meta.json", "{");
    broken.categoryField()->setText("Money");
    broken.save();
    EXPECT_NE(broken.result(), QDialog::Accepted);
    EXPECT_FALSE(broken.problemLabel()->isHidden());
    EXPECT_EQ(broken.categoryField()->text(), "Money") << "what was typed is kept";
}

TEST_F(MainWindowTest, MenusNameEveryCommandAndDisableWhatIsNotBuiltYet) {
    for (const char* text :
         {"Import Application…", "Export Application…", "Export Application Without Originals…",
          "Delete Application", "Categorize Flow…", "Rename Flow…", "Delete Flow",
          "Show in File Manager", "Quick Look", "Settings…", "New Capture…", "Add Screens to Flow…",
          "Capture More…", "New Flow…", "Import Screens…", "Import Folder…"})
        EXPECT_TRUE(window->action(text)) << text;
    EXPECT_TRUE(window->action("New Capture…")->isEnabled());
    EXPECT_TRUE(window->action("Import Screens…")->isEnabled());
    EXPECT_TRUE(window->action("New Flow…")->isEnabled());
    EXPECT_FALSE(window->action("Add Screens to Flow…")->isEnabled()) << "no flow picked yet";
    EXPECT_FALSE(window->action("Capture More…")->isEnabled()) << "no flow picked yet";
    EXPECT_TRUE(window->action("Download Figma Plugin…")->isEnabled());
    EXPECT_TRUE(window->action("Check for Updates…")->isEnabled());
    for (const char* text :
         {"Export for Figma…", "Sync with Figma", "Edit Screen…", "Show Recognized Text"}) {
        ASSERT_TRUE(window->action(text)) << text;
        EXPECT_FALSE(window->action(text)->isEnabled()) << text;
    }
    EXPECT_EQ(window->action("Settings…")->shortcut(), QKeySequence("Ctrl+,"));
    EXPECT_EQ(window->action("Quit")->shortcut(), QKeySequence::Quit);
    EXPECT_FALSE(window->action("Rename Flow…")->isEnabled()) << "nothing picked yet";
    EXPECT_FALSE(window->action("Export Application…")->isEnabled());
    window->gallery().selectFlow(SampleLibrary::logIn);
    EXPECT_TRUE(window->action("Add Screens to Flow…")->isEnabled());
    EXPECT_TRUE(window->action("Capture More…")->isEnabled());
}

// The plugin ships inside Varnel: it is saved with no network, and the user is told how to add
// it to Figma.
TEST_F(MainWindowTest, DownloadFigmaPluginSavesTheShippedPluginAndSaysHowToAddIt) {
    const QByteArray home = qgetenv("HOME");
    qputenv("HOME", QByteArray::fromStdString((dir / "home").string()));
    fs::create_directories(dir / "home" / "Downloads");
    window->action("Download Figma Plugin…")->trigger();
    qputenv("HOME", home);
    auto* box = window->findChild<QMessageBox*>("figmaPluginSaved");
    ASSERT_TRUE(box);
    const fs::path file = dir / "home" / "Downloads" / FigmaPlugin::fileName();
    ASSERT_TRUE(fs::exists(file));
    EXPECT_EQ(readFile(file), FigmaPlugin::package());
    EXPECT_GT(FigmaPlugin::package().size(), 1000u);
    EXPECT_EQ(FigmaPlugin::package().substr(0, 2), "PK");
    EXPECT_TRUE(box->text().contains(QString::fromStdString(FigmaPlugin::fileName())));
    EXPECT_TRUE(
        box->informativeText().contains("Plugins ▸ Development ▸ Import plugin from manifest…"));
    box->close();
}

TEST_F(MainWindowTest, StatusSumsUpTheLibraryAndSaysWhenItCantBeRead) {
    auto* status = window->statusBar()->findChild<QLabel*>();
    ASSERT_TRUE(status);
    EXPECT_TRUE(status->text().startsWith("All applications: 3 flows, 6 screens"))
        << status->text().toStdString();
    writeFile(sample.root / "index.json", "{");
    library.reload();
    EXPECT_TRUE(status->text().startsWith("Couldn’t read the library"))
        << status->text().toStdString();
}

TEST_F(MainWindowTest, OpeningSaysWhatItRepairedAndListsTheFolders) {
    auto* repairs = window->statusBar()->findChild<QPushButton*>("repairs");
    ASSERT_TRUE(repairs);
    EXPECT_FALSE(repairs->isVisible()) << "nothing to say about a sound library";
    // A deletion killed after it set the flow aside, before the index was written.
    fs::rename(sample.root / SampleLibrary::signUp, sample.root / "acme/onboarding/.deleting-X");
    library.open();
    auto* status = window->statusBar()->findChild<QLabel*>();
    EXPECT_TRUE(status->text().contains("repaired an interrupted change"))
        << status->text().toStdString();
    EXPECT_TRUE(fs::exists(sample.root / SampleLibrary::signUp / "01.png"));
    ASSERT_TRUE(repairs->isVisible());

    QString details;
    QTimer::singleShot(0, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            details = box->informativeText();
            box->accept();
        }
    });
    repairs->click();
    EXPECT_TRUE(details.contains(QString::fromStdString(SampleLibrary::signUp)))
        << details.toStdString();
}

// A double-clicked archive, or one handed over by a second start, is offered for import; only
// the user's yes imports it, and a read-only library says why it can't.
TEST_F(MainWindowTest, AnArchiveOpenedFromOutsideIsOfferedForImport) {
    const fs::path archive = dir / "Bank.varnel.zip";
    ASSERT_EQ(
        AppArchive::exportApplication("Bank", sample.store, sample.store.readIndex(), archive), 1u);
    sample.store.deleteFlow(SampleLibrary::transfer);
    library.reload();

    InstanceChannel channel;
    const QString name = InstanceChannel::nameFor(dir / "channel");
    ASSERT_TRUE(channel.listen(name));
    QObject::connect(&channel, &InstanceChannel::importRequested, window.get(),
                     &MainWindow::offerImport);
    auto hasBank = [&] {
        return library.store().readIndex().findFolder(SampleLibrary::transfer) != nullptr;
    };

    QString question;
    answerNextBox("Cancel", &question);
    ASSERT_TRUE(InstanceChannel::handOver(name, QString::fromStdString(archive.string())));
    QTRY_VERIFY(!question.isEmpty());
    EXPECT_EQ(question, "Import the application in “Bank.varnel.zip” into this library?");
    QTest::qWait(50);
    EXPECT_FALSE(hasBank()) << "cancelled";

    question.clear();
    answerNextBox("Import", &question);
    ASSERT_TRUE(InstanceChannel::handOver(name, QString::fromStdString(archive.string())));
    QTRY_VERIFY_WITH_TIMEOUT(hasBank(), 10000);
    // The import can be taken back, and made again.
    ASSERT_TRUE(window->findChild<QAction*>("undo")->isEnabled());
    EXPECT_EQ(window->findChild<QAction*>("undo")->text(), "Undo Import Application");
    window->undo();
    EXPECT_FALSE(hasBank());
    window->redo();
    EXPECT_TRUE(hasBank());

    library.setReadOnly("another program is changing this library.");
    question.clear();
    answerNextBox("OK", &question);
    window->offerImport(QString::fromStdString(archive.string()));
    EXPECT_EQ(question, "Couldn’t import the archive");

    // A plain second start only brings the window forward.
    bool activated = false;
    QObject::connect(&channel, &InstanceChannel::activationRequested, [&] { activated = true; });
    ASSERT_TRUE(InstanceChannel::handOver(name, QString()));
    QTRY_VERIFY(activated);
}

// Saves to `file` from the next file dialog once it is up; what it suggested goes to `suggested`.
void answerNextSaveDialog(QWidget* owner, const fs::path& file, QString* suggested) {
    auto* poll = new QTimer(owner);
    QObject::connect(poll, &QTimer::timeout, [=] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        poll->stop();
        poll->deleteLater();
        *suggested = dialog->selectedFiles().value(0);
        dialog->selectFile(QString::fromStdString(file.string()));
        static_cast<QDialog*>(dialog)->accept(); // public there, and QFileDialog's own runs
    });
    poll->start(10);
}

// The copy to share is a command of its own beside the full export; a linked screen stops
// either with its name, and nothing is written.
TEST_F(MainWindowTest, ExportWithoutOriginalsWritesACopyToShareAndALinkIsRefusedByName) {
    QAction* share = window->action("Export Application Without Originals…");
    ASSERT_TRUE(share);
    EXPECT_FALSE(share->isEnabled()) << "no application picked yet";
    window->sidebar().setCurrentItem(topLevel(window->sidebar(), "Acme"));
    ASSERT_TRUE(share->isEnabled());

    const fs::path shared = dir / "shared.varnel.zip";
    QString suggested;
    answerNextSaveDialog(window.get(), shared, &suggested);
    share->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(fs::exists(shared), 10000);
    EXPECT_TRUE(suggested.endsWith("/Acme without originals.varnel.zip"))
        << suggested.toStdString();
    const fs::path unpacked = dir / "unpacked";
    fs::create_directories(unpacked);
    Zip::extract(shared, unpacked);
    const fs::path signUp = unpacked / AppArchive::kPayloadFolder / SampleLibrary::signUp;
    EXPECT_EQ(FileOps::list(signUp),
              (std::vector<std::string>{"01.png", "02.png", "03.mov", "meta.json", "ocr.json"}));
    EXPECT_FALSE(parseLibraryJson(readFile(signUp / "meta.json"))
                     .at("screens")
                     .at(1)
                     .contains("redactions"));
    EXPECT_EQ(OCRSidecar::fromJson(parseLibraryJson(readFile(signUp / "ocr.json")))
                  .screens.at("02.png")
                  .text,
              "")
        << "its only text was read before the zone and can't be told apart";
    EXPECT_TRUE(fs::exists(sample.root / SampleLibrary::signUp / "02.orig.png"));

    const fs::path screen = sample.root / SampleLibrary::logIn / "02.png";
    fs::rename(screen, dir / "outside.png");
    fs::create_symlink(dir / "outside.png", screen);
    for (const char* command : {"Export Application…", "Export Application Without Originals…"}) {
        SCOPED_TRACE(command);
        const fs::path refused = dir / "refused.varnel.zip";
        answerNextSaveDialog(window.get(), refused, &suggested);
        QString title;
        QString details;
        answerNextBox("OK", &title, &details);
        window->action(command)->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(!title.isEmpty(), 10000);
        EXPECT_EQ(title, "Couldn’t export “Acme”");
        EXPECT_TRUE(details.contains(
            QString::fromStdString("“" + screen.string() + "” is a symbolic link")))
            << details.toStdString();
        EXPECT_FALSE(fs::exists(refused));
    }
}

// Help ▸ Check for Updates… against a feed on this computer; the weekly check in the background
// only ever shows a button in the status bar.
TEST_F(MainWindowTest, CheckForUpdatesSaysUpToDateOrShowsTheNewVersionsNotes) {
    StaticServer server;
    settings->setUpdateFeed(server.url("/releases.json"));
    const std::string current(applicationVersion());
    auto feed = [](const std::string& version, const std::string& notes) {
        return Json{{"releases",
                     {{{"version", version},
                       {"date", "2026-12-01"},
                       {"notes", notes},
                       {"url", "https://varnel.app/download"}}}}}
            .dump();
    };
    auto* available = window->findChild<QPushButton*>("updateAvailable");
    ASSERT_TRUE(available);
    QString text, informative;

    server.serve("/releases.json", feed(current, "This one."));
    answerNextBox("OK", &text, &informative);
    window->action("Check for Updates…")->trigger();
    QTRY_COMPARE(text, QString("You're up to date"));
    EXPECT_EQ(informative, "Varnel " + QString::fromStdString(current) + " is the newest version.");
    EXPECT_FALSE(available->isVisible());

    text.clear();
    server.serve("/releases.json", feed("99.0.0", "Faster search.\n<b>Not markup</b>"));
    answerNextBox("Later", &text, &informative);
    window->action("Check for Updates…")->trigger();
    QTRY_COMPARE(text, QString("Varnel 99.0.0 is available"));
    EXPECT_TRUE(informative.contains("Faster search.<br>&lt;b&gt;Not markup&lt;/b&gt;"))
        << informative.toStdString();
    EXPECT_TRUE(informative.contains("released on 2026-12-01"));
    EXPECT_TRUE(available->isVisible());
    EXPECT_EQ(available->text(), "Varnel 99.0.0 is available");
    EXPECT_EQ(server.requests(), 2) << "nothing but the feed is fetched";

    text.clear();
    server.serve("/releases.json", "not found", 404);
    answerNextBox("OK", &text, &informative);
    window->action("Check for Updates…")->trigger();
    QTRY_COMPARE(text, QString("Couldn’t check for updates"));
    EXPECT_TRUE(informative.contains("HTTP status 404")) << informative.toStdString();

    // In the background: no box, only the button; a failure says nothing.
    available->hide();
    settings->setCheckForUpdatesWeekly(true);
    settings->setLastUpdateCheck(0);
    window->updates().checkIfDue();
    QTRY_VERIFY(!window->updates().isChecking());
    EXPECT_EQ(server.requests(), 4);
    QTest::qWait(50);
    EXPECT_FALSE(QApplication::activeModalWidget());
    server.serve("/releases.json", feed("99.0.1", ""));
    window->updates().checkIfDue();
    QTRY_VERIFY(available->isVisible());
    EXPECT_EQ(available->text(), "Varnel 99.0.1 is available");
    EXPECT_FALSE(QApplication::activeModalWidget());
    text.clear();
    answerNextBox("Later", &text);
    available->click();
    EXPECT_EQ(text, "Varnel 99.0.1 is available");
}

TEST_F(MainWindowTest, AReadOnlyLibraryIsBrowsedWithEveryChangeOff) {
    auto* banner = window->findChild<QLabel*>("readOnlyBanner");
    ASSERT_TRUE(banner);
    EXPECT_FALSE(banner->isVisible());
    library.setReadOnly("another program (such as varnel-cli) is changing this library.");
    library.reload();
    window->gallery().selectScreen({SampleLibrary::signUp, "01.png"});
    EXPECT_TRUE(banner->isVisible());
    EXPECT_TRUE(banner->text().contains("varnel-cli")) << banner->text().toStdString();
    for (const char* text :
         {"New Capture…", "Add Screens to Flow…", "Capture More…", "New Flow…", "Import Screens…",
          "Import Folder…", "Import Application…", "Delete Application", "Rename Screen…",
          "Duplicate", "Delete", "Edit Screen…", "Rename Flow…", "Categorize Flow…", "Delete Flow",
          "Export for Figma…", "Sync with Figma"}) {
        ASSERT_TRUE(window->action(text)) << text;
        EXPECT_FALSE(window->action(text)->isEnabled()) << text;
    }
    EXPECT_TRUE(window->action("Quick Look")->isEnabled());
    EXPECT_TRUE(window->action("Export Application…")->isEnabled()) << "writes elsewhere";
    EXPECT_FALSE(window->gallery().viewport()->acceptDrops());

    window->findChild<QLineEdit*>("search")->setText("sign");
    EXPECT_EQ(outline(window->gallery().content()),
              (std::vector<std::string>{"# Acme", "## Onboarding", "Sign up"}));
}

// Read-only means no write of any kind: translations shown are not stored, thumbnails are made
// elsewhere.
TEST_F(MainWindowTest, AReadOnlyLibraryIsNeverWrittenWhileBrowsedAndTranslated) {
    const fs::path picture = sample.root / SampleLibrary::transfer / "01.png";
    writePicture(picture, 390, 844, 0xfff4f4f4u);
    OCRIndex::saveTextLines(sample.store, SampleLibrary::transfer, "01.png",
                            {{"Olvidé mi contraseña", {0.1, 0.3, 0.7, 0.04}, std::nullopt}});
    fs::remove_all(sample.root / "bank" / "uncategorized" / "transfer" / ".thumbs");
    library.setReadOnly("another program (such as varnel-cli) is changing this library.");
    library.reload();
    const auto before = treeSnapshot(sample.root);

    window->gallery().selectScreen({SampleLibrary::transfer, "01.png"});
    window->action("Show Translation")->setChecked(true);
    ScreenPreview* preview = window->preview();
    ASSERT_TRUE(preview);
    ASSERT_TRUE(waitUntil([&] { return preview->showsFullPicture(); }));
    const QPointF point = preview->lineRect(0).center();
    QMouseEvent move(QEvent::MouseMove, point, preview->mapToGlobal(point), Qt::NoButton,
                     Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(preview, &move);
    ASSERT_TRUE(waitUntil([&] {
        const auto& lines = preview->textLines();
        return !preview->isTranslating() && !lines.empty() && lines[0].translations;
    })) << preview->translationProblem().toStdString();
    EXPECT_EQ(preview->textLines()[0].translations->at("en"), "I forgot my password")
        << "shown all the same";
    window->thumbnails().waitForIdle();
    EXPECT_EQ(treeSnapshot(sample.root), before) << "nothing in the library was written";
}

TEST_F(MainWindowTest, TheEditorOpensOnTheCurrentScreenAndRevertNeedsAnOriginal) {
    QAction* edit = window->action("Edit Screen…");
    QAction* revert = window->action("Revert to Original");
    ASSERT_TRUE(edit && revert);
    window->gallery().selectScreen({SampleLibrary::signUp, "01.png"});
    EXPECT_TRUE(edit->isEnabled());
    EXPECT_FALSE(revert->isEnabled()) << "never edited";
    window->gallery().selectScreen({SampleLibrary::signUp, "02.png"});
    EXPECT_TRUE(revert->isEnabled()) << "an original copy is kept";

    edit->trigger();
    ScreenEditor* editor = window->editor();
    ASSERT_TRUE(editor);
    EXPECT_TRUE(editor->isVisible());
    EXPECT_EQ(editor->folder(), SampleLibrary::signUp);
    EXPECT_EQ(editor->filename(), "02.png");
    EXPECT_EQ(editor->state().shapes().size(), 1u) << "its stored zone";

    // Asked again for another screen of the same flow, the same editor steps there.
    window->gallery().selectScreen({SampleLibrary::signUp, "01.png"});
    edit->trigger();
    EXPECT_EQ(window->editor(), editor);
    EXPECT_EQ(editor->filename(), "01.png");
}

// After "Save & Close" the editor is gone: a clip save that fails afterwards is told in the main
// window, and its zones wait there until the user reopens them or lets them go.
TEST_F(MainWindowTest, AFailedClipSaveStaysInTheWindowWithItsZones) {
    ASSERT_TRUE(writeTestClip(dir / "clip.mov", 160, 240, 10, false));
    library.addScreens(SampleLibrary::signUp, {dir / "clip.mov"});
    const std::string clip = names(SampleLibrary::signUp).back();
    const fs::path file = sample.root / SampleLibrary::signUp / clip;
    const std::string playable = readFile(file);
    writeFile(file, "no longer a clip");
    const std::vector<RedactShape> zones = {{"z", RedactShape::Kind::rect, {0, 0, 1, 0.5}}};
    std::optional<bool> result;
    library.saveVideoEdits(SampleLibrary::signUp, clip, zones, defaultStyle(RedactPreset::light),
                           {}, [&](bool ok) { result = ok; });
    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }));
    ASSERT_FALSE(*result);

    auto* banner = window->findChild<ClipSaveBanner*>("clipSaveBanner");
    ASSERT_TRUE(banner);
    EXPECT_TRUE(banner->isVisible());
    const QString text = banner->label()->text();
    EXPECT_TRUE(text.contains(QString::fromStdString(clip))) << text.toStdString();
    EXPECT_TRUE(text.contains("Sign up")) << text.toStdString();

    // The clip is fine again (restored from elsewhere, say); the zones come back in the editor.
    writeFile(file, playable);
    auto* reopen = banner->findChild<QPushButton*>("clipSaveReopen");
    ASSERT_TRUE(reopen);
    reopen->click();
    ScreenEditor* editor = window->editor();
    ASSERT_TRUE(editor);
    EXPECT_EQ(editor->filename(), clip);
    ASSERT_EQ(editor->state().shapes().size(), 1u);
    EXPECT_EQ(editor->state().shapes()[0].rect, zones[0].rect);
    EXPECT_TRUE(editor->state().isEdited()) << "restored, not yet saved";

    banner->findChild<QPushButton*>("clipSaveDiscard")->click();
    EXPECT_FALSE(banner->isVisible());
    EXPECT_TRUE(library.clipSaveProblems().empty());
}

TEST_F(MainWindowTest, SearchShowsMatchingFlowsAndOnlyTheScreensThatHoldTheText) {
    library.setRecognizerFactory([] {
        return OCRIndex::Recognizer(
            [](const fs::path& file) -> std::optional<std::vector<TextLine>> {
                const bool forgot =
                    file.parent_path().filename() == "log-in" && file.filename() == "02.png";
                return std::vector<TextLine>{{forgot ? "Forgot password?" : "Welcome", {}, {}}};
            });
    });
    library.refreshOCRIndex();
    library.waitForTextRecognition();
    const auto shown = [&] { return outline(window->gallery().content()); };
    GalleryView& gallery = window->gallery();

    window->searchField()->setText("PASSWORD ");
    EXPECT_EQ(shown(), (std::vector<std::string>{"# Acme", "## Onboarding", "Log in"}));
    ASSERT_TRUE(gallery.screensOf(SampleLibrary::logIn));
    ASSERT_EQ(gallery.screensOf(SampleLibrary::logIn)->size(), 1u) << "only the screen with it";
    EXPECT_EQ(gallery.positionOf(SampleLibrary::logIn, 0), 1u) << "still the second screen";
    EXPECT_EQ(gallery.content().flows[0].screenCount, 1);
    // A drop before the one screen shown lands before it in the full flow, not at its start.
    const auto row = gallery.content().rowOfFlow(SampleLibrary::logIn);
    ASSERT_TRUE(row);
    const QRect tile = gallery.galleryLayout().tileRect(*row, 0);
    const auto before = gallery.dropTargetAt(
        QPoint(tile.left() + 2, tile.center().y() - gallery.verticalScrollBar()->value()));
    ASSERT_TRUE(before);
    EXPECT_EQ(before->index, 1u);
    EXPECT_EQ(before->shown, 0u);
    const auto after = gallery.dropTargetAt(
        QPoint(tile.right() - 2, tile.center().y() - gallery.verticalScrollBar()->value()));
    ASSERT_TRUE(after);
    EXPECT_EQ(after->index, 2u) << "after it: the end of the flow";

    window->searchField()->setText("sign");
    EXPECT_EQ(shown(), (std::vector<std::string>{"# Acme", "## Onboarding", "Sign up"}));
    EXPECT_EQ(gallery.screensOf(SampleLibrary::signUp)->size(), 3u) << "found by name: all";

    auto* media = window->findChild<QComboBox*>("mediaFilter");
    ASSERT_TRUE(media);
    media->setCurrentIndex(2); // videos
    EXPECT_EQ(settings->mediaFilter(), MediaFilter::videos);
    ASSERT_EQ(gallery.screensOf(SampleLibrary::signUp)->size(), 1u);
    EXPECT_EQ(gallery.screensOf(SampleLibrary::signUp)->front().filename, "03.mov");
    window->searchField()->setText("password");
    EXPECT_TRUE(shown().empty()) << "its only hit is a still";

    media->setCurrentIndex(0);
    window->searchField()->clear();
    EXPECT_EQ(shown().size(), 7u) << "everything again";
    EXPECT_EQ(gallery.screensOf(SampleLibrary::logIn)->size(), 2u);

    // The recognized lines can be shown over a screen.
    gallery.selectScreen({SampleLibrary::logIn, "02.png"});
    window->action("Show Recognized Text")->trigger();
    ASSERT_TRUE(window->preview());
    EXPECT_TRUE(window->preview()->isVisible());
    EXPECT_TRUE(window->preview()->showsText());
    ASSERT_EQ(window->preview()->textLines().size(), 1u);
    EXPECT_EQ(window->preview()->textLines()[0].text, "Forgot password?");
}

namespace {

// A picture of one colour whose file also says when it was taken (its modification time).
void writeShot(const fs::path& file, unsigned argb, int day = 25) {
    writePicture(file, 30, 60, argb);
    std::tm local{};
    local.tm_year = 2026 - 1900;
    local.tm_mon = 10;
    local.tm_mday = day;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    const auto when = std::chrono::system_clock::from_time_t(std::mktime(&local));
    fs::last_write_time(file, std::chrono::file_clock::from_sys(when));
}

std::vector<std::string> flowFolders(const FlowLibrary& library) {
    std::vector<std::string> folders;
    for (const auto& summary : library.summaries())
        folders.push_back(summary.folderName);
    std::sort(folders.begin(), folders.end());
    return folders;
}

} // namespace

TEST_F(MainWindowTest, AnEmptyLibraryShowsWhatToDoAndItsButtonsBeginAFlow) {
    FlowLibrary empty{FlowStore(dir / "Empty")};
    empty.open();
    MainWindow emptyWindow(empty, *settings);
    emptyWindow.resize(1100, 800);
    emptyWindow.show();
    QApplication::processEvents();
    EmptyLibraryPanel* panel = emptyWindow.emptyLibraryPanel();
    ASSERT_TRUE(panel);
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->geometry(), emptyWindow.gallery().viewport()->rect());
    EXPECT_EQ(panel->captureButton()->text(), "New Capture");
    EXPECT_EQ(panel->importButton()->text(), "Import Screens…");
    EXPECT_EQ(panel->newFlowButton()->text(), "New Flow…");
    EXPECT_FALSE(window->emptyLibraryPanel()->isVisible()) << "a library with flows";

    // New Flow… makes an empty flow and shows it.
    answerNext<NewFlowDialog>(&emptyWindow, [](NewFlowDialog* dialog) {
        EXPECT_FALSE(dialog->createButton()->isEnabled()) << "nothing named yet";
        dialog->applicationBox()->setEditText("Acme");
        dialog->categoryBox()->setEditText("Checkout");
        dialog->nameField()->setText("Pay");
        EXPECT_TRUE(dialog->createButton()->isEnabled());
        dialog->createButton()->click();
    });
    panel->newFlowButton()->click();
    EXPECT_EQ(flowFolders(empty), std::vector<std::string>{"acme/checkout/pay"});
    EXPECT_EQ(emptyWindow.gallery().currentFlow(), "acme/checkout/pay");
    EXPECT_FALSE(panel->isVisible());
    empty.deleteFlow("acme/checkout/pay");
    EXPECT_TRUE(panel->isVisible());

    // Import Screens… chooses files, shows the plan and makes the flow.
    writeShot(dir / "shots/IMG_2.png", 0xff00ff00u);
    answerNext<QFileDialog>(&emptyWindow, [&](QFileDialog* dialog) {
        dialog->selectFile(QString::fromStdString((dir / "shots/IMG_2.png").string()));
        answerNext<ImportPlanDialog>(&emptyWindow, [](ImportPlanDialog* plan) {
            EXPECT_FALSE(plan->importButton()->isEnabled()) << "no application yet";
            plan->applicationBox()->setEditText("Acme");
            EXPECT_TRUE(plan->importButton()->isEnabled());
            plan->importButton()->click();
        });
        static_cast<QDialog*>(dialog)->accept();
    });
    panel->importButton()->click();
    ASSERT_EQ(flowFolders(empty),
              std::vector<std::string>{"acme/uncategorized/imported-2026-11-25"});
    const FlowMeta meta = empty.store().meta("acme/uncategorized/imported-2026-11-25");
    ASSERT_EQ(meta.screens.size(), 1u);
    EXPECT_EQ(readFile(dir / "Empty/acme/uncategorized/imported-2026-11-25/01.png"),
              readFile(dir / "shots/IMG_2.png"));
    EXPECT_EQ(takeImportSummary(&emptyWindow), "Imported 1 screen into 1 flow.");
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(MainWindowTest, NewFlowOffersTheLibrarysNamesAndSelectsTheFlowItMade) {
    LibrarySidebar& sidebar = window->sidebar();
    sidebar.setCurrentItem(topLevel(sidebar, "Acme"));
    answerNext<NewFlowDialog>(window.get(), [](NewFlowDialog* dialog) {
        EXPECT_EQ(dialog->applicationBox()->currentText(), "Acme") << "the selected one";
        QStringList applications, categories;
        for (int i = 0; i < dialog->applicationBox()->count(); ++i)
            applications << dialog->applicationBox()->itemText(i);
        for (int i = 0; i < dialog->categoryBox()->count(); ++i)
            categories << dialog->categoryBox()->itemText(i);
        EXPECT_EQ(applications, (QStringList{"Acme", "Bank"}));
        EXPECT_EQ(categories, QStringList{"Onboarding"});
        EXPECT_TRUE(dialog->applicationBox()->isEditable());
        ASSERT_TRUE(dialog->categoryBox()->completer());
        dialog->categoryBox()->completer()->setCompletionPrefix("onb");
        EXPECT_EQ(dialog->categoryBox()->completer()->currentCompletion(), "Onboarding");
        dialog->categoryBox()->setEditText("Payments");
        dialog->nameField()->setText("  Checkout ");
        dialog->createButton()->click();
    });
    window->action("New Flow…")->trigger();
    const auto folders = flowFolders(library);
    EXPECT_NE(std::find(folders.begin(), folders.end(), "acme/payments/checkout"), folders.end());
    EXPECT_EQ(window->gallery().currentFlow(), "acme/payments/checkout");
    EXPECT_EQ(library.store().meta("acme/payments/checkout").name, "Checkout");
    EXPECT_TRUE(library.store().meta("acme/payments/checkout").screens.empty());
}

TEST_F(MainWindowTest, ImportingAFolderOfFoldersShowsThePlanThenMakesTheFlows) {
    const fs::path trip = dir / "Trip";
    writeShot(trip / "Checkout/IMG_10.png", 0xff0000ffu);
    writeShot(trip / "Checkout/IMG_2.png", 0xff00ff00u);
    writeShot(trip / "Checkout/IMG_1.png", 0xffff0000u);
    writeShot(trip / "Sign in/a.png", 0xff808080u);
    writeFile(trip / "Sign in/notes.txt", "coupon");
    window->sidebar().setCurrentItem(topLevel(window->sidebar(), "Bank"));
    answerNext<ImportPlanDialog>(window.get(), [](ImportPlanDialog* plan) {
        QTreeWidget* flows = plan->flowList();
        ASSERT_EQ(flows->topLevelItemCount(), 2);
        EXPECT_EQ(flows->topLevelItem(0)->text(0), "Checkout");
        EXPECT_EQ(flows->topLevelItem(0)->text(1), "3");
        EXPECT_EQ(flows->topLevelItem(1)->text(0), "Sign in");
        EXPECT_EQ(flows->topLevelItem(1)->text(1), "1");
        EXPECT_EQ(plan->applicationBox()->currentText(), "Bank");
        auto* skipped = plan->findChild<QLabel*>("importSkipped");
        ASSERT_TRUE(skipped);
        EXPECT_TRUE(skipped->text().contains("notes.txt")) << skipped->text().toStdString();
        flows->topLevelItem(1)->setText(0, "Log in");
        plan->categoryBox()->setEditText("Travel");
        EXPECT_EQ(plan->findChild<QLabel*>("importTotals")->text().toStdString(),
                  "4 screens in 2 flows go to Bank ▸ Travel.");
        plan->importButton()->click();
    });
    window->importPaths({trip}, window->selectedApplication(), std::nullopt, true);
    const auto folders = flowFolders(library);
    EXPECT_NE(std::find(folders.begin(), folders.end(), "bank/travel/checkout"), folders.end());
    EXPECT_NE(std::find(folders.begin(), folders.end(), "bank/travel/log-in"), folders.end());
    EXPECT_EQ(names("bank/travel/checkout"),
              (std::vector<std::string>{"01.png", "02.png", "03.png"}));
    EXPECT_EQ(readFile(sample.root / "bank/travel/checkout/03.png"),
              readFile(trip / "Checkout/IMG_10.png"));
    EXPECT_EQ(window->gallery().currentFlow(), "bank/travel/checkout");
    QString informative;
    EXPECT_EQ(takeImportSummary(window.get(), &informative),
              "Imported 4 screens into 2 flows; 1 file skipped.");
    EXPECT_EQ(informative,
              "Skipped:\nnotes.txt: it isn’t a PNG, JPEG or HEIC picture, nor a MOV or MP4 clip");
    ASSERT_TRUE(window->lastImport());
    EXPECT_EQ(window->lastImport()->createdFlows,
              (std::vector<std::string>{"bank/travel/checkout", "bank/travel/log-in"}));
}

TEST_F(MainWindowTest, DroppingFilesOnTheSidebarOrBesideTheFlowsMakesFlows) {
    LibrarySidebar& sidebar = window->sidebar();
    writeShot(dir / "Onboarding shots/1.png", 0xff0000ffu);
    writeShot(dir / "Onboarding shots/2.png", 0xff00ff00u);
    // A folder dropped on an application: a flow named after it, no question asked.
    QTreeWidgetItem* bank = topLevel(sidebar, "Bank");
    dropOn(sidebar.viewport(), sidebar.visualItemRect(bank).center(),
           filesMime({dir / "Onboarding shots"}));
    EXPECT_EQ(names("bank/uncategorized/onboarding-shots"),
              (std::vector<std::string>{"01.png", "02.png"}));
    EXPECT_FALSE(window->findChild<QMessageBox*>("importSummary")) << "nothing to report";

    // Loose files dropped on a category: a flow named after the first one's date.
    sidebar.setCurrentItem(topLevel(sidebar, "Acme"));
    QTreeWidgetItem* onboarding = topLevel(sidebar, "Acme")->child(0);
    ASSERT_EQ(onboarding->text(0), "Onboarding");
    QImage photo(24, 16, QImage::Format_RGB32);
    photo.fill(QColor(200, 40, 40));
    ASSERT_TRUE(photo.save(QString::fromStdString((dir / "photo.jpg").string()), "JPEG"));
    writeShot(dir / "a.png", 0xff00ff00u, 24);
    dropOn(sidebar.viewport(), sidebar.visualItemRect(onboarding).center(),
           filesMime({dir / "photo.jpg", dir / "a.png"}));
    EXPECT_EQ(library.store().meta("acme/onboarding/imported-2026-11-24").screens.size(), 2u);

    // Beside the flows in the gallery (on a category's heading): a flow of the shown application.
    writeShot(dir / "Extra/x.png", 0xff0000ffu);
    GalleryView& gallery = window->gallery();
    ASSERT_EQ(gallery.content().rows[0].kind, GalleryRow::Kind::category);
    gallery.verticalScrollBar()->setValue(0);
    const QPoint heading(200, gallery.galleryLayout().rowTop(0) + 4);
    ASSERT_FALSE(gallery.dropTargetAt(heading));
    dropOn(gallery.viewport(), heading, filesMime({dir / "Extra"}));
    EXPECT_EQ(names("acme/uncategorized/extra"), std::vector<std::string>{"01.png"});

    // On "All" there is no application to go to: the plan asks for one.
    answerNext<ImportPlanDialog>(window.get(), [](ImportPlanDialog* plan) {
        EXPECT_FALSE(plan->importButton()->isEnabled());
        plan->applicationBox()->setEditText("Zeta");
        plan->importButton()->click();
    });
    dropOn(sidebar.viewport(), sidebar.visualItemRect(topLevel(sidebar, "All")).center(),
           filesMime({dir / "Extra"}));
    EXPECT_EQ(names("zeta/uncategorized/extra"), std::vector<std::string>{"01.png"});

    // A JPEG dropped on a flow becomes a PNG screen where it was dropped.
    sidebar.setCurrentItem(topLevel(sidebar, "All"));
    gallery.scrollToFlow(SampleLibrary::transfer);
    dropOn(gallery.viewport(), tileCenter(SampleLibrary::transfer, 0) - QPoint(30, 0),
           filesMime({dir / "photo.jpg"}));
    EXPECT_EQ(names(SampleLibrary::transfer), (std::vector<std::string>{"01.png", "02.png"}));
    EXPECT_EQ(ScreenImport::kindOf(sample.root / SampleLibrary::transfer / "01.png"),
              ScreenImport::Kind::png);
    EXPECT_EQ(payloadOf(sample.root / SampleLibrary::transfer / "02.png"), "transfer-1");
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
