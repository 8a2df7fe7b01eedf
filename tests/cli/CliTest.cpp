#include "cli/Cli.h"
#include "app/LibraryLock.h"
#include "archive/AppArchive.h"
#include "archive/Zip.h"
#include "support/CliRun.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <sstream>

#include <unistd.h>

using namespace varnel;
using namespace varnel::test;

namespace {

using Result = CliResult;

class CliTest : public ::testing::Test {
protected:
    TempDir dir;
    fs::path root = dir / "Library";

    Result cli(std::vector<std::string> args) { return runCli(std::move(args), root.string()); }
};

} // namespace

TEST_F(CliTest, CreateAddListRenumberAndDelete) {
    Result made = cli({"create-flow", "--app", "Acme", "--name", "Sign up", "--category", "Auth"});
    ASSERT_EQ(made.code, cli::kSuccess) << made.err;
    EXPECT_EQ(made.out, "acme/auth/sign-up\n");

    writeFile(dir / "a.png", pngBytes(100, 200, "a"));
    writeFile(dir / "b.mov", "clip");
    Result added = cli(
        {"add-screens", "acme/auth/sign-up", (dir / "a.png").string(), (dir / "b.mov").string()});
    ASSERT_EQ(added.code, cli::kSuccess) << added.err;
    EXPECT_EQ(added.out, "01.png\n02.mov\n");

    Result listed = cli({"list"});
    EXPECT_EQ(listed.out, "acme/auth/sign-up\tAcme\tAuth\tSign up\t2 screens\n");
    Result json = cli({"--json", "list"});
    EXPECT_EQ(Json::parse(json.out)["flows"][0]["screenCount"], 2);

    EXPECT_EQ(cli({"renumber", "acme/auth/sign-up"}).code, cli::kSuccess);
    EXPECT_EQ(cli({"check"}).code, cli::kSuccess);

    Result deleted = cli({"delete-flow", "acme/auth/sign-up"});
    EXPECT_EQ(deleted.code, cli::kSuccess) << deleted.err;
    EXPECT_FALSE(fs::exists(root / "acme"));
    EXPECT_EQ(cli({"list"}).out, "");
}

TEST_F(CliTest, NamesInEveryScriptAreShownAsTheyAre) {
    Result made =
        cli({"create-flow", "--app", "토스", "--name", "가입하기", "--category", "온보딩"});
    ASSERT_EQ(made.code, cli::kSuccess) << made.err;
    EXPECT_EQ(made.out, "토스/온보딩/가입하기\n");
    Result japanese = cli({"--json", "create-flow", "--app", "토스", "--name", "予約"});
    ASSERT_EQ(japanese.code, cli::kSuccess) << japanese.err;
    EXPECT_NE(japanese.out.find("\"folderName\": \"토스/uncategorized/予約\""), std::string::npos)
        << japanese.out;

    writeFile(dir / "a.png", pngBytes(100, 200, "a"));
    Result added = cli({"add-screens", "토스/온보딩/가입하기", (dir / "a.png").string()});
    ASSERT_EQ(added.code, cli::kSuccess) << added.err;
    EXPECT_EQ(cli({"list"}).out, "토스/온보딩/가입하기\t토스\t온보딩\t가입하기\t1 screen\n"
                                 "토스/uncategorized/予約\t토스\t\t予約\t0 screens\n");
    EXPECT_NE(cli({"--json", "list"}).out.find("\"name\": \"가입하기\""), std::string::npos);

    Result exported = cli({"export-app", "토스", (dir / "토스.varnel.zip").string()});
    ASSERT_EQ(exported.code, cli::kSuccess) << exported.err;
    EXPECT_EQ(cli({"delete-flow", "토스/온보딩/가입하기"}).code, cli::kSuccess);
    EXPECT_EQ(cli({"delete-flow", "토스/uncategorized/予約"}).code, cli::kSuccess);
    Result imported = cli({"import-app", (dir / "토스.varnel.zip").string()});
    ASSERT_EQ(imported.code, cli::kSuccess) << imported.err;
    EXPECT_EQ(imported.out, "토스/온보딩/가입하기\n토스/uncategorized/予約\n");
    EXPECT_EQ(cli({"check"}).code, cli::kSuccess);
}

TEST_F(CliTest, CheckReportsBrokenInvariantsWithItsOwnExitCode) {
    SampleLibrary sample(root);
    EXPECT_EQ(cli({"check"}).code, cli::kSuccess);
    sample.leaveGapInLogIn();
    EXPECT_EQ(cli({"check"}).code, cli::kCheckFailed) << "log-in has a gap in its numbering";
    cli({"renumber", SampleLibrary::logIn});
    Result ok = cli({"check"});
    EXPECT_EQ(ok.code, cli::kSuccess) << ok.out;

    fs::remove(root / SampleLibrary::signUp / "03.mov");
    fs::create_directories(root / "acme/onboarding/stray");
    writeFile(root / "acme/onboarding/stray/meta.json", "{}");
    Result broken = cli({"--json", "check"});
    EXPECT_EQ(broken.code, cli::kCheckFailed);
    const Json report = Json::parse(broken.out);
    EXPECT_FALSE(report["ok"].get<bool>());
    const std::string all = report["problems"].dump();
    EXPECT_NE(all.find("03.mov"), std::string::npos);
    EXPECT_NE(all.find("acme/onboarding/stray"), std::string::npos);
}

TEST_F(CliTest, CheckSeesHiddenLeftoversAndRecoverClearsThem) {
    SampleLibrary sample(root);
    // What interrupted changes of every kind leave, each holding a screen.
    const std::vector<fs::path> leftovers{
        root / "acme/onboarding/.deleting-1",      // a set-aside flow
        root / "acme/onboarding/.adopting-2",      // a flow being put together
        root / ".quillane-import-3",               // an unpacked archive
        root / ".inprogress/4",                    // a capture never saved
        root / SampleLibrary::logIn / ".renumber", // a renumbering cut short
        root / "bank/uncategorized/unlisted",      // a flow the index never heard of
    };
    for (const auto& folder : leftovers) {
        if (folder.filename() == ".renumber")
            writeFile(folder / "journal.json", R"({"after": [], "moves": []})");
        else
            writeFile(folder / "01.png", pngBytes(10, 10, folder.filename().string()));
    }
    FlowMeta unlisted = sample.store.meta(SampleLibrary::transfer);
    unlisted.id = "UNLISTED";
    unlisted.name = "Unlisted";
    writeFile(root / "bank/uncategorized/unlisted/meta.json", encodeLibraryJson(unlisted.toJson()));
    writeFile(root / "acme/onboarding/.deleting-1/meta.json",
              encodeLibraryJson(sample.store.meta(SampleLibrary::logIn).toJson()));
    writeFile(root / ".journal/5.json", R"({"flows": ["acme/onboarding/log-in"]})");
    // An assembly whose note sends its files out of the library: they stay where they are.
    writeFile(root / "acme/onboarding/.adopting-2/.source.json",
              Json{{"source", dir.path().string()}}.dump());
    writeFile(root / ".index.json.6.tmp", "cut short");

    Result checked = cli({"check"});
    EXPECT_EQ(checked.code, cli::kCheckFailed);
    for (const auto& folder : leftovers)
        EXPECT_NE(checked.out.find(folder.lexically_relative(root).string()), std::string::npos)
            << folder << " is not reported in\n"
            << checked.out;
    for (const char* file : {".journal/5.json", ".index.json.6.tmp"})
        EXPECT_NE(checked.out.find(file), std::string::npos) << file;

    Result recovered = cli({"recover"});
    EXPECT_EQ(recovered.code, cli::kFailed) << "the assembly's source is outside: kept, reported";
    EXPECT_NE(recovered.err.find(".adopting-2"), std::string::npos) << recovered.err;
    EXPECT_NE(recovered.out.find("Listed the flow “Unlisted”"), std::string::npos) << recovered.out;
    EXPECT_TRUE(fs::exists(root / "acme/onboarding/.adopting-2/01.png"));
    EXPECT_FALSE(fs::exists(dir / "01.png"));
    fs::remove_all(root / "acme/onboarding/.adopting-2");
    Result again = cli({"recover"});
    EXPECT_EQ(again.code, cli::kSuccess) << again.err;
    Result clean = cli({"check"});
    EXPECT_EQ(clean.code, cli::kSuccess) << clean.out;
    EXPECT_EQ(cli({"list"}).out.find("unlisted") != std::string::npos, true);
}

TEST_F(CliTest, ErrorsGoToStderrWithTheSystemsMessages) {
    SampleLibrary sample(root);
    Result blank = cli({"create-flow", "--app", "Acme", "--name", "  "});
    EXPECT_EQ(blank.code, cli::kFailed);
    EXPECT_EQ(blank.err, "varnel-cli: The flow needs a name.\n");

    Result unsafe = cli({"delete-flow", "../outside"});
    EXPECT_EQ(unsafe.code, cli::kFailed);
    EXPECT_NE(unsafe.err.find("can’t be used"), std::string::npos);

    Result missing = cli({"delete-flow", "acme/onboarding/nothing"});
    EXPECT_EQ(missing.code, cli::kFailed);
    EXPECT_NE(missing.err.find("There is no flow"), std::string::npos);

    writeFile(root / "index.json", "garbage");
    Result unreadable = cli({"list"});
    EXPECT_EQ(unreadable.code, cli::kFailed);
    EXPECT_NE(unreadable.err.find("index.json"), std::string::npos);
}

TEST_F(CliTest, ExportAndImportApplications) {
    SampleLibrary sample(root);
    const std::string zip = (dir / "Acme.varnel.zip").string();
    Result exported = cli({"export-app", "Acme", zip});
    ASSERT_EQ(exported.code, cli::kSuccess) << exported.err;
    EXPECT_EQ(exported.out, zip + "\t2 flows\n");
    Result nothing = cli({"export-app", "Nobody", zip});
    EXPECT_EQ(nothing.code, cli::kFailed);
    EXPECT_NE(nothing.err.find("Nothing to export"), std::string::npos);

    Result asked = cli({"import-app", zip});
    EXPECT_EQ(asked.code, cli::kFailed);
    EXPECT_NE(asked.err.find("2 flows already exist in your library"), std::string::npos);

    Result duplicated = cli({"--json", "import-app", zip, "--duplicate"});
    ASSERT_EQ(duplicated.code, cli::kSuccess) << duplicated.err;
    EXPECT_EQ(Json::parse(duplicated.out)["application"], "Acme copy");
    Result replaced = cli({"import-app", zip, "--replace"});
    EXPECT_EQ(replaced.code, cli::kSuccess) << replaced.err;
    EXPECT_EQ(cli({"check"}).code, cli::kSuccess);
    EXPECT_EQ(cli({"import-app", zip, "--replace", "--duplicate"}).code, cli::kUsage);

    writeFile(dir / "plain.zip", "not a zip");
    Result broken = cli({"import-app", (dir / "plain.zip").string()});
    EXPECT_EQ(broken.err,
              "varnel-cli: Couldn’t import the archive: The file couldn’t be unzipped.\n");
}

TEST_F(CliTest, ExportReplacesOnlyARegularFileAtItsDestination) {
    SampleLibrary sample(root);
    const fs::path folder = dir / "dest";
    writeFile(folder / "keep.txt", "precious");
    const fs::path elsewhere = dir / "elsewhere.txt";
    writeFile(elsewhere, "linked");
    const fs::path link = dir / "link.varnel.zip";
    fs::create_symlink(elsewhere, link);
    for (const fs::path& taken : {folder, link}) {
        SCOPED_TRACE(taken.string());
        Result refused = cli({"export-app", "Acme", taken.string()});
        EXPECT_EQ(refused.code, cli::kFailed);
        EXPECT_NE(refused.err.find("The archive couldn’t be created. “" + taken.string() + "” is"),
                  std::string::npos)
            << refused.err;
    }
    EXPECT_EQ(readFile(folder / "keep.txt"), "precious");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(readFile(elsewhere), "linked");
    EXPECT_EQ(FileOps::list(dir.path()).size(), 4u) << "no temporary zip is left beside them";

    const fs::path file = dir / "old.varnel.zip";
    writeFile(file, "an older export");
    Result replaced = cli({"export-app", "Acme", file.string()});
    ASSERT_EQ(replaced.code, cli::kSuccess) << replaced.err;
    EXPECT_EQ(readFile(file).substr(0, 2), "PK");
}

TEST_F(CliTest, ChangesWaitForTheAppToLetGoOfTheLibrary) {
    SampleLibrary sample(root);
    const std::string process = "(process " + std::to_string(::getpid()) + ")";
    {
        auto held = LibraryLock::acquire(root, LibraryLock::kWindowProgram);
        ASSERT_TRUE(held);
        EXPECT_FALSE(LibraryLock::acquire(root, LibraryLock::kCommandLineProgram))
            << "one holder at a time";
        Result refused = cli({"create-flow", "--app", "A", "--name", "B"});
        EXPECT_EQ(refused.code, cli::kFailed);
        EXPECT_NE(refused.err.find("is open in Varnel " + process +
                                   "; make the change there, or quit Varnel first."),
                  std::string::npos)
            << refused.err;
        EXPECT_EQ(cli({"list"}).code, cli::kSuccess) << "reading needs no lock";
        EXPECT_EQ(cli({"check"}).code, cli::kSuccess);
    }
    {
        // Another command line, not the window: quitting Varnel wouldn't help.
        auto held = LibraryLock::acquire(root, LibraryLock::kCommandLineProgram);
        ASSERT_TRUE(held);
        Result refused = cli({"delete-flow", SampleLibrary::transfer});
        EXPECT_EQ(refused.code, cli::kFailed);
        EXPECT_NE(refused.err.find("is being changed by another varnel-cli " + process +
                                   "; try again once it is done."),
                  std::string::npos)
            << refused.err;
        EXPECT_EQ(refused.err.find("Varnel first"), std::string::npos) << refused.err;
        EXPECT_TRUE(fs::exists(root / SampleLibrary::transfer));
    }
    EXPECT_EQ(cli({"create-flow", "--app", "A", "--name", "B"}).code, cli::kSuccess);
    EXPECT_TRUE(LibraryLock::acquire(root, LibraryLock::kWindowProgram))
        << "released when the command ends";
}

TEST_F(CliTest, ExportWithoutOriginalsMakesACopyToShare) {
    SampleLibrary sample(root);
    const fs::path zip = dir / "Acme shared.varnel.zip";
    Result exported = cli({"export-app", "--without-originals", "Acme", zip.string()});
    ASSERT_EQ(exported.code, cli::kSuccess) << exported.err;
    EXPECT_EQ(exported.out, zip.string() + "\t2 flows\n");
    const fs::path unpacked = dir / "unpacked";
    fs::create_directories(unpacked);
    Zip::extract(zip, unpacked);
    const fs::path signUp = unpacked / AppArchive::kPayloadFolder / SampleLibrary::signUp;
    EXPECT_EQ(FileOps::list(signUp),
              (std::vector<std::string>{"01.png", "02.png", "03.mov", "meta.json", "ocr.json"}));
    const Json edited = parseLibraryJson(readFile(signUp / "meta.json")).at("screens").at(1);
    EXPECT_FALSE(edited.contains("redactions") || edited.contains("patches")) << edited.dump();
    EXPECT_TRUE(fs::exists(root / SampleLibrary::signUp / "02.orig.png")) << "the library keeps it";

    Result help = cli({"--help"});
    EXPECT_NE(help.out.find("export-app NAME FILE [--without-originals]"), std::string::npos);
}

// A linked screen would be missing from an archive that says it holds the flow.
TEST_F(CliTest, ExportRefusesALinkedScreenByName) {
    SampleLibrary sample(root);
    const fs::path screen = root / SampleLibrary::logIn / "02.png";
    const fs::path outside = dir / "outside.png";
    fs::rename(screen, outside);
    fs::create_symlink(outside, screen);
    const fs::path zip = dir / "Acme.varnel.zip";
    for (const std::vector<std::string>& extra :
         {std::vector<std::string>{}, std::vector<std::string>{"--without-originals"}}) {
        std::vector<std::string> args{"export-app", "Acme", zip.string()};
        args.insert(args.end(), extra.begin(), extra.end());
        Result refused = cli(args);
        EXPECT_EQ(refused.code, cli::kFailed);
        EXPECT_NE(refused.err.find("Couldn’t export “Acme”: The archive couldn’t be created. “" +
                                   screen.string() + "” is a symbolic link."),
                  std::string::npos)
            << refused.err;
        EXPECT_EQ(refused.out, "");
        EXPECT_FALSE(fs::exists(zip));
    }
}

TEST_F(CliTest, ImportRefusesAnArchiveWithTwoFlowsOfOneId) {
    SampleLibrary sample(root);
    const FlowMeta meta = sample.store.meta(SampleLibrary::transfer);
    const fs::path zip = dir / "twice.varnel.zip";
    {
        Zip::Writer writer(zip);
        const std::string base = std::string(AppArchive::kPayloadFolder) + "/";
        const AppArchive::Manifest manifest{
            1, "Bank", {meta.summary("bank/one/transfer"), meta.summary("bank/two/transfer")}};
        writer.addBytes(base + std::string(AppArchive::kManifestFile),
                        encodeLibraryJson(manifest.toJson()), true);
        for (const char* folder : {"bank/one/transfer", "bank/two/transfer"}) {
            writer.addBytes(base + folder + "/meta.json", encodeLibraryJson(meta.toJson()), true);
            writer.addFile(base + folder + "/01.png", root / SampleLibrary::transfer / "01.png",
                           false);
        }
        writer.close();
    }
    ASSERT_EQ(cli({"recover"}).code, cli::kSuccess) << "settled as any change would";
    const auto before = treeSnapshot(root);
    for (const char* how : {"--replace", "--duplicate"}) {
        Result refused = cli({"import-app", zip.string(), how});
        EXPECT_EQ(refused.code, cli::kFailed) << how;
        EXPECT_NE(refused.err.find("This archive can’t be imported. Its flows “Transfer” "
                                   "(bank/one/transfer) and “Transfer” (bank/two/transfer) have "
                                   "the same id"),
                  std::string::npos)
            << refused.err;
        EXPECT_EQ(treeSnapshot(root), before) << how;
    }
}

TEST_F(CliTest, UsageErrorsAndHelp) {
    EXPECT_EQ(cli({}).code, cli::kUsage);
    EXPECT_EQ(cli({"frobnicate"}).code, cli::kUsage);
    EXPECT_EQ(cli({"create-flow", "--app"}).code, cli::kUsage);
    EXPECT_EQ(cli({"create-flow", "--name", "x"}).code, cli::kUsage);
    EXPECT_EQ(cli({"renumber"}).code, cli::kUsage);
    EXPECT_EQ(cli({"add-screens", "a/b/c"}).code, cli::kUsage);
    Result help = cli({"--help"});
    EXPECT_EQ(help.code, cli::kSuccess);
    EXPECT_NE(help.out.find("Exit status"), std::string::npos);
}
