#include "app/AppSettings.h"
#include "app/LibraryLock.h"
#include "library/FileOps.h"
#include "model/FlowLibrary.h"
#include "ui/Appearance.h"
#include "ui/InstanceChannel.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QIcon>
#include <QMessageBox>
#include <QTimer>

#include <string_view>

namespace {

const QCommandLineOption libraryOption("library",
                                       "Open the library in DIR for this run (the setting is "
                                       "left as it is).",
                                       "DIR");

void describe(QCommandLineParser& parser) {
    QCoreApplication::setOrganizationName("Varnel");
    QCoreApplication::setApplicationName("Varnel");
    QCoreApplication::setApplicationVersion(VARNEL_VERSION);
    parser.setApplicationDescription("Collect and study the screens of mobile apps.");
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption(libraryOption);
    parser.addPositionalArgument("archive", "An application archive (.varnel.zip) to import.",
                                 "[archive]");
}

// --help and --version answer in a terminal that has no display.
bool asksOnlyForText(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "-h" || arg == "--help" || arg == "--help-all" || arg == "-v" ||
            arg == "--version")
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    if (asksOnlyForText(argc, argv)) {
        QCoreApplication app(argc, argv);
        QCommandLineParser parser;
        describe(parser);
        parser.process(app);
        return 0;
    }
    QApplication app(argc, argv);
    QGuiApplication::setDesktopFileName(VARNEL_APP_ID);
    QIcon icon;
    for (const char* size : {"32x32", "64x64", "128x128", "256x256"})
        icon.addFile(QString(":/icons/%1/apps/" VARNEL_APP_ID ".png").arg(size));
    QApplication::setWindowIcon(QIcon::fromTheme(VARNEL_APP_ID, icon));
    QCommandLineParser parser;
    describe(parser);
    parser.process(app);
    const QString archive = parser.positionalArguments().value(0);

    varnel::AppSettings settings;
    varnel::DesktopColorScheme desktopScheme(settings);
    varnel::applyAppearance(settings.appearance(), settings.accent());
    const std::filesystem::path root = parser.isSet(libraryOption)
                                           ? parser.value(libraryOption).toStdString()
                                           : settings.rootFolderPath();
    std::optional<varnel::LibraryLock> lock;
    std::optional<std::string> readOnly;
    const QString name = varnel::InstanceChannel::nameFor(root);
    try {
        lock = varnel::takeLibrary(root, readOnly);
    } catch (const std::exception& e) {
        QMessageBox::critical(nullptr, "Varnel", QObject::tr("Couldn’t open the library"),
                              QMessageBox::Ok);
        qCritical("Couldn’t open the library: %s", e.what());
        return 1;
    }
    // Held by another Varnel: that one comes forward. Held by anything else, or not writable:
    // this one browses it.
    if (!lock && !readOnly && varnel::InstanceChannel::handOver(name, archive))
        return 0;
    if (!lock && !readOnly)
        readOnly = varnel::heldReason(root);

    // Listen before the slow part of the start, so that a second start reaches this one at once.
    varnel::InstanceChannel channel;
    channel.listen(name);

    varnel::FlowLibrary library{varnel::FlowStore(root)};
    library.setReadOnly(readOnly);
    library.setAutomaticTextRecognition(true);
    library.open();
    varnel::MainWindow window(library, settings);
    auto showTitle = [&window](const std::filesystem::path& path) {
        const auto folder =
            path.filename().empty() ? path.parent_path().filename() : path.filename();
        window.setWindowTitle("Varnel — " + QString::fromStdString(folder.string()));
    };
    showTitle(root);
    QObject::connect(&window, &varnel::MainWindow::libraryFolderChosen, &window,
                     [&](const QString& chosen) {
                         const std::filesystem::path next = chosen.toStdString();
                         std::optional<std::string> nextReadOnly;
                         std::optional<varnel::LibraryLock> nextLock;
                         try {
                             nextLock = varnel::takeLibrary(next, nextReadOnly);
                         } catch (const std::exception& e) {
                             QMessageBox::warning(&window, "Varnel",
                                                  QObject::tr("Varnel can’t open that library: %1")
                                                      .arg(QString::fromUtf8(e.what())));
                             return;
                         }
                         if (!nextLock && !nextReadOnly)
                             nextReadOnly = varnel::heldReason(next);
                         lock = std::move(nextLock);
                         settings.setRootFolderPath(next.string());
                         library.setReadOnly(nextReadOnly);
                         library.setRoot(next);
                         showTitle(next);
                     });
    window.show();

    auto comeForward = [&window] {
        window.showNormal();
        window.raise();
        window.activateWindow();
    };
    QObject::connect(&channel, &varnel::InstanceChannel::activationRequested, &window, comeForward);
    QObject::connect(&channel, &varnel::InstanceChannel::importRequested, &window,
                     [&window, comeForward](const QString& archive) {
                         comeForward();
                         window.offerImport(archive);
                     });
    if (!archive.isEmpty())
        QTimer::singleShot(0, &window, [&window, archive] { window.offerImport(archive); });
    return app.exec();
}
