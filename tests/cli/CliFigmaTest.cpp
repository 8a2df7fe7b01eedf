// `varnel-cli figma export|link|publish` end to end, publishing to a Figma on 127.0.0.1.
#include "cli/CliFigma.h"
#include "archive/Zip.h"
#include "figma/FigmaAuth.h"
#include "library/FlowStore.h"
#include "support/CliRun.h"
#include "support/FakeFigma.h"
#include "support/MemorySecrets.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

using namespace varnel;
using namespace varnel::test;

namespace {

class CliFigmaTest : public ::testing::Test {
protected:
    CliFigmaTest() : figma("CLIKEY", "cli-token") {
        FlowStore store(root);
        folder = store.createEmptyFlow("Acme", "Sign/Up", std::nullopt, Date{}).folderName;
        writePicture(dir / "a.png", 39, 84);
        writeClip(dir / "b.mov", 64, 64);
        store.addScreens(folder, {dir / "a.png", dir / "b.mov"}, Date{});
        ScreenComment pin;
        pin.id = "p";
        pin.x = pin.y = 0.5;
        pin.text = "From the command line";
        store.setComments(folder, "01.png", std::vector{pin});
        flowId = store.meta(folder).id;
        board = figma.addBoard(figma.addPage("Flows"), flowId, "2026-11-22T09:00:00Z", 0, 0,
                               {{"01.png", 0, 0, 390, 844}});
    }
    CliResult publish(const std::string& command = "publish") {
        std::ostringstream out, err;
        const cli::FigmaAccess access{&secrets, figma.baseURL()};
        const int code =
            cli::run({"--library", root.string(), "figma", command, folder}, out, err, access);
        return {code, out.str(), err.str()};
    }
    CliResult cli(std::vector<std::string> args) { return runCli(std::move(args), root.string()); }

    TempDir dir;
    fs::path root = dir / "library";
    std::string folder, flowId, board;
    FakeFigma figma;
    MemorySecrets secrets;
};

} // namespace

TEST_F(CliFigmaTest, ExportWritesThePackageAndPrintsItsPath) {
    const auto result = cli({"figma", "export", folder});
    ASSERT_EQ(result.code, 0) << result.err;
    const fs::path zip = root / folder / "Sign-Up.figflow.zip";
    EXPECT_EQ(result.out, zip.string() + "\n");
    TempDir unpacked;
    Zip::extract(zip, unpacked.path());
    EXPECT_TRUE(fs::exists(unpacked / "flow.json"));
    EXPECT_TRUE(fs::exists(unpacked / "01.png"));
    EXPECT_FALSE(fs::exists(unpacked / "02.mov"));
    EXPECT_EQ(cli({"figma", "export", "no/such/flow"}).code, 1);
}

TEST_F(CliFigmaTest, LinkStoresTheCanonicalLinkOrRefuses) {
    const auto bad = cli({"figma", "link", folder, "https://example.com/file/ABC"});
    EXPECT_EQ(bad.code, 1);
    EXPECT_NE(bad.err.find("Not a Figma file URL"), std::string::npos);
    EXPECT_FALSE(FlowStore(root).meta(folder).figmaFileURL);

    const auto good =
        cli({"figma", "link", folder, "https://figma.com/file/CLIKEY/Flows?node-id=1-2"});
    ASSERT_EQ(good.code, 0) << good.err;
    EXPECT_EQ(good.out, "https://www.figma.com/design/CLIKEY?node-id=1:2\n");
    EXPECT_EQ(FlowStore(root).meta(folder).figmaFileURL,
              "https://www.figma.com/design/CLIKEY?node-id=1:2");
    EXPECT_EQ(cli({"figma", "link", folder}).code, 2);
    EXPECT_EQ(cli({"figma", "frobnicate", folder}).code, 2);
}

TEST_F(CliFigmaTest, PublishPrintsTheSummaryOrTheError) {
    const auto noToken = publish();
    EXPECT_EQ(noToken.code, 1);
    EXPECT_NE(noToken.err.find("Add your Figma token in Settings → Figma first"),
              std::string::npos);
    EXPECT_TRUE(figma.requests().empty());

    FigmaAuth::setToken("cli-token", secrets);
    const auto unlinked = publish();
    EXPECT_EQ(unlinked.code, 1);
    EXPECT_EQ(unlinked.out, "Check the Figma file link\n");

    ASSERT_EQ(cli({"figma", "link", folder, figma.fileLink()}).code, 0);
    const auto first = publish();
    EXPECT_EQ(first.code, 0) << first.err;
    EXPECT_EQ(first.out, "1 posted\n");
    EXPECT_EQ(figma.comments().size(), 1u);
    EXPECT_TRUE(FlowStore(root).meta(folder).figmaLastPulledAt);
    EXPECT_EQ(publish("sync").out, "Nothing to publish\n") << "sync is publish's other name";

    figma.rejectToken(401);
    const auto refused = publish();
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.out, "Figma refused the token — check Settings → Figma\n");
    EXPECT_EQ(figma.violations(), std::vector<std::string>{});
}

TEST_F(CliFigmaTest, TokenComesFromStandardInputOnly) {
    const auto token = [&](std::vector<std::string> args, const std::string& input) {
        std::istringstream in(input);
        std::ostringstream out, err;
        const cli::FigmaAccess access{&secrets, figma.baseURL(), &in};
        args.insert(args.begin(), {"figma", "token"});
        const int code = cli::run(args, out, err, access);
        return CliResult{code, out.str(), err.str()};
    };
    const auto stored = token({}, "  cli-token \nnext line\n");
    ASSERT_EQ(stored.code, 0) << stored.err;
    EXPECT_EQ(stored.out, "The Figma token is stored in the keychain.\n");
    EXPECT_EQ(secrets.items.at("pat"), "cli-token");
    EXPECT_EQ(stored.out.find("cli-token") + stored.err.find("cli-token"),
              2 * std::string::npos); // never echoed
    EXPECT_EQ(publish("sync").code, 1) << "unlinked, but the token was found";
    EXPECT_EQ(publish("sync").out, "Check the Figma file link\n");

    // Never as an argument, where any user of the machine could read it.
    EXPECT_EQ(token({"cli-token"}, "").code, 2);
    const auto empty = token({}, "\n");
    EXPECT_EQ(empty.code, 1);
    EXPECT_NE(empty.err.find("No token on standard input"), std::string::npos);
    EXPECT_EQ(secrets.items.at("pat"), "cli-token") << "a failed attempt keeps the stored token";

    EXPECT_EQ(token({"--clear"}, "").code, 0);
    EXPECT_TRUE(secrets.items.empty());
}
