// The Figma parts of the windows against a Figma on 127.0.0.1: the flow's Figma row, the
// settings pane and the thread panel of the editor.
#include "app/AppSettings.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaServices.h"
#include "model/FlowLibrary.h"
#include "support/FakeFigma.h"
#include "support/MemorySecrets.h"
#include "support/TestLibrary.h"
#include "ui/EditorCanvas.h"
#include "ui/FigmaFlowBar.h"
#include "ui/FigmaSettingsPane.h"
#include "ui/GalleryView.h"
#include "ui/MainWindow.h"
#include "ui/ScreenEditor.h"
#include "ui/SettingsWindow.h"
#include "ui/ThreadPanel.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class FigmaUiTest : public ::testing::Test {
protected:
    FigmaUiTest() {
        library.open();
        folder = library.createEmptyFlow("Acme", "Checkout", std::nullopt, Date::now()).folderName;
        writePicture(dir / "a.png", 390, 844);
        writePicture(dir / "b.png", 390, 844);
        library.store().addScreens(folder, {dir / "a.png", dir / "b.png"}, Date::now());
        library.reload();
        board =
            figma.addBoard(figma.addPage("Flows"), library.meta(folder).id, "2026-11-22T09:00:00Z",
                           0, 0, {{"01.png", 0, 0, 390, 844}, {"02.png", 440, 0, 390, 844}});
        window->resize(1100, 800);
        window->show();
        QApplication::processEvents();
    }
    ~FigmaUiTest() override { EXPECT_EQ(figma.violations(), std::vector<std::string>{}); }

    void addPin(const std::string& id, double x, double y, const std::string& text) {
        auto pins = library.comments(folder, "01.png");
        ScreenComment pin;
        pin.id = id;
        pin.x = x;
        pin.y = y;
        pin.text = text;
        pins.push_back(pin);
        library.saveComments(folder, "01.png", pins);
    }
    template <typename Done> void waitFor(Done done) {
        while (!done())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    QString status() { return window->figmaBar().statusText(); }

    TempDir dir;
    FakeFigma figma{"UIKEY", "ui-token"};
    MemorySecrets secrets;
    FlowLibrary library{FlowStore(dir / "Library")};
    FigmaServices services{library, secrets, figma.baseURL()};
    std::unique_ptr<AppSettings> settings =
        std::make_unique<AppSettings>(std::make_unique<QSettings>(
            QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat));
    std::unique_ptr<MainWindow> window =
        std::make_unique<MainWindow>(library, *settings, nullptr, &services);
    std::string folder, board;
};

} // namespace

TEST_F(FigmaUiTest, FlowRowLinksExportsAndPublishes) {
    FigmaFlowBar& bar = window->figmaBar();
    EXPECT_FALSE(bar.isVisible()) << "no flow picked";
    window->gallery().selectFlow(folder);
    QApplication::processEvents();
    ASSERT_TRUE(bar.isVisible());
    EXPECT_TRUE(status().startsWith("Export the flow")) << status().toStdString();
    EXPECT_FALSE(bar.publishButton()->isEnabled());

    bar.linkField()->setText("https://example.com/file/UIKEY/x");
    bar.applyLink();
    EXPECT_EQ(status(), "Not a Figma file URL");
    EXPECT_FALSE(library.meta(folder).figmaFileURL) << "nothing stored";
    bar.linkField()->setText(QString::fromStdString(figma.fileLink()));
    bar.applyLink();
    EXPECT_EQ(library.meta(folder).figmaFileURL, "https://www.figma.com/design/UIKEY");
    EXPECT_EQ(bar.linkField()->text(), "https://www.figma.com/design/UIKEY");

    window->action("Export for Figma…")->trigger();
    EXPECT_EQ(status(), "Writing the package…");
    EXPECT_FALSE(bar.exportButton()->isEnabled());
    waitFor([&] { return !bar.isExporting(); });
    EXPECT_EQ(status(), "Package ready — drag it onto the Varnel Import plugin window in Figma");
    ASSERT_TRUE(library.existingFigmaZip(folder));
    auto* chip = bar.findChild<QLabel*>("figmaPackage");
    ASSERT_TRUE(chip);
    EXPECT_TRUE(chip->isVisible());
    EXPECT_EQ(chip->toolTip(), "Drag onto the Varnel Import plugin window in Figma");

    // Linked: a sync can always pull colleagues' replies, even with nothing to send.
    EXPECT_EQ(bar.publishButton()->text(), "Sync with Figma");
    EXPECT_TRUE(bar.publishButton()->isEnabled());
    addPin("p1", 0.5, 0.5, "Price is cut off");
    EXPECT_EQ(bar.publishButton()->text(), "Sync with Figma (1)");
    ASSERT_TRUE(bar.publishButton()->isEnabled());
    EXPECT_TRUE(window->action("Sync with Figma")->isEnabled());

    bar.publishButton()->click();
    EXPECT_EQ(status(), "Add your Figma token in Settings → Figma first");
    EXPECT_TRUE(figma.requests().empty());

    FigmaAuth::setToken("ui-token", secrets);
    bar.publishButton()->click();
    EXPECT_EQ(status(), "Syncing with Figma…");
    EXPECT_FALSE(bar.publishButton()->isEnabled()) << "one run at a time";
    services.sync().waitForIdle();
    EXPECT_EQ(status(), "1 posted");
    EXPECT_EQ(bar.publishButton()->text(), "Sync with Figma");
    EXPECT_EQ(figma.comments().size(), 1u);

    // Nothing to send: a sync still brings a colleague's reply in.
    figma.addForeignReply(figma.comments()[0]["id"], "On it", "2026-11-22T12:00:00Z");
    bar.publishButton()->click();
    services.sync().waitForIdle();
    EXPECT_EQ(status(), "Nothing to publish");
    ASSERT_TRUE(library.meta(folder).screen("01.png")->figmaThreads);
    EXPECT_EQ(library.meta(folder).screen("01.png")->figmaThreads->at(0).replies.at(0).text,
              "On it");

    // Renamed, the flow's package under the old name goes with the old name.
    const auto oldZip = *library.existingFigmaZip(folder);
    const std::string renamed = library.renameFlow(folder, "Checkout v2");
    EXPECT_FALSE(fs::exists(library.store().flowURL(renamed) / oldZip.filename()));
    folder = renamed;
    window->gallery().selectFlow(folder);
    QApplication::processEvents();

    figma.rejectToken(403);
    addPin("p2", 0.2, 0.2, "Second");
    bar.publish();
    services.sync().waitForIdle();
    EXPECT_EQ(status(), "Figma refused the token — check Settings → Figma");
}

TEST_F(FigmaUiTest, SettingsKeepTheTokenAndShowTheAccount) {
    window->showSettings();
    auto* pane = window->findChild<FigmaSettingsPane*>();
    ASSERT_TRUE(pane);
    auto* field = pane->findChild<QLineEdit*>("figmaToken");
    auto* account = pane->findChild<QLabel*>("figmaAccount");
    EXPECT_EQ(field->echoMode(), QLineEdit::Password);
    EXPECT_TRUE(account->text().startsWith("No token stored"));

    field->setText("  ui-token \n");
    pane->saveToken();
    EXPECT_EQ(secrets.items.at("pat"), "ui-token");
    EXPECT_TRUE(field->text().isEmpty()) << "the token isn't left on screen";
    waitFor([&] { return !services.account().avatar().isNull(); });
    QApplication::processEvents();
    EXPECT_TRUE(account->text().contains("Signed in as <b>Mina Kerr</b>"));
    EXPECT_TRUE(account->text().contains("mina@example.com"));

    field->setText("wrong");
    pane->saveToken();
    waitFor([&] { return !services.account().loading(); });
    EXPECT_EQ(account->text(), "Figma refused the token — check Settings → Figma");

    field->setText("   ");
    pane->saveToken();
    EXPECT_TRUE(secrets.items.empty()) << "a blank token forgets the stored one";
    EXPECT_TRUE(account->text().startsWith("No token stored"));
}

TEST_F(FigmaUiTest, ThreadPanelRepliesAndDeletesInFigma) {
    FigmaAuth::setToken("ui-token", secrets);
    library.setFigmaFileURL(folder, figma.fileLink());
    addPin("p1", 0.5, 0.5, "Price is cut off");
    services.sync().publish(folder);
    services.sync().waitForIdle();
    const std::string root = *library.comments(folder, "01.png")[0].postedId;
    figma.addForeignReply(root, "Will fix", "2026-11-22T11:00:00Z");
    services.sync().publish(folder); // pulls the reply
    services.sync().waitForIdle();

    auto* editor = new ScreenEditor(library, *settings, folder, "01.png", window.get(), &services);
    editor->setWindowFlag(Qt::Window);
    editor->resize(900, 900);
    editor->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(editor));
    EditorCanvas& canvas = editor->canvas();
    const ViewRect r = canvas.imageRect();
    QTest::mouseClick(&canvas, Qt::LeftButton, {},
                      QPoint(int(r.x + 0.5 * r.width), int(r.y + 0.5 * r.height)));
    ThreadPanel& panel = editor->threadPanel();
    ASSERT_TRUE(panel.isVisible());
    EXPECT_EQ(panel.rootId(), root);
    const auto button = [&](const QString& text) {
        for (auto* b : panel.findChildren<QPushButton*>())
            if (b->text() == text)
                return b;
        return static_cast<QPushButton*>(nullptr);
    };
    const auto shown = [&] {
        QApplication::processEvents(); // new rows show on the next turn of the event loop
        QStringList texts;
        for (auto* label : panel.findChildren<QLabel*>())
            if (label->isVisible() && !label->text().isEmpty())
                texts << label->text();
        return texts.join("\n");
    };
    EXPECT_TRUE(button("Reply")->isVisible());
    EXPECT_TRUE(button("Open in Figma")->isVisible());
    EXPECT_TRUE(shown().contains("Will fix"));
    EXPECT_TRUE(shown().contains("Editing is locked because the thread has replies"));
    // The authors' pictures arrive and are shown.
    waitFor([&] {
        for (auto* avatar : panel.findChildren<QLabel*>("avatar"))
            if (!avatar->pixmap().isNull())
                return true;
        return false;
    });

    QSignalSpy done(&services.threads(), &FigmaThreadActions::finished);
    panel.findChild<QLineEdit*>()->setText("Thanks!");
    button("Reply")->click();
    waitFor([&] { return done.count() == 1; });
    EXPECT_TRUE(shown().contains("Thanks!")) << shown().toStdString();
    EXPECT_EQ(figma.comments().size(), 3u);

    // Gone in Figma meanwhile: the reply says so.
    figma.deleteInFigma(root);
    panel.findChild<QLineEdit*>()->setText("Anyone?");
    button("Reply")->click();
    waitFor([&] { return done.count() == 2; });
    EXPECT_TRUE(shown().contains("This thread was deleted in Figma"));

    panel.setDeleteConfirmation([] { return true; });
    button("Delete thread…")->click();
    waitFor([&] { return done.count() == 3; });
    EXPECT_FALSE(panel.isVisible());
    EXPECT_TRUE(library.comments(folder, "01.png").empty());
    delete editor;
}

TEST_F(FigmaUiTest, PinsWithRepliesStayPutAndOnlyTheAuthorMayDelete) {
    FigmaAuth::setToken("ui-token", secrets);
    library.setFigmaFileURL(folder, figma.fileLink());
    addPin("talk", 0.3, 0.3, "Discussed");
    addPin("free", 0.7, 0.7, "Not yet");
    services.sync().publish(folder);
    services.sync().waitForIdle();
    const std::string root = *library.comments(folder, "01.png")[0].postedId;
    figma.addForeignReply(root, "Please keep it there", "2026-11-22T11:00:00Z");
    const std::string theirs =
        figma.addForeignComment("Their own thread", board, 195, 100, "2026-11-22T11:00:01Z");
    services.sync().publish(folder);
    services.sync().waitForIdle();
    const auto before = library.comments(folder, "01.png");

    auto* editor = new ScreenEditor(library, *settings, folder, "01.png", window.get(), &services);
    editor->setWindowFlag(Qt::Window);
    editor->resize(900, 900);
    editor->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(editor));
    EditorCanvas& canvas = editor->canvas();
    // Where a point of the picture is now: the thread panel takes room when it opens.
    const auto at = [&](double x, double y) {
        const ViewRect r = canvas.imageRect();
        return QPoint(int(r.x + x * r.width), int(r.y + y * r.height));
    };
    const auto drag = [&](QPoint from, QPoint to) {
        QTest::mousePress(&canvas, Qt::LeftButton, {}, from);
        QTest::mouseMove(&canvas, from + (to - from) / 2);
        QTest::mouseMove(&canvas, to);
        QTest::mouseRelease(&canvas, Qt::LeftButton, {}, to);
        QApplication::processEvents();
    };

    // The pin with a colleague's reply doesn't move; the other one does, but not by a jitter.
    drag(at(0.3, 0.3), at(0.3, 0.3) + QPoint(80, 40));
    drag(at(0.7, 0.7), at(0.7, 0.7) + QPoint(4, 3)); // a hand's tremor on a click
    EXPECT_EQ(library.comments(folder, "01.png"), before);
    drag(at(0.7, 0.7), at(0.7, 0.7) + QPoint(60, 0));
    EXPECT_GT(library.comments(folder, "01.png")[1].x, 0.7);
    EXPECT_EQ(library.comments(folder, "01.png")[0], before[0]);

    // Delete is offered on the signed-in account's threads only.
    waitFor([&] { return services.account().account().has_value(); });
    ThreadPanel& panel = editor->threadPanel();
    QTest::mouseClick(&canvas, Qt::LeftButton, {}, at(0.3, 0.3));
    ASSERT_TRUE(panel.isVisible());
    EXPECT_TRUE(panel.deleteButton()->isVisible());
    QTest::mouseClick(&canvas, Qt::LeftButton, {}, at(0.5, 100.0 / 844));
    ASSERT_EQ(panel.rootId(), theirs);
    EXPECT_FALSE(panel.deleteButton()->isVisible());

    // A reply that fails goes back into the field.
    QSignalSpy done(&services.threads(), &FigmaThreadActions::finished);
    figma.failNext("POST", "/comments", 500);
    auto* field = panel.findChild<QLineEdit*>();
    field->setText("Agreed");
    QTest::keyClick(field, Qt::Key_Return);
    waitFor([&] { return done.count() == 1; });
    EXPECT_EQ(field->text(), "Agreed");
    delete editor;
}

TEST_F(FigmaUiTest, ACopiedFigmaLinkIsOfferedForAFlowWithout) {
    FigmaFlowBar& bar = window->figmaBar();
    window->gallery().selectFlow(folder);
    QApplication::processEvents();
    QGuiApplication::clipboard()->setText("see https://www.figma.com/design/UIKEY/Flows");
    EXPECT_FALSE(bar.linkOfferButton()->isVisible()) << "a link inside a sentence";
    QGuiApplication::clipboard()->setText(QString::fromStdString(figma.fileLink("1:2")));
    ASSERT_TRUE(bar.linkOfferButton()->isVisible());
    bar.linkOfferButton()->click();
    EXPECT_EQ(library.meta(folder).figmaFileURL, "https://www.figma.com/design/UIKEY?node-id=1:2");
    EXPECT_FALSE(bar.linkOfferButton()->isVisible());
    // Linked now: another copied link is not offered over it.
    QGuiApplication::clipboard()->setText("https://www.figma.com/design/OTHER/x");
    EXPECT_FALSE(bar.linkOfferButton()->isVisible());
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
