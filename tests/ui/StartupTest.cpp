#include "app/LibraryLock.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

QProcess* startVarnel(const fs::path& library, const fs::path& home, QObject* parent) {
    auto* process = new QProcess(parent);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_CONFIG_HOME", QString::fromStdString((home / "config").string()));
    env.insert("XDG_RUNTIME_DIR", QString::fromStdString(home.string()));
    process->setProcessEnvironment(env);
    process->start(VARNEL_APP_PATH, {"--library", QString::fromStdString(library.string())});
    return process;
}

// Waits until the running app holds the library, which it takes before it shows its window.
bool heldBySomeoneElse(const fs::path& library) {
    QDeadlineTimer deadline(30000);
    while (!deadline.hasExpired()) {
        if (fs::exists(library) && !LibraryLock::acquire(library, LibraryLock::kCommandLineProgram))
            return true;
        QThread::msleep(50);
    }
    return false;
}

} // namespace

TEST(StartupTest, OneVarnelPerLibraryAndASecondStartHandsOverToTheFirst) {
    TempDir dir;
    const fs::path library = dir / "New Library";
    QObject owner;
    QProcess* first = startVarnel(library, dir.path(), &owner);
    ASSERT_TRUE(first->waitForStarted(30000));
    ASSERT_TRUE(heldBySomeoneElse(library)) << "the app creates the library and locks it";

    QProcess* second = startVarnel(library, dir.path(), &owner);
    ASSERT_TRUE(second->waitForFinished(30000));
    EXPECT_EQ(second->exitCode(), 0) << "it asked the first to come forward and left";
    EXPECT_EQ(first->state(), QProcess::Running);

    first->terminate();
    ASSERT_TRUE(first->waitForFinished(30000));
    EXPECT_TRUE(LibraryLock::acquire(library, LibraryLock::kCommandLineProgram))
        << "the lock goes with the process";
}

TEST(StartupTest, ALibraryHeldByTheCommandLineOpensReadOnlyInsteadOfWaiting) {
    TempDir dir;
    const fs::path library = dir / "Library";
    fs::create_directories(library);
    auto heldByCli = LibraryLock::acquire(library, LibraryLock::kCommandLineProgram);
    ASSERT_TRUE(heldByCli);
    QObject owner;
    QProcess* first = startVarnel(library, dir.path(), &owner);
    ASSERT_TRUE(first->waitForStarted(30000));
    // It listens for later starts once it is up: browsing the library, not stuck on a dialog.
    const QByteArray key = QByteArray::fromStdString(fs::weakly_canonical(library).string());
    const QString name =
        "varnel-" + QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex().left(20);
    QDeadlineTimer deadline(60000);
    QLocalSocket probe;
    while (probe.state() != QLocalSocket::ConnectedState && !deadline.hasExpired()) {
        probe.connectToServer(name);
        if (!probe.waitForConnected(1000))
            QThread::msleep(100);
    }
    ASSERT_EQ(probe.state(), QLocalSocket::ConnectedState);
    probe.disconnectFromServer();
    QProcess* second = startVarnel(library, dir.path(), &owner);
    ASSERT_TRUE(second->waitForFinished(60000));
    EXPECT_EQ(second->exitCode(), 0) << "it handed over to the first";
    EXPECT_EQ(first->state(), QProcess::Running);
    first->terminate();
    ASSERT_TRUE(first->waitForFinished(30000));
}

// From a terminal, or a package's check, where there is no display to open.
TEST(StartupTest, VersionAndHelpAnswerWithoutADisplay) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(name);
    auto run = [&](const QString& option) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(VARNEL_APP_PATH, {option});
        EXPECT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        return QString::fromUtf8(process.readAllStandardOutput());
    };
    EXPECT_EQ(run("--version"), "Varnel " VARNEL_VERSION "\n");
    const QString help = run("--help");
    EXPECT_TRUE(help.contains("--library <DIR>")) << help.toStdString();
    EXPECT_TRUE(help.contains("archive")) << help.toStdString();
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
