#include "app/AppSettings.h"
#include "app/LibraryLock.h"
#include "library/FileOps.h"
#include "library/FlowLibrary.h"
#include "ui/Appearance.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMessageBox>
#include <QScreen>
#include <QThread>

namespace {

// One name per library, so that a second start on the same library reaches the first.
QString instanceName(const std::filesystem::path& root) {
    std::error_code ec;
    const auto canonical = std::filesystem::weakly_canonical(root, ec);
    const QByteArray key = QByteArray::fromStdString((ec ? root : canonical).string());
    return "varnel-" + QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex().left(20);
}

bool activateRunningInstance(const QString& name) {
    QLocalSocket socket;
    // The first instance listens right after taking the lock; give it a moment to get there.
    for (int attempt = 0; attempt < 10; ++attempt) {
        socket.connectToServer(name);
        if (socket.waitForConnected(2000))
            break;
        QThread::msleep(100);
    }
    if (socket.state() != QLocalSocket::ConnectedState)
        return false;
    socket.write("activate\n");
    socket.waitForBytesWritten(2000);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName("Varnel");
    QApplication::setApplicationName("Varnel");
    QApplication::setApplicationVersion(VARNEL_VERSION);

    QCommandLineParser parser;
    parser.setApplicationDescription("Collect and study the screens of mobile apps.");
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption libraryOption(
        "library", "Open the library in DIR for this run (the setting is left as it is).", "DIR");
    parser.addOption(libraryOption);
    parser.process(app);

    varnel::AppSettings settings;
    varnel::applyAppearance(settings.appearance(), settings.accent());
    const std::filesystem::path root = parser.isSet(libraryOption)
                                           ? parser.value(libraryOption).toStdString()
                                           : settings.rootFolderPath();
    std::optional<varnel::LibraryLock> lock;
    std::optional<std::string> readOnly;
    const QString name = instanceName(root);
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
    if (!lock && !readOnly && activateRunningInstance(name))
        return 0;
    if (!lock && !readOnly)
        readOnly = "another program (such as varnel-cli) is changing this library.";

    // Listen before the slow part of the start, so that a second start reaches this one at once.
    QLocalServer server;
    QLocalServer::removeServer(name);
    server.listen(name);

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
                             nextReadOnly = "another program is using this library.";
                         lock = std::move(nextLock);
                         settings.setRootFolderPath(next.string());
                         library.setReadOnly(nextReadOnly);
                         library.setRoot(next);
                         showTitle(next);
                     });
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QSize available = screen->availableSize();
        window.resize(std::min(1400, available.width() * 9 / 10),
                      std::min(960, available.height() * 9 / 10));
    }
    window.show();

    auto comeForward = [&] {
        while (QLocalSocket* peer = server.nextPendingConnection()) {
            QObject::connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
            window.showNormal();
            window.raise();
            window.activateWindow();
        }
    };
    QObject::connect(&server, &QLocalServer::newConnection, &window, comeForward);
    comeForward(); // a start that came while this one was getting ready
    return app.exec();
}
