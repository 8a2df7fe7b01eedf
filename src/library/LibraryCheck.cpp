#include "library/LibraryCheck.h"

#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"

#include <charconv>
#include <set>

namespace varnel {

namespace {

std::optional<long long> leadingNumber(const std::string& filename) {
    const std::string stem = ScreenFiles::stem(filename);
    long long value = 0;
    const auto [end, ec] = std::from_chars(stem.data(), stem.data() + stem.size(), value);
    if (ec != std::errc() || end != stem.data() + stem.size())
        return std::nullopt;
    return value;
}

// Screens, originals and patches in the folder that the flow does not list: a change cut short
// left them, and the user doesn't see them.
template <typename Problem>
void checkUnlistedScreens(const FlowMeta& meta, const fs::path& flowDir, Problem& problem) {
    const std::set<std::string> referenced = meta.referencedFiles();
    std::vector<std::string> names;
    try {
        names = FileOps::list(flowDir);
    } catch (const std::exception&) {
        return;
    }
    for (const auto& name : names) {
        if (referenced.contains(name) || name.starts_with("."))
            continue;
        if (ScreenFiles::screenNumber(name) || ScreenFiles::isPatchFileName(name) ||
            name.find(".orig") != std::string::npos)
            problem("the file “" + name + "” is in the flow’s folder but not listed in the flow");
    }
}

void checkFlow(const FlowStore& store, const FlowSummary& summary,
               std::vector<std::string>& problems) {
    const std::string& folder = summary.folderName;
    auto problem = [&](const std::string& text) { problems.push_back(folder + ": " + text); };
    if (!LibraryLayout::isSafeFolderName(folder)) {
        problem("the index lists an unsafe folder name");
        return;
    }
    FlowMeta meta;
    try {
        meta = store.meta(folder);
    } catch (const std::exception& e) {
        problem(e.what());
        return;
    }
    if (meta.summary(folder) != summary)
        problem("the index entry does not match meta.json");

    const fs::path flowDir = store.root() / folder;
    std::set<std::string> seen;
    for (std::size_t i = 0; i < meta.screens.size(); ++i) {
        const ScreenRef& screen = meta.screens[i];
        if (!LibraryLayout::isSafeFileName(screen.filename)) {
            problem("unsafe screen file name “" + screen.filename + "”");
            continue;
        }
        if (!seen.insert(screen.filename).second)
            problem("the screen “" + screen.filename + "” is listed twice");
        if (leadingNumber(screen.filename) != static_cast<long long>(i + 1))
            problem("screen " + std::to_string(i + 1) + " is named “" + screen.filename + "”");
        if (!FileOps::exists(flowDir / screen.filename))
            problem("the screen file “" + screen.filename + "” is missing");
        for (const auto& refused : screen.refusedPatches)
            problem(refused.empty()
                        ? "the screen “" + screen.filename + "” lists a patch with no usable place"
                        : "the screen “" + screen.filename + "” lists “" + refused +
                              "” as its patch, which is not a patch file of its own");
        if (screen.refusedZones > 0)
            problem("the screen “" + screen.filename + "” lists " +
                    std::to_string(screen.refusedZones) + " blur zone(s) with no usable place");
        for (const auto& patch : screen.patches.value_or(std::vector<RedactPatch>{})) {
            if (!LibraryLayout::isSafeFileName(patch.file))
                problem("unsafe patch file name “" + patch.file + "”");
            else if (!FileOps::exists(flowDir / patch.file))
                problem("the patch file “" + patch.file + "” is missing");
        }
    }
    checkUnlistedScreens(meta, flowDir, problem);
}

// Flow folders (folders holding a meta.json) that the index does not list.
void checkUnlisted(const FlowStore& store, const std::set<std::string>& listed,
                   std::vector<std::string>& problems) {
    std::vector<std::string> level{""};
    for (int depth = 0; depth < 3; ++depth) {
        std::vector<std::string> next;
        for (const auto& path : level) {
            std::vector<std::string> names;
            try {
                names = FileOps::list(path.empty() ? store.root() : store.root() / path);
            } catch (const std::exception&) {
                continue;
            }
            for (const auto& name : names) {
                const std::string child = path.empty() ? name : path + "/" + name;
                if (name.starts_with(".") || !FileOps::isDirectory(store.root() / child))
                    continue;
                if (FileOps::exists(store.root() / child / LibraryLayout::kMetaFile)) {
                    if (!listed.contains(child))
                        problems.push_back(child + ": a flow folder the index does not list");
                } else if (depth == 2) {
                    if (!FileOps::list(store.root() / child).empty())
                        problems.push_back(child + ": a folder with files but no meta.json");
                } else {
                    next.push_back(child);
                }
            }
        }
        level = std::move(next);
    }
}

// What the trash offers must be there to put back, and not be in the library already.
void checkTrash(const FlowStore& store, const LibraryIndex& index,
                std::vector<std::string>& problems) {
    for (const auto& entry : store.trashEntries()) {
        const fs::path folder = store.root() / TrashEntry::kFolder / entry.id;
        auto problem = [&](const std::string& text) {
            problems.push_back("the trash entry " + entry.id + ": " + text);
        };
        for (const auto& flow : entry.flows) {
            if (index.findId(flow.summary.id))
                problem("the flow “" + flow.summary.name + "” is in the library too");
            if (!FileOps::exists(folder / flow.slot / LibraryLayout::kMetaFile))
                problem("the files of the flow “" + flow.summary.name + "” are missing");
        }
        for (const auto& screen : entry.screens) {
            if (!FileOps::exists(folder / screen.ref.filename))
                problem("the file “" + screen.ref.filename + "” is missing");
        }
    }
}

} // namespace

std::vector<std::string> checkLibrary(const FlowStore& store) {
    std::vector<std::string> problems;
    LibraryIndex index;
    try {
        index = store.readIndex();
    } catch (const std::exception& e) {
        problems.push_back(e.what());
        return problems;
    }
    std::set<std::string> folders;
    std::set<std::string> ids;
    for (const auto& summary : index.flows) {
        if (!folders.insert(summary.folderName).second)
            problems.push_back(summary.folderName + ": listed twice in the index");
        if (!ids.insert(summary.id).second)
            problems.push_back(summary.folderName + ": another flow has the id " + summary.id);
        checkFlow(store, summary, problems);
    }
    checkUnlisted(store, folders, problems);
    checkTrash(store, index, problems);

    const RecoveryReport leftovers = store.inspectLeftovers();
    problems.insert(problems.end(), leftovers.problems.begin(), leftovers.problems.end());
    for (const auto& quarantine : leftovers.leftoverQuarantines)
        problems.push_back("data of an interrupted deletion remains at " + quarantine.string());
    return problems;
}

} // namespace varnel
