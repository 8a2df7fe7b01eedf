#include "cli/Cli.h"
#include "cli/CliCapture.h"
#include "cli/CliEditing.h"
#include "cli/CliFigma.h"
#include "cli/CliReading.h"
#include "cli/CliSupport.h"
#include "cli/CliText.h"

#include "app/AppSettings.h"
#include "app/LibraryLock.h"
#include "archive/AppArchive.h"
#include "archive/ArchiveImport.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"
#include "library/Text.h"

#include <functional>
#include <map>
#include <optional>
#include <ostream>

namespace varnel::cli {

namespace {

Json summaryJson(const FlowSummary& s) {
    return s.toJson();
}

int createFlow(Invocation& inv, FlowStore& store, std::ostream& out) {
    auto opts = options(inv.arguments, {"--app", "--name", "--category"});
    expectCount(inv, 0, 0);
    if (!opts.contains("--app") || !opts.contains("--name"))
        throw UsageError("create-flow needs --app and --name");
    std::optional<std::string> category;
    if (opts.contains("--category"))
        category = opts["--category"];
    const FlowSummary s =
        store.createEmptyFlow(opts["--app"], opts["--name"], category, Date::now());
    if (inv.json)
        out << encodeLibraryJson(summaryJson(s));
    else
        out << s.folderName << "\n";
    return kSuccess;
}

int deleteFlow(const Invocation& inv, FlowStore& store, std::ostream&) {
    expectCount(inv, 1, 1);
    const std::string& folder = inv.arguments[0];
    if (!store.readIndex().findFolder(folder) && !store.hasMeta(folder))
        throw FlowNotFoundError(folder);
    store.deleteFlow(folder);
    return kSuccess;
}

int addScreens(const Invocation& inv, FlowStore& store, std::ostream& out) {
    if (inv.arguments.size() < 2)
        throw UsageError("add-screens needs a flow folder and at least one file");
    std::vector<fs::path> files(inv.arguments.begin() + 1, inv.arguments.end());
    const auto names = store.addScreens(inv.arguments[0], files, Date::now());
    if (inv.json) {
        out << encodeLibraryJson(Json(names));
    } else {
        for (const auto& n : names)
            out << n << "\n";
    }
    return kSuccess;
}

int renumber(const Invocation& inv, FlowStore& store, std::ostream& out) {
    expectCount(inv, 1, 1);
    const ThumbEdits edits = store.renumberScreens(inv.arguments[0]);
    if (inv.json) {
        Json renames = Json::array();
        for (const auto& [from, to] : edits.renames)
            renames.push_back(Json{{"from", from.filename}, {"to", to.filename}});
        out << encodeLibraryJson(renames);
    } else {
        for (const auto& [from, to] : edits.renames)
            out << from.filename << " -> " << to.filename << "\n";
    }
    return kSuccess;
}

int exportApp(Invocation& inv, FlowStore& store, std::ostream& out) {
    const bool withoutOriginals = std::erase(inv.arguments, "--without-originals") > 0;
    expectCount(inv, 2, 2);
    const std::string& name = inv.arguments[0];
    std::size_t flows = 0;
    try {
        flows = AppArchive::exportApplication(name, store, store.readIndex(), inv.arguments[1],
                                              withoutOriginals
                                                  ? AppArchive::ExportContent::withoutOriginals
                                                  : AppArchive::ExportContent::everything);
    } catch (const std::exception& e) {
        throw LibraryError("Couldn’t export “" + name + "”: " + e.what());
    }
    if (flows == 0)
        throw LibraryError("Nothing to export: the library has no application “" + name + "”.");
    if (inv.json)
        out << encodeLibraryJson(Json{{"file", inv.arguments[1]}, {"flows", flows}});
    else
        out << inv.arguments[1] << "\t" << flows << (flows == 1 ? " flow" : " flows") << "\n";
    return kSuccess;
}

int importApp(Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err) {
    const bool replace = std::erase(inv.arguments, "--replace") > 0;
    const bool duplicate = std::erase(inv.arguments, "--duplicate") > 0;
    expectCount(inv, 1, 1);
    if (replace && duplicate)
        throw UsageError("choose one of --replace and --duplicate");
    try {
        FileOps::createDirectory(store.root(), true);
        const auto extracted = AppArchive::extract(inv.arguments[0], store.root(), true);
        struct CleanupAtExit {
            const AppArchive::Extracted& extracted;
            ~CleanupAtExit() { extracted.cleanup(); }
        } cleanup{extracted};
        const std::size_t conflicts = countConflicts(store, extracted);
        if (conflicts > 0 && !replace && !duplicate)
            throw LibraryError(AppArchive::conflictQuestion(conflicts) +
                               ". Run again with --replace to overwrite them with the imported "
                               "versions, or --duplicate to import everything as a new "
                               "application.");
        const ImportResult result = importExtracted(store, extracted,
                                                    duplicate ? ImportConflictResolution::duplicate
                                                              : ImportConflictResolution::replace);
        for (const auto& why : result.skipped)
            err << "varnel-cli: skipped " << why << "\n";
        if (inv.json) {
            out << encodeLibraryJson(Json{{"application", result.application},
                                          {"folders", result.folders},
                                          {"skipped", result.skipped}});
        } else {
            for (const auto& folder : result.folders)
                out << folder << "\n";
        }
        return result.folders.empty() && !result.skipped.empty() ? kFailed : kSuccess;
    } catch (const std::exception& e) {
        throw LibraryError(std::string("Couldn’t import the archive: ") + e.what());
    }
}

int recover(const Invocation& inv, FlowStore& store, std::ostream& out, std::ostream& err) {
    expectCount(inv, 0, 0);
    const RecoveryReport report = store.recover();
    const auto repaired = report.repairedLines();
    const auto unresolved = report.unresolvedLines();
    if (inv.json) {
        out << encodeLibraryJson(Json{{"repaired", repaired}, {"problems", unresolved}});
    } else {
        if (repaired.empty() && unresolved.empty())
            out << "Nothing to repair in " << store.root().string() << ".\n";
        for (const auto& line : repaired)
            out << line << "\n";
    }
    for (const auto& line : unresolved)
        err << "varnel-cli: " << line << "\n";
    return unresolved.empty() ? kSuccess : kFailed;
}

bool changesLibrary(const Invocation& inv) {
    const std::string& command = inv.command;
    if (command == "figma" && !inv.arguments.empty() &&
        (inv.arguments[0] == "token" || inv.arguments[0] == "plugin"))
        return false; // the keychain's or another folder's, not the library's
    return command != "list" && command != "check" && command != "export-app" &&
           command != "sources" && command != "search";
}

} // namespace

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    return run(args, out, err, FigmaAccess{});
}

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        const FigmaAccess& figmaAccess) {
    if (auto handled = runReading(args, out, err))
        return *handled;
    return guarded(err, [&] {
        Invocation inv = parse(args);
        const std::string root = inv.library ? *inv.library : AppSettings().rootFolderPath();
        FlowStore store{fs::path(root)};
        const std::map<std::string, std::function<int()>> commands{
            {"create-flow", [&] { return createFlow(inv, store, out); }},
            {"delete-flow", [&] { return deleteFlow(inv, store, out); }},
            {"add-screens", [&] { return addScreens(inv, store, out); }},
            {"renumber", [&] { return renumber(inv, store, out); }},
            {"recover", [&] { return recover(inv, store, out, err); }},
            {"export-app", [&] { return exportApp(inv, store, out); }},
            {"import-app", [&] { return importApp(inv, store, out, err); }},
            {"sources", [&] { return sources(inv, out); }},
            {"capture", [&] { return capture(inv, store, out, err); }},
            {"redact", [&] { return redact(inv, store, out, err); }},
            {"revert", [&] { return revert(inv, store, out); }},
            {"ocr", [&] { return ocr(inv, store, out, err); }},
            {"search", [&] { return search(inv, store, out); }},
            {"translate", [&] { return translate(inv, store, out, err); }},
            {"figma", [&] { return figma(inv, store, figmaAccess, out); }},
        };
        auto command = commands.find(inv.command);
        if (command == commands.end())
            throw UsageError("unknown command “" + inv.command + "”");
        std::optional<LibraryLock> lock;
        if (changesLibrary(inv)) {
            FileOps::createDirectory(store.root(), true);
            lock = lockForChange(store.root());
            // A change starts from a library whose interrupted changes are settled, as the app
            // does when it opens it.
            if (inv.command != "recover") {
                const RecoveryReport report = store.recover();
                for (const auto& line : report.repairedLines())
                    err << "varnel-cli: repaired: " << line << "\n";
            }
        }
        return command->second();
    });
}

} // namespace varnel::cli
