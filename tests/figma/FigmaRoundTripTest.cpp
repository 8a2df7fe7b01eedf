// A flow goes to Figma and back with nothing but what Varnel ships: the package from the
// command line, imported by the plugin that `varnel-cli figma plugin` saves (run under Node
// against a stand-in for Figma), the resulting document served by a Figma on 127.0.0.1, and
// the flow linked and synced: every pin lands on its screen of the board.
#include "archive/Zip.h"
#include "cli/Cli.h"
#include "cli/CliFigma.h"
#include "figma/FigmaAuth.h"
#include "library/FlowStore.h"
#include "support/CliRun.h"
#include "support/FakeFigma.h"
#include "support/MemorySecrets.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <QProcess>

#include <sstream>

using namespace varnel;
using namespace varnel::test;
using Json = nlohmann::json;

namespace {

// The nodes of a REST document, depth first.
void walk(const Json& node, std::vector<const Json*>& out) {
    out.push_back(&node);
    if (node.contains("children"))
        for (const auto& child : node["children"])
            walk(child, out);
}

std::string tag(const Json& node, const char* key) {
    const auto data = node.find("sharedPluginData");
    if (data == node.end() || !data->contains("varnel") || !(*data)["varnel"].contains(key))
        return {};
    return (*data)["varnel"][key];
}

ScreenComment pin(const std::string& id, double x, double y, const std::string& text) {
    ScreenComment comment;
    comment.id = id;
    comment.x = x;
    comment.y = y;
    comment.text = text;
    return comment;
}

} // namespace

TEST(FigmaRoundTripTest, AFlowExportedImportedLinkedAndSyncedHasEveryPinOnItsScreen) {
    TempDir dir;
    const fs::path root = dir / "library";
    FlowStore store(root);
    const std::string folder =
        store.createEmptyFlow("Acme", "Sign up", std::string("Onboarding"), Date{}).folderName;
    writePicture(dir / "a.png", 39, 84, 0xff3366ccu);
    writeClip(dir / "b.mov", 64, 64);
    writePicture(dir / "c.png", 39, 84, 0xffcc6633u);
    store.addScreens(folder, {dir / "a.png", dir / "b.mov", dir / "c.png"}, Date{});
    store.setComments(folder, "01.png", std::vector{pin("p1", 0.25, 0.5, "Too much padding")});
    store.setComments(folder, "03.png", std::vector{pin("p3", 0.9, 0.1, "Use the brand colour")});
    const std::string flowId = store.meta(folder).id;

    // What Varnel ships: the package and the plugin.
    const auto exported = runCli({"figma", "export", folder}, root.string());
    ASSERT_EQ(exported.code, 0) << exported.err;
    const std::string package = exported.out.substr(0, exported.out.size() - 1);
    const auto saved = runCli({"figma", "plugin", (dir / "downloads").string()});
    ASSERT_EQ(saved.code, 0) << saved.err;
    const fs::path pluginZip = saved.out.substr(0, saved.out.size() - 1);
    EXPECT_EQ(pluginZip.filename(), "Varnel-figma-plugin-v" VARNEL_VERSION ".zip");
    Zip::extract(pluginZip, dir / "plugin");
    const fs::path plugin = dir / "plugin" / "varnel-figma-plugin";
    const Json manifest = Json::parse(readFile(plugin / "manifest.json"));
    EXPECT_EQ(manifest["name"], "Varnel Import");
    EXPECT_EQ(manifest["editorType"], Json::array({"figma"}));
    EXPECT_EQ(manifest["networkAccess"]["allowedDomains"], Json::array({"none"}));
    EXPECT_TRUE(fs::exists(plugin / manifest["main"].get<std::string>()));
    EXPECT_TRUE(fs::exists(plugin / manifest["ui"].get<std::string>()));

    // The user drops the package on the plugin in Figma.
    QProcess node;
    node.start(VARNEL_NODE, {VARNEL_PLUGIN_IMPORTER, QString::fromStdString(package),
                             QString::fromStdString((dir / "document.json").string()),
                             QString::fromStdString(plugin.string())});
    ASSERT_TRUE(node.waitForFinished(60000));
    ASSERT_EQ(node.exitCode(), 0) << node.readAllStandardError().toStdString();
    const Json document = Json::parse(readFile(dir / "document.json"));

    // Figma serves that document; the flow is linked to it and synced.
    FakeFigma figma("ROUNDTRIP", "rt-token");
    figma.setDocument(document);
    MemorySecrets secrets;
    FigmaAuth::setToken("rt-token", secrets);
    ASSERT_EQ(runCli({"figma", "link", folder, figma.fileLink()}, root.string()).code, 0);
    std::ostringstream out, err;
    const cli::FigmaAccess access{&secrets, figma.baseURL()};
    const int code =
        cli::run({"--library", root.string(), "figma", "sync", folder}, out, err, access);
    ASSERT_EQ(code, 0) << err.str();
    EXPECT_EQ(out.str(), "2 posted\n");
    EXPECT_EQ(figma.violations(), std::vector<std::string>{});

    // The board the plugin made is the one the comments went to, each at its pin.
    std::vector<const Json*> nodes;
    walk(document, nodes);
    const Json* board = nullptr;
    std::map<std::string, Json> screens;
    for (const Json* node : nodes) {
        if (tag(*node, "flowId") == flowId)
            board = node;
        if (const auto file = tag(*node, "file"); !file.empty())
            screens[file] = (*node)["absoluteBoundingBox"];
    }
    ASSERT_TRUE(board);
    EXPECT_EQ(screens.size(), 2u) << "the clip is not on the board";
    const Json& origin = (*board)["absoluteBoundingBox"];
    const std::map<std::string, std::tuple<std::string, double, double>> expected{
        {"Too much padding", {"01.png", 0.25, 0.5}},
        {"Use the brand colour", {"03.png", 0.9, 0.1}}};
    const auto comments = figma.comments();
    ASSERT_EQ(comments.size(), 2u);
    for (const auto& comment : comments) {
        const auto& [file, px, py] = expected.at(comment["message"]);
        const Json& box = screens.at(file);
        const Json& meta = comment["client_meta"];
        EXPECT_EQ(meta["node_id"], (*board)["id"]);
        EXPECT_NEAR(meta["node_offset"]["x"].get<double>(),
                    box["x"].get<double>() + px * box["width"].get<double>() -
                        origin["x"].get<double>(),
                    0.01)
            << file;
        EXPECT_NEAR(meta["node_offset"]["y"].get<double>(),
                    box["y"].get<double>() + py * box["height"].get<double>() -
                        origin["y"].get<double>(),
                    0.01)
            << file;
    }
}
