#include "cli/CliReading.h"
#include "cli/Cli.h"

#include "app/AppSettings.h"
#include "library/FlowStore.h"
#include "library/JsonCoding.h"
#include "library/LibraryCheck.h"

#include <algorithm>
#include <ostream>

namespace varnel::cli {

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
  export-app NAME FILE [--without-originals]  write application NAME as an archive (.varnel.zip);
                                              --without-originals makes a copy to share: the
                                              screens as edited, without their untouched
                                              copies, zones, patches, or the text under them
  import-app FILE [--replace|--duplicate]     import an application archive; when some of its
                                              flows are already in the library, say which way
  sources [--include-simulator]               the capture sources (Android phones and
                                              emulators, cameras, emulator windows)
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

} // namespace

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

std::optional<int> runReading(const std::vector<std::string>& args, std::ostream& out,
                              std::ostream& err) {
    return guarded(err, [&]() -> std::optional<int> {
        if (std::find(args.begin(), args.end(), "--help") != args.end() ||
            std::find(args.begin(), args.end(), "-h") != args.end()) {
            out << kHelp;
            return kSuccess;
        }
        const Invocation inv = parse(args);
        if (inv.command.empty() || inv.command == "help") {
            (inv.command.empty() ? err : out) << kHelp;
            return inv.command.empty() ? kUsage : kSuccess;
        }
        if (inv.command != "list" && inv.command != "check")
            return std::nullopt;
        FlowStore store{fs::path(inv.library ? *inv.library : AppSettings().rootFolderPath())};
        return inv.command == "list" ? list(inv, store, out) : check(inv, store, out);
    });
}

} // namespace varnel::cli
