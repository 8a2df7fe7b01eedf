#include "cli/Cli.h"
#include "cli/CliCapture.h"
#include "cli/CliEditing.h"
#include "cli/CliFigma.h"
#include "cli/CliSupport.h"
#include "cli/CliText.h"

#include "app/AppSettings.h"
#include "app/LibraryLock.h"
#include "archive/AppArchive.h"
#include "archive/ArchiveImport.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"
#include "library/LibraryCheck.h"
#include "library/Text.h"

#include <functional>
#include <map>
#include <optional>
#include <ostream>

namespace varnel::cli {

Invocation parse(const std::vector<std::string>& args) {
    Invocation inv;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--library") {
            if (++i == args.size())
                throw UsageError("--library needs a folder");
            inv.library = args[i];
        } else if (a.starts_with("--library=")) {
            inv.library = a.substr(10);
        } else if (a == "--json") {
            inv.json = true;
        } else if (inv.command.empty()) {
            inv.command = a;
        } else {
            inv.arguments.push_back(a);
        }
    }
    return inv;
}

// Pulls "--name VALUE" pairs out of the arguments.
std::map<std::string, std::string> options(std::vector<std::string>& arguments,
                                           std::initializer_list<std::string> names) {
    std::map<std::string, std::string> found;
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& a = arguments[i];
        if (std::find(names.begin(), names.end(), a) == names.end()) {
            rest.push_back(a);
            continue;
        }
        if (++i == arguments.size())
            throw UsageError(a + " needs a value");
        found[a] = arguments[i];
    }
    arguments = rest;
    return found;
}

namespace {

constexpr const char* kHelp = R"(Usage: varnel-cli [--library DIR] [--json] COMMAND [ARGS]

Works on a Varnel library without the app: the library is DIR, or else the one chosen in
Varnel's settings.

Commands:
  list                                        the flows of the library
  create-flow --app A --name N [--category C] make an empty flow; prints its folder name
  delete-flow FOLDER                          delete a flow (FOLDER as `list` shows it)
  add-screens FOLDER FILE...                  copy PNG/MOV files into a flow as new screens
  renumber FOLDER                             renumber a flow's screen files 1 to N
  check                                       verify the library; prints what is broken
  recover                                     repair what interrupted changes left behind (as
                                              Varnel does when it opens the library); prints
                                              what it repaired
  export-app NAME FILE                        write application NAME as an archive (.varnel.zip)
  import-app FILE [--replace|--duplicate]     import an application archive; when some of its
                                              flows are already in the library, say which way
  sources [--include-simulator]               the capture sources (cameras, emulator windows)
  capture --source ID [--stills N] [--interval SECONDS] [--clip SECONDS]
          --app A --name N [--category C]     capture a flow from a source; prints its folder
  capture --source ID ... --append FOLDER     add the captures to an existing flow
  redact FOLDER FILE --zone rect|ellipse:X,Y,W,H ... [--preset light|dark]
                                              blur zones (normalized, from the top-left) baked
                                              into a still or clip; they replace its zones
  revert FOLDER FILE                          discard a screen's edits, restore its original
  ocr [FOLDER]                                read the text of the still screens that changed
                                              since they were last read (all flows, or one)
  search QUERY [--media images|videos]        the flows and screens whose name, category or
                                              text holds QUERY, as the gallery shows them
  translate FOLDER [FILE] --to LANG           each recognized line and its translation (Apertium
                                              on this computer, or --server URL: a
                                              LibreTranslate server), stored for next time
  figma export FOLDER                         write the package for the Figma import plugin;
                                              prints its path
  figma link FOLDER URL                       link a flow to the Figma file it was imported into
  figma sync FOLDER                           send the flow's comment pins to the linked file
                                              and pull its threads back (token from Settings);
                                              also named `figma publish`; the API is
                                              VARNEL_FIGMA_API when it is set
  figma token [--clear]                       store the Figma token read from standard input in
                                              the keychain, or remove it
  figma plugin DIR                            save the Varnel Import plugin for Figma (a zip) in
                                              DIR; prints its path

Options:
  --library DIR   the library folder
  --json          machine-readable output
  --help          this text

Exit status:
  0  success
  1  the operation failed (the reason is on stderr)
  2  the command line is wrong
  3  check found problems
)";

void expectCount(const Invocation& inv, std::size_t min, std::size_t max) {
    if (inv.arguments.size() < min || inv.arguments.size() > max)
        throw UsageError("wrong number of arguments for " + inv.command);
}

Json summaryJson(const FlowSummary& s) {
    return s.toJson();
}

int list(const Invocation& inv, FlowStore& store, std::ostream& out) {
    expectCount(inv, 0, 0);
    const LibraryIndex index = store.readIndex();
    if (inv.json) {
        out << encodeLibraryJson(index.toJson());
        return kSuccess;
    }
    for (const auto& s : index.flows) {
        out << s.folderName << "\t" << s.application.value_or("") << "\t"
            << s.categoryL1.value_or("") << "\t" << s.name << "\t" << s.screenCount
            << (s.screenCount == 1 ? " screen" : " screens") << "\n";
    }
    return kSuccess;
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

int check(const Invocation& inv, FlowStore& store, std::ostream& out) {
    expectCount(inv, 0, 0);
    const auto problems = checkLibrary(store);
    if (inv.json) {
        out << encodeLibraryJson(Json{{"ok", problems.empty()}, {"problems", problems}});
    } else if (problems.empty()) {
        out << "The library at " << store.root().string() << " is consistent.\n";
    } else {
        for (const auto& p : problems)
            out << p << "\n";
    }
    return problems.empty() ? kSuccess : kCheckFailed;
}

int exportApp(const Invocation& inv, FlowStore& store, std::ostream& out) {
    expectCount(inv, 2, 2);
    const std::string& name = inv.arguments[0];
    std::size_t flows = 0;
    try {
        flows = AppArchive::exportApplication(name, store, store.readIndex(), inv.arguments[1]);
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
    Invocation inv;
    try {
        if (std::find(args.begin(), args.end(), "--help") != args.end() ||
            std::find(args.begin(), args.end(), "-h") != args.end()) {
            out << kHelp;
            return kSuccess;
        }
        inv = parse(args);
        if (inv.command.empty() || inv.command == "help") {
            (inv.command.empty() ? err : out) << kHelp;
            return inv.command.empty() ? kUsage : kSuccess;
        }
        const std::string root = inv.library ? *inv.library : AppSettings().rootFolderPath();
        FlowStore store{fs::path(root)};
        const std::map<std::string, std::function<int()>> commands{
            {"list", [&] { return list(inv, store, out); }},
            {"create-flow", [&] { return createFlow(inv, store, out); }},
            {"delete-flow", [&] { return deleteFlow(inv, store, out); }},
            {"add-screens", [&] { return addScreens(inv, store, out); }},
            {"renumber", [&] { return renumber(inv, store, out); }},
            {"check", [&] { return check(inv, store, out); }},
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
            lock = LibraryLock::acquire(store.root());
            if (!lock)
                throw LibraryError("The library at " + store.root().string() +
                                   " is open in Varnel; make the change there, or quit Varnel "
                                   "first.");
            // A change starts from a library whose interrupted changes are settled, as the app
            // does when it opens it.
            if (inv.command != "recover") {
                const RecoveryReport report = store.recover();
                for (const auto& line : report.repairedLines())
                    err << "varnel-cli: repaired: " << line << "\n";
            }
        }
        return command->second();
    } catch (const UsageError& e) {
        err << "varnel-cli: " << e.what() << "\nTry “varnel-cli --help”.\n";
        return kUsage;
    } catch (const std::exception& e) {
        err << "varnel-cli: " << e.what() << "\n";
        return kFailed;
    }
}

} // namespace varnel::cli
