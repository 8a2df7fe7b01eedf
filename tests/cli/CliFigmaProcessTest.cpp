// The installed command as a user runs it on a machine without the app's window: the token
// piped into the desktop keychain, and a sync against a Figma stand-in named by
// VARNEL_FIGMA_API. Runs inside a D-Bus session and keyring of its own.
#include "library/FlowStore.h"
#include "support/FakeFigma.h"
#include "support/TestLibrary.h"

#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

struct Outcome {
    int code;
    std::string out;
    std::string err;
};

Outcome varnelCli(const QStringList& args, const std::string& input = {},
                  const std::optional<std::string>& api = std::nullopt) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("VARNEL_FIGMA_API");
    if (api)
        env.insert("VARNEL_FIGMA_API", QString::fromStdString(*api));
    process.setProcessEnvironment(env);
    process.start(VARNEL_CLI, args);
    process.write(input.data(), static_cast<qint64>(input.size()));
    process.closeWriteChannel();
    process.waitForFinished(60000);
    return {process.exitCode(), process.readAllStandardOutput().toStdString(),
            process.readAllStandardError().toStdString()};
}

TEST(CliFigmaProcessTest, SyncsHeadlessWithTheTokenFromStandardInput) {
    FakeFigma figma("HEADLESS", "piped-token");
    TempDir dir;
    const fs::path root = dir / "library";
    std::string folder;
    {
        FlowStore store(root);
        folder = store.createEmptyFlow("Acme", "Login", std::nullopt, Date{}).folderName;
        writePicture(dir / "a.png", 39, 84);
        store.addScreens(folder, {dir / "a.png"}, Date{});
        ScreenComment pin;
        pin.id = "p";
        pin.x = pin.y = 0.5;
        pin.text = "Sent from a server";
        store.setComments(folder, "01.png", std::vector{pin});
        store.setFigmaFileURL(folder, figma.fileLink());
        figma.addBoard(figma.addPage("Flows"), store.meta(folder).id, "2026-11-22T09:00:00Z", 0, 0,
                       {{"01.png", 0, 0, 390, 844}});
    }
    const QStringList sync{"--library", QString::fromStdString(root.string()), "figma", "sync",
                           QString::fromStdString(folder)};

    const Outcome stored = varnelCli({"figma", "token"}, "piped-token\n");
    ASSERT_EQ(stored.code, 0) << stored.err;
    EXPECT_EQ(stored.out.find("piped-token"), std::string::npos);

    const Outcome refused = varnelCli(sync, {}, "http://example.com");
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.err.find("VARNEL_FIGMA_API"), std::string::npos) << refused.err;
    EXPECT_TRUE(figma.requests().empty());

    const Outcome synced = varnelCli(sync, {}, figma.baseURL());
    ASSERT_EQ(synced.code, 0) << synced.err;
    EXPECT_EQ(synced.out, "1 posted\n");
    ASSERT_EQ(figma.comments().size(), 1u);
    EXPECT_EQ(figma.requests().front().token, "piped-token");

    ASSERT_EQ(varnelCli({"figma", "token", "--clear"}).code, 0);
    const Outcome cleared = varnelCli(sync, {}, figma.baseURL());
    EXPECT_EQ(cleared.code, 1);
    EXPECT_NE(cleared.err.find("Add your Figma token"), std::string::npos);
    EXPECT_EQ(figma.violations(), std::vector<std::string>{});
}

} // namespace
