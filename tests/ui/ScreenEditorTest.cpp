// The editor window driven as a user would: mouse gestures on the canvas, its buttons and
// menus, and what ends up in the flow's files.
#include "ui/ScreenEditor.h"
#include "app/AppSettings.h"
#include "editing/ClipPlayer.h"
#include "editing/EditorClipboard.h"
#include "editing/ImageRedactor.h"
#include "model/FlowLibrary.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"
#include "ui/EditorCanvas.h"
#include "ui/SecondaryWindows.h"
#include "ui/ThreadPanel.h"
#include "ui/TranslationOverlay.h"

#include <QAction>
#include <QApplication>
#include <QEventLoop>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

constexpr int kWidth = 300;
constexpr int kHeight = 600;

// Stripes, so that a blur visibly changes them.
void writeStripes(const fs::path& file, cv::Scalar a, cv::Scalar b) {
    cv::Mat picture(kHeight, kWidth, CV_8UC4, a);
    for (int y = 0; y < kHeight; y += 8)
        picture.rowRange(y, y + 4).setTo(b);
    ASSERT_TRUE(ImageRedactor::writePng(picture, file));
}

class ScreenEditorTest : public ::testing::Test {
protected:
    ScreenEditorTest() {
        EditorClipboard::shared().clear();
        folder = library.createEmptyFlow("Acme", "Settings", std::nullopt, Date{}).folderName;
        writeStripes(dir / "a.png", {255, 255, 255, 255}, {40, 40, 40, 255});
        writeStripes(dir / "b.png", {20, 20, 20, 255}, {200, 200, 200, 255});
        library.addScreens(folder, {dir / "a.png", dir / "b.png"});
        firstBytes = readFile(screen("01.png"));
    }
    fs::path screen(const std::string& name) const { return root / folder / name; }

    ScreenEditor& open(const std::string& file = "01.png") {
        editor = new ScreenEditor(library, settings, folder, file);
        editor->setLeaveQuestion([this](bool closing) {
            questions.push_back(closing);
            return answer;
        });
        editor->setRevertConfirmation([] { return true; });
        editor->resize(900, 900);
        editor->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(editor));
        return *editor;
    }
    ~ScreenEditorTest() override { delete editor.data(); }

    EditorCanvas& canvas() { return editor->canvas(); }
    // A normalized picture point in canvas coordinates.
    QPoint at(double x, double y) {
        const ViewRect r = canvas().imageRect();
        return QPoint(static_cast<int>(std::lround(r.x + x * r.width)),
                      static_cast<int>(std::lround(r.y + y * r.height)));
    }
    void drag(QPoint from, QPoint to, Qt::KeyboardModifiers modifiers = {}) {
        QTest::mousePress(&canvas(), Qt::LeftButton, modifiers, from);
        for (int i = 1; i <= 4; ++i)
            QTest::mouseMove(&canvas(), from + (to - from) * i / 4);
        QTest::mouseRelease(&canvas(), Qt::LeftButton, modifiers, to);
    }
    void drawZone(EditorMode mode, double x0, double y0, double x1, double y1) {
        canvas().setMode(mode);
        drag(at(x0, y0), at(x1, y1));
        canvas().setMode(EditorMode::select);
    }
    QRgb shown(double x, double y) { return canvas().grab().toImage().pixel(at(x, y)); }
    // Saves a clip and waits for the re-encoding's result; `whileSaving` runs once it started.
    std::optional<bool> saveClip(const std::function<void()>& whileSaving = {}) {
        QEventLoop loop;
        std::optional<bool> result;
        QObject::connect(editor, &ScreenEditor::clipSaveFinished, &loop, [&](bool ok) {
            result = ok;
            loop.quit();
        });
        editor->save();
        if (whileSaving)
            whileSaving();
        QTimer::singleShot(120'000, &loop, &QEventLoop::quit);
        if (!result)
            loop.exec();
        return result;
    }

    TempDir dir;
    fs::path root = dir / "library";
    FlowLibrary library{FlowStore(root)};
    AppSettings settings{std::make_unique<QSettings>(
        QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)};
    std::string folder;
    std::string firstBytes;
    QPointer<ScreenEditor> editor;
    std::vector<bool> questions;
    ScreenEditor::LeaveAnswer answer = ScreenEditor::LeaveAnswer::cancel;
};

// Esc lets go of a selection first, then closes the window; Ctrl+W closes it too. Either way
// unsaved changes are asked about, with buttons that read "Save & Close" and "Save & Continue".
TEST_F(ScreenEditorTest, EscAndCtrlWCloseAfterAskingAboutUnsavedChanges) {
    open();
    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.9, 0.4);
    editor->setLeaveQuestion({}); // the real question
    QStringList buttons;
    QString title;
    auto cancelNextQuestion = [&] {
        auto* poll = new QTimer(editor);
        QObject::connect(poll, &QTimer::timeout, [&, poll] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box)
                return;
            poll->stop();
            title = box->windowTitle();
            buttons.clear();
            for (QAbstractButton* button : box->buttons()) {
                EXPECT_TRUE(QKeySequence::mnemonic(button->text()).isEmpty() ||
                            !button->text().contains(" & "))
                    << "no access key on the space after a lone &";
                buttons << withoutMnemonic(button->text());
            }
            box->reject();
        });
        poll->start(10);
    };

    canvas().setFocus();
    editor->state().selection().insert(editor->state().shapes().front().id);
    QTest::keyClick(&canvas(), Qt::Key_Escape);
    EXPECT_TRUE(editor->isVisible()) << "the first Esc lets go of the selection";
    EXPECT_TRUE(buttons.isEmpty());

    cancelNextQuestion();
    QTest::keyClick(&canvas(), Qt::Key_Escape);
    EXPECT_TRUE(buttons.contains("Save & Close")) << buttons.join(", ").toStdString();
    EXPECT_EQ(title, "Unsaved Changes");
    EXPECT_TRUE(editor->isVisible()) << "cancelled, it stays";

    cancelNextQuestion();
    editor->action("Next Screen")->trigger();
    EXPECT_TRUE(buttons.contains("Save & Continue")) << buttons.join(", ").toStdString();

    QApplication::setActiveWindow(editor); // no window manager offscreen
    ASSERT_EQ(QApplication::activeWindow(), editor.data());
    cancelNextQuestion();
    buttons.clear();
    QTest::keyClick(editor, Qt::Key_W, Qt::ControlModifier);
    EXPECT_TRUE(buttons.contains("Save & Close")) << "Ctrl+W asks the same";
    EXPECT_TRUE(editor->isVisible());

    editor->setLeaveQuestion([](bool) { return ScreenEditor::LeaveAnswer::discard; });
    QTest::keyClick(&canvas(), Qt::Key_Escape);
    EXPECT_TRUE(!editor || !editor->isVisible()) << "discarded, it closes";
}

} // namespace

TEST_F(ScreenEditorTest, DrawnZonesShowFrostedAndAreBakedOnSave) {
    open();
    EXPECT_EQ(editor->screenCount(), 2u);
    const QRgb before = shown(0.5, 0.25);
    const QRgb outside = shown(0.5, 0.8);
    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.9, 0.4);
    ASSERT_EQ(editor->state().shapes().size(), 1u);
    const NormalizedRect rect = editor->state().shapes()[0].rect;
    EXPECT_NEAR(rect.x, 0.1, 0.01);
    EXPECT_NEAR(rect.maxY(), 0.4, 0.01);
    EXPECT_TRUE(editor->state().isEdited());
    EXPECT_NE(shown(0.5, 0.25), before) << "the zone shows the frost at once";
    EXPECT_EQ(shown(0.5, 0.8), outside);

    // A slip of the mouse makes no zone.
    drawZone(EditorMode::ellipse, 0.5, 0.6, 0.502, 0.601);
    EXPECT_EQ(editor->state().shapes().size(), 1u);

    editor->save();
    EXPECT_FALSE(editor->state().isEdited());
    EXPECT_TRUE(editor->savedBadge()->isVisible()) << "Saved flashes";
    EXPECT_TRUE(library.hasOriginal(folder, "01.png"));
    EXPECT_EQ(readFile(screen("01.orig.png")), firstBytes);
    const auto records = library.edits(folder, "01.png");
    ASSERT_EQ(records.shapes.size(), 1u);
    EXPECT_EQ(records.shapes[0].rect, rect);
    EXPECT_EQ(records.style, settings.redactStyle());
    const cv::Mat baked = ImageRedactor::load(screen("01.png"));
    const cv::Mat original = ImageRedactor::load(screen("01.orig.png"));
    EXPECT_GT(cv::norm(baked.row(kHeight / 4), original.row(kHeight / 4), cv::NORM_INF), 20);
    EXPECT_EQ(cv::norm(baked.row(kHeight * 3 / 4), original.row(kHeight * 3 / 4), cv::NORM_INF), 0);

    // Holding compare shows the untouched picture.
    editor->setComparing(true);
    const QRgb compared = shown(0.5, 0.25);
    editor->setComparing(false);
    EXPECT_EQ(compared, before);
    EXPECT_NE(shown(0.5, 0.25), before);
}

TEST_F(ScreenEditorTest, MovingSnapsStaysInsideAndUndoesStepByStep) {
    open();
    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.3, 0.2);
    drawZone(EditorMode::rectangle, 0.5, 0.5, 0.7, 0.6);
    const NormalizedRect drawn = editor->state().shapes()[1].rect;

    // Dragged far past the bottom right, the zone stops at the edges.
    drag(at(0.6, 0.55), at(0.6, 0.55) + QPoint(2000, 2000));
    const NormalizedRect pushed = editor->state().shapes()[1].rect;
    EXPECT_NEAR(pushed.maxX(), 1.0, 1e-9);
    EXPECT_NEAR(pushed.maxY(), 1.0, 1e-9);

    // Its left edge comes within a few points of the other zone's left edge and snaps to it.
    const NormalizedRect first = editor->state().shapes()[0].rect;
    const ViewRect image = canvas().imageRect();
    const QPoint grab = at(pushed.x + 0.05, pushed.y + 0.05);
    const double dx = (first.x - pushed.x) * image.width + 4;
    drag(grab, grab + QPoint(static_cast<int>(std::lround(dx)), -40));
    EXPECT_DOUBLE_EQ(editor->state().shapes()[1].rect.x, first.x);

    // A click without moving costs no undo step.
    const std::size_t depth = editor->state().undoDepth();
    drag(at(0.2, 0.15), at(0.2, 0.15));
    EXPECT_EQ(editor->state().undoDepth(), depth);
    EXPECT_EQ(editor->state().selection().size(), 1u);

    editor->undo();
    EXPECT_EQ(editor->state().shapes()[1].rect, pushed);
    editor->undo();
    EXPECT_EQ(editor->state().shapes()[1].rect, drawn);
    editor->undo();
    editor->undo();
    EXPECT_TRUE(editor->state().shapes().empty());
    EXPECT_FALSE(editor->action("Undo")->isEnabled());
    editor->redo();
    EXPECT_EQ(editor->state().shapes().size(), 1u);

    // Arrow keys nudge the selection by a pixel.
    canvas().setFocus();
    editor->state().selectAll();
    const double x = editor->state().shapes()[0].rect.x;
    QTest::keyClick(&canvas(), Qt::Key_Right);
    EXPECT_NEAR(editor->state().shapes()[0].rect.x, x + 1.0 / kWidth, 1e-9);
    QTest::keyClick(&canvas(), Qt::Key_Delete);
    EXPECT_TRUE(editor->state().shapes().empty());
}

TEST_F(ScreenEditorTest, LeavingWithUnsavedEditsAsksFirst) {
    open();
    EXPECT_TRUE(editor->step(1)) << "nothing edited: no question";
    EXPECT_TRUE(questions.empty());
    editor->rename("  Wallet ");
    EXPECT_EQ(editor->screenName(), "Wallet");
    EXPECT_TRUE(editor->windowTitle().endsWith("Wallet"));
    EXPECT_EQ(library.meta(folder).screens[1].name, "Wallet");
    EXPECT_TRUE(editor->step(-1));

    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.5, 0.5);
    answer = ScreenEditor::LeaveAnswer::cancel;
    EXPECT_FALSE(editor->step(1));
    EXPECT_EQ(editor->screenIndex(), 0u);
    EXPECT_EQ(editor->state().shapes().size(), 1u) << "the edits stay";

    answer = ScreenEditor::LeaveAnswer::discard;
    EXPECT_TRUE(editor->step(1));
    EXPECT_EQ(editor->filename(), "02.png");
    EXPECT_TRUE(library.edits(folder, "01.png").shapes.empty());
    EXPECT_EQ(readFile(screen("01.png")), firstBytes);

    drawZone(EditorMode::ellipse, 0.2, 0.2, 0.6, 0.4);
    answer = ScreenEditor::LeaveAnswer::save;
    EXPECT_TRUE(editor->step(-1));
    EXPECT_EQ(library.edits(folder, "02.png").shapes.size(), 1u) << "saved, then moved on";
    EXPECT_EQ(questions, (std::vector<bool>{false, false, false}));

    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.5, 0.5);
    answer = ScreenEditor::LeaveAnswer::cancel;
    EXPECT_FALSE(editor->close());
    EXPECT_TRUE(questions.back()) << "asked as closing";
    answer = ScreenEditor::LeaveAnswer::discard;
    EXPECT_TRUE(editor->close());
}

TEST_F(ScreenEditorTest, RevertRestoresTheOriginalAndReloads) {
    open();
    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.5, 0.5);
    editor->save();
    ASSERT_NE(readFile(screen("01.png")), firstBytes);
    editor->revert();
    EXPECT_EQ(readFile(screen("01.png")), firstBytes);
    EXPECT_FALSE(library.hasOriginal(folder, "01.png"));
    EXPECT_TRUE(editor->state().shapes().empty());
    EXPECT_FALSE(editor->state().isEdited());
}

TEST_F(ScreenEditorTest, ZonesAndPixelsAreCopiedAndPasted) {
    open();
    drawZone(EditorMode::rectangle, 0.1, 0.1, 0.4, 0.3);
    EXPECT_FALSE(editor->action("Paste zones")->isEnabled());
    const NormalizedRect copied = editor->state().shapes()[0].rect;
    editor->copyZones();
    editor->save();
    editor->step(1);
    EXPECT_TRUE(editor->action("Paste zones")->isEnabled());
    editor->pasteZones();
    ASSERT_EQ(editor->state().shapes().size(), 1u);
    EXPECT_EQ(editor->state().shapes()[0].rect, copied) << "another screen: same place";

    // The patch tool marks pixels; copied and pasted, they become a patch beside them.
    canvas().setMode(EditorMode::patch);
    drag(at(0.5, 0.5), at(0.8, 0.7));
    const auto region = canvas().selectedRegion();
    ASSERT_TRUE(region);
    EXPECT_TRUE(editor->action("Copy region pixels")->isEnabled());
    editor->copyRegionPixels();
    editor->pastePixels();
    ASSERT_EQ(editor->state().patches().size(), 1u);
    EXPECT_EQ(canvas().mode(), EditorMode::select);
    const EditorPatch patch = editor->state().patches()[0];
    EXPECT_EQ(patch.image.cols, 90);
    EXPECT_DOUBLE_EQ(patch.rect.x, region->x + EditorState::kPasteOffset);

    // Dragged onto the top, it is saved as a patch file.
    drag(at(0.6, 0.6), at(0.6, 0.1));
    EXPECT_LT(editor->state().patches()[0].rect.y, 0.3);
    editor->save();
    const auto records = library.edits(folder, "02.png");
    ASSERT_EQ(records.patches.size(), 1u);
    EXPECT_TRUE(fs::exists(screen(records.patches[0].file)));
    EXPECT_EQ(records.shapes.size(), 1u);
}

TEST_F(ScreenEditorTest, PinsAreCreatedEditedAndDeleted) {
    open();
    canvas().setMode(EditorMode::comment);
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.25, 0.5));
    ASSERT_TRUE(canvas().isDrafting());
    EXPECT_EQ(canvas().draftField()->placeholderText(), "Add a comment");
    QTest::keyClicks(canvas().draftField(), "   ");
    QTest::keyClick(canvas().draftField(), Qt::Key_Return);
    EXPECT_TRUE(library.comments(folder, "01.png").empty()) << "blank: nothing saved";

    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.25, 0.5));
    QTest::keyClicks(canvas().draftField(), "  Hide the e-mail ");
    QTest::keyClick(canvas().draftField(), Qt::Key_Return);
    auto pins = library.comments(folder, "01.png");
    ASSERT_EQ(pins.size(), 1u);
    EXPECT_EQ(pins[0].text, "Hide the e-mail");
    EXPECT_NEAR(pins[0].x, 0.25, 0.01);
    EXPECT_NEAR(pins[0].y, 0.5, 0.01);
    EXPECT_FALSE(canvas().isDrafting());

    // Dragging moves it and saves; it never leaves the picture.
    canvas().setMode(EditorMode::select);
    drag(at(0.25, 0.5), at(0.25, 0.5) + QPoint(-3000, 0));
    pins = library.comments(folder, "01.png");
    EXPECT_EQ(pins[0].x, 0.0);
    EXPECT_NEAR(pins[0].y, 0.5, 0.01);

    // A click opens it for editing, with a way to delete it.
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0, 0.5));
    ASSERT_TRUE(canvas().isDrafting());
    EXPECT_EQ(canvas().draftField()->text(), "Hide the e-mail");
    auto* remove = canvas().findChild<QToolButton*>();
    ASSERT_TRUE(remove && remove->isVisible());
    EXPECT_EQ(remove->text(), "Delete comment");
    remove->click();
    EXPECT_TRUE(library.comments(folder, "01.png").empty());
}

TEST_F(ScreenEditorTest, PinsWhoseSaveFailedStayUntilTheyAreSaved) {
    open();
    library.setReadOnly("another computer holds it");
    canvas().setMode(EditorMode::comment);
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.25, 0.5));
    QTest::keyClicks(canvas().draftField(), "Hide the e-mail");
    QTest::keyClick(canvas().draftField(), Qt::Key_Return);
    EXPECT_TRUE(library.comments(folder, "01.png").empty());
    ASSERT_EQ(canvas().pins().size(), 1u);
    EXPECT_EQ(canvas().pins()[0].text, "Hide the e-mail");
    const QString message = editor->statusBar()->currentMessage();
    EXPECT_TRUE(message.startsWith("Couldn’t save the comments: The library is open read-only: "
                                   "another computer holds it"))
        << message.toStdString();
    EXPECT_TRUE(editor->action("Save")->isEnabled());

    // Threads refreshed meanwhile, a second pin and a revert keep what is only on screen.
    emit library.figmaThreadsRefreshed(QString::fromStdString(folder));
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.75, 0.25));
    QTest::keyClicks(canvas().draftField(), "Second");
    QTest::keyClick(canvas().draftField(), Qt::Key_Return);
    editor->revert();
    ASSERT_EQ(canvas().pins().size(), 2u);
    EXPECT_EQ(canvas().pins()[0].text, "Hide the e-mail");

    // Leaving asks first.
    EXPECT_FALSE(editor->step(1));
    EXPECT_EQ(questions, std::vector<bool>{false});
    EXPECT_EQ(editor->filename(), "01.png");

    // Saving again, once the library can be written, saves both.
    library.setReadOnly(std::nullopt);
    editor->save();
    const auto saved = library.comments(folder, "01.png");
    ASSERT_EQ(saved.size(), 2u);
    EXPECT_EQ(saved[0].text, "Hide the e-mail");
    EXPECT_EQ(saved[1].text, "Second");
    EXPECT_TRUE(editor->statusBar()->currentMessage().isEmpty());
    EXPECT_TRUE(editor->savedBadge()->isVisible());
    EXPECT_FALSE(editor->action("Save")->isEnabled());
    EXPECT_TRUE(editor->step(1));
    EXPECT_EQ(questions.size(), 1u);
}

TEST_F(ScreenEditorTest, PublishedPinsShowTheirThread) {
    FlowMeta meta = library.meta(folder);
    meta.screens[0].comments = std::vector<ScreenComment>{
        {"PIN-1", 0.5, 0.5, "Label cut off", Date{}, "C1", "0.5,0.5|Label cut off", std::nullopt}};
    FigmaThread own;
    own.rootId = "C1";
    own.x = 0.5;
    own.y = 0.5;
    own.text = "Label cut off";
    own.replies.push_back({"C2", "Fixed in the next build", "ana", std::nullopt, "u2", Date{}});
    FigmaThread someoneElse;
    someoneElse.rootId = "C9";
    someoneElse.x = 0.2;
    someoneElse.y = 0.8;
    someoneElse.text = "Why two buttons?";
    someoneElse.authorHandle = "bo";
    meta.screens[0].figmaThreads = std::vector<FigmaThread>{own, someoneElse};
    library.saveMeta(folder, meta);
    open();

    const auto labels = [&] {
        std::vector<std::string> texts;
        for (auto* label : editor->threadPanel().findChildren<QLabel*>())
            if (label->isVisible())
                texts.push_back(label->text().toStdString());
        return texts;
    };
    const auto button = [&](const QString& text) {
        for (auto* b : editor->threadPanel().findChildren<QPushButton*>())
            if (b->text() == text)
                return b;
        return static_cast<QPushButton*>(nullptr);
    };

    EXPECT_EQ(canvas().pinCard(at(0.5, 0.5)), "Label cut off\nana: Fixed in the next build");
    EXPECT_EQ(canvas().pinCard(at(0.2, 0.8)), "bo: Why two buttons?");
    EXPECT_EQ(canvas().pinCard(at(0.7, 0.7)), "") << "no pin there";
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.5, 0.5));
    ASSERT_TRUE(editor->threadPanel().isVisible());
    EXPECT_FALSE(canvas().isDrafting()) << "a pin with replies opens its thread, not the field";
    const auto shownTexts = labels();
    EXPECT_NE(std::find(shownTexts.begin(), shownTexts.end(),
                        "Editing is locked because the thread has replies"),
              shownTexts.end());
    EXPECT_FALSE(button("Edit comment")->isVisible());
    EXPECT_FALSE(button("Reply")->isVisible()) << "replying needs Figma";
    button("Close")->click();
    EXPECT_FALSE(editor->threadPanel().isVisible());

    // Someone else's comment is a pin of its own; it has no text of ours to edit.
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.2, 0.8));
    ASSERT_TRUE(editor->threadPanel().isVisible());
    EXPECT_EQ(editor->threadPanel().rootId(), "C9");
    EXPECT_FALSE(button("Edit comment")->isVisible());

    // Once Figma can be asked, deleting a thread with replies is confirmed first.
    std::vector<std::string> deleted;
    int asked = 0;
    editor->threadPanel().setFigmaActions(
        {{}, [&](const std::string& id) { deleted.push_back(id); }, {}});
    editor->threadPanel().setDeleteConfirmation([&] {
        ++asked;
        return false;
    });
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.5, 0.5));
    button("Delete thread…")->click();
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(deleted.empty()) << "declined";
    QTest::mouseClick(&canvas(), Qt::LeftButton, {}, at(0.2, 0.8));
    button("Delete thread…")->click();
    EXPECT_EQ(asked, 1) << "no replies: nothing to confirm";
    EXPECT_EQ(deleted, std::vector<std::string>{"C9"});
}

TEST_F(ScreenEditorTest, ThemeSwitchChangesTheFrostAndTheStoredPreset) {
    open();
    drawZone(EditorMode::rectangle, 0.0, 0.0, 1.0, 0.5);
    const QColor light(shown(0.5, 0.25));
    editor->setPreset(RedactPreset::dark);
    EXPECT_EQ(settings.redactPreset(), RedactPreset::dark);
    EXPECT_EQ(editor->style(), settings.redactDark());
    EXPECT_LT(QColor(shown(0.5, 0.25)).lightness(), light.lightness() - 40);
}

TEST_F(ScreenEditorTest, ClipsPlayWithTheirZonesAndSaveByReencoding) {
    ASSERT_TRUE(writeTestClip(dir / "clip.mov", 160, 240, 20, false));
    library.addScreens(folder, {dir / "clip.mov"});
    open("03.mov");
    ASSERT_TRUE(editor->isClip());
    ASSERT_TRUE(editor->player() && editor->player()->isOpen());
    for (auto* tool : editor->findChildren<QToolButton*>()) {
        if (tool->text() == "Comment" || tool->text() == "Patch") {
            EXPECT_FALSE(tool->isEnabled()) << tool->text().toStdString();
        }
    }
    EXPECT_FALSE(editor->action("Paste pixels")->isEnabled());

    drawZone(EditorMode::rectangle, 0.0, 0.0, 1.0, 0.5);
    ASSERT_EQ(editor->state().shapes().size(), 1u);
    const std::string before = readFile(screen("03.mov"));

    bool progressShown = false;
    const auto result = saveClip([&] {
        EXPECT_TRUE(editor->isSaving());
        for (auto* label : editor->findChildren<QLabel*>())
            progressShown |= label->isVisible() && label->text() == "Re-encoding the clip…";
    });
    EXPECT_TRUE(progressShown);
    ASSERT_EQ(result, true);
    EXPECT_FALSE(editor->isSaving());
    EXPECT_FALSE(editor->state().isEdited());
    EXPECT_EQ(library.edits(folder, "03.mov").shapes.size(), 1u);
    EXPECT_NE(readFile(screen("03.mov")), before);
    EXPECT_EQ(readFile(screen("03.orig.mov")), before);
}

TEST_F(ScreenEditorTest, AFailedClipSaveKeepsTheZonesAndSaysSo) {
    ASSERT_TRUE(writeTestClip(dir / "clip.mov", 160, 240, 10, false));
    library.addScreens(folder, {dir / "clip.mov"});
    open("03.mov");
    drawZone(EditorMode::rectangle, 0.0, 0.0, 1.0, 0.5);
    // The clip breaks on disk while the editor is open.
    writeFile(screen("03.mov"), "no longer a clip");

    ASSERT_EQ(saveClip(), false);
    EXPECT_TRUE(editor->state().isEdited()) << "the zones are still here";
    EXPECT_EQ(editor->state().shapes().size(), 1u);
    EXPECT_TRUE(library.edits(folder, "03.mov").shapes.empty()) << "nothing recorded";
    auto* alert = editor->findChild<QMessageBox*>();
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->text(), "The video couldn't be saved.");
    // The decoder's own words say what was wrong, then what became of the clip and the zones.
    const auto paragraphs = alert->informativeText().split("\n\n");
    ASSERT_EQ(paragraphs.size(), 2) << alert->informativeText().toStdString();
    EXPECT_FALSE(paragraphs[0].trimmed().isEmpty());
    EXPECT_TRUE(alert->informativeText().endsWith(
        "The clip on disk is unchanged. Your zones are still here — try saving again."));
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// In the editor too, pointing at a recognized line shows its stored translation over it, with
// no engine asked.
TEST_F(ScreenEditorTest, PointingAtALineShowsItsStoredTranslation) {
    library.saveTextLines(folder, "01.png",
                          {{"Ajustes",
                            {0.1, 0.2, 0.5, 0.06},
                            std::map<std::string, std::string>{{"en", "Settings"}}}});
    ScreenEditor& editor = open();
    int asked = 0;
    editor.translation().setTranslation(true, "en", [&](const ScreenID&, const std::string&) {
        ++asked;
        return ScreenTranslator::Result{};
    });
    const QImage before = canvas().grab().toImage();
    QTest::mouseMove(&canvas(), at(0.3, 0.23));
    EXPECT_EQ(editor.translation().hovered(), 0u);
    const QImage after = canvas().grab().toImage();
    int changed = 0;
    for (int y = 0; y < after.height(); ++y)
        for (int x = 0; x < after.width(); ++x)
            changed += before.pixel(x, y) != after.pixel(x, y);
    EXPECT_GT(changed, 200) << "the translation is drawn over the line";
    EXPECT_EQ(asked, 0) << "a stored translation needs no engine";
    QTest::mouseMove(&canvas(), at(0.5, 0.8));
    EXPECT_FALSE(editor.translation().hovered());
}
