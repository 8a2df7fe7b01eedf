// Makes the screenshots the software centre shows (make screenshots): a made-up library of
// three applications in the window, and a screen in the editor with a blur zone and a pin.
#include "app/AppSettings.h"
#include "editing/ScreenEdits.h"
#include "model/FlowLibrary.h"
#include "support/RenderedScreens.h"
#include "support/TestLibrary.h"
#include "ui/Appearance.h"
#include "ui/MainWindow.h"
#include "ui/ScreenEditor.h"

#include <QApplication>
#include <QDeadlineTimer>

#include <iostream>

using namespace varnel;
using namespace varnel::test;
using Language = RenderedScreen::Language;

namespace {

struct SampleFlow {
    const char* application;
    const char* category;
    const char* name;
    Language language;
    bool dark;
    int screens;
};

constexpr SampleFlow kFlows[] = {
    {"Acme Bank", "Onboarding", "Sign up", Language::english, false, 5},
    {"Acme Bank", "Onboarding", "Log in", Language::english, true, 3},
    {"Acme Bank", "Payments", "Send money", Language::english, false, 4},
    {"Trails", "Discover", "Search a trail", Language::french, false, 4},
    {"Seoul Eats", "Ordering", "Checkout", Language::korean, true, 3},
};

void settle(int milliseconds) {
    QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired())
        QApplication::processEvents(QEventLoop::AllEvents, 20);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: make_screenshots FOLDER\n";
        return 2;
    }
    const fs::path out = fs::absolute(argv[1]);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    TempDir dir;
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((dir / "config").string()));
    qputenv("HOME", QByteArray::fromStdString((dir / "home").string()));
    QApplication app(argc, argv);
    AppSettings settings{std::make_unique<QSettings>(
        QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)};
    applyAppearance(settings.appearance(), settings.accent());

    const fs::path root = dir / "home" / "Pictures" / "Varnel";
    std::string edited;
    {
        FlowStore store(root);
        int variant = 0;
        for (const auto& flow : kFlows) {
            std::vector<fs::path> files;
            for (int i = 0; i < flow.screens; ++i) {
                const fs::path file = dir / ("screen-" + std::to_string(variant) + ".png");
                renderScreen(flow.language, flow.dark, variant++)
                    .image.save(QString::fromStdString(file.string()));
                files.push_back(file);
            }
            const auto summary = store.createEmptyFlow(flow.application, flow.name,
                                                       std::string(flow.category), Date::now());
            store.addScreens(summary.folderName, files, Date::now());
            if (edited.empty())
                edited = summary.folderName;
        }
        RedactShape zone;
        zone.kind = RedactShape::Kind::rect;
        zone.rect = {0.08, 0.3, 0.84, 0.16};
        ScreenEdits::save(store, edited, "02.png", {zone}, settings.redactStyle(), {});
    }

    FlowLibrary library{FlowStore(root)};
    library.open();
    FlowMeta meta = library.meta(edited);
    meta.screens[1].comments = std::vector<ScreenComment>{
        {"PIN-1", 0.7, 0.62, "The button label is cut off on small phones", Date::now(),
         std::nullopt, std::nullopt, std::nullopt}};
    library.saveMeta(edited, meta);

    fs::create_directories(out);
    MainWindow window(library, settings);
    window.resize(1280, 800);
    window.show();
    settle(3000); // thumbnails are made off the main thread
    window.grab().save(QString::fromStdString((out / "library.png").string()));

    ScreenEditor editor(library, settings, edited, "02.png");
    editor.resize(1280, 800);
    editor.show();
    settle(1500);
    editor.grab().save(QString::fromStdString((out / "editor.png").string()));
    std::cout << (out / "library.png").string() << "\n" << (out / "editor.png").string() << "\n";
    return 0;
}
