// Every multi-step change of the library is killed (SIGKILL) in a child process after each of
// its file operations; recovery then runs as the next opening would, and every flow must be its
// old or its new version, complete and listed, with no screen's bytes lost and nothing hidden
// left behind.
#include "archive/AppArchive.h"
#include "archive/ArchiveImport.h"
#include "library/LibraryCheck.h"
#include "support/CliRun.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <csignal>
#include <iostream>
#include <sys/wait.h>
#include <unistd.h>

using namespace varnel;
using namespace varnel::test;

namespace {

// The store's file operations, each followed by a step; the process kills itself at one step.
// A folder is removed entry by entry, so that kills also land inside a removal.
class Killer {
public:
    explicit Killer(long killAt) : killAt_(killAt) {}

    FileOperations operations() {
        FileOperations ops;
        ops.indexWriter = [this](const fs::path& file, std::string_view bytes) {
            FileOps::writeAtomically(file, bytes);
            step();
        };
        ops.folderMover = [this](const fs::path& from, const fs::path& to) {
            FileOps::move(from, to);
            step();
        };
        ops.folderRemover = [this](const fs::path& path) { remove(path); };
        ops.directoryCreator = [this](const fs::path& folder, bool intermediates) {
            FileOps::createDirectory(folder, intermediates);
            step();
        };
        return ops;
    }
    long steps() const { return steps_; }

private:
    void step() {
        if (++steps_ == killAt_)
            ::raise(SIGKILL);
    }
    void remove(const fs::path& path) {
        std::error_code ec;
        if (fs::is_directory(fs::symlink_status(path, ec))) {
            for (const auto& name : FileOps::list(path))
                remove(path / name);
        }
        FileOps::remove(path);
        step();
    }

    long killAt_;
    long steps_ = 0;
};

// A flow as the user sees it: where it is filed and its screens in order (name and bytes).
struct FlowState {
    std::string application, category, name;
    std::vector<std::string> screens;
    bool operator==(const FlowState&) const = default;
};
using LibraryState = std::map<std::string, FlowState>; // by flow id

// The library's flows; a listed flow that can't be read or misses a screen fails the test.
LibraryState stateOf(const fs::path& root) {
    FlowStore store(root);
    LibraryState state;
    for (const auto& summary : store.readIndex().flows) {
        const FlowMeta meta = store.meta(summary.folderName);
        FlowState flow{meta.application.value_or(""), meta.categoryL1.value_or(""), meta.name, {}};
        for (const auto& screen : meta.screens) {
            const fs::path file = root / summary.folderName / screen.filename;
            EXPECT_TRUE(fs::exists(file)) << file;
            flow.screens.push_back(screen.filename + ":" +
                                   (fs::exists(file) ? readFile(file) : "<missing>"));
        }
        state[summary.id] = flow;
    }
    return state;
}

// Hidden files and folders other than thumbnails and the lock: what an interrupted change left.
std::vector<std::string> hiddenLeftovers(const fs::path& root) {
    std::vector<std::string> found;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != end(it);
         it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (name == ".thumbs" || name == ".varnel.lock") {
            it.disable_recursion_pending();
            continue;
        }
        if (name.starts_with("."))
            found.push_back(it->path().lexically_relative(root).string());
    }
    return found;
}

std::multiset<std::string> screenBytes(const LibraryState& state) {
    std::multiset<std::string> bytes;
    for (const auto& [id, flow] : state)
        for (const auto& screen : flow.screens)
            bytes.insert(screen.substr(screen.find(':') + 1));
    return bytes;
}

struct Figures {
    long kills = 0, survived = 0, screensLost = 0, leftovers = 0;
};

class KillRecoveryTest : public ::testing::Test {
protected:
    using Change = std::function<void(FlowStore&, const fs::path& root)>;

    // Runs `change` on copies of `base`: once whole, for its steps and its outcome, then killed
    // after each step. With `flowsOnTheirOwn`, each flow may be old or new by itself (changes
    // that commit flow by flow); otherwise the library as a whole is old or new.
    Figures killEverywhere(const fs::path& base, const Change& change, bool flowsOnTheirOwn) {
        const LibraryState before = stateOf(base);
        const fs::path whole = copyOf(base);
        Killer counter(-1);
        {
            FlowStore store(whole, counter.operations());
            change(store, whole);
        }
        const LibraryState after = stateOf(whole);
        EXPECT_NE(before, after) << "the change must change something";
        EXPECT_TRUE(checkLibrary(FlowStore(whole)).empty());

        Figures figures;
        for (long killAt = 1; killAt <= counter.steps(); ++killAt) {
            SCOPED_TRACE("killed after step " + std::to_string(killAt) + " of " +
                         std::to_string(counter.steps()));
            const fs::path root = copyOf(base);
            const pid_t child = ::fork();
            if (child == 0) {
                Killer killer(killAt);
                FlowStore store(root, killer.operations());
                try {
                    change(store, root);
                } catch (...) {
                    ::_exit(2);
                }
                ::_exit(0);
            }
            int status = 0;
            EXPECT_EQ(::waitpid(child, &status, 0), child);
            ++figures.kills;
            // The last step may end the change before the kill: it then simply finished.
            if (!(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)) {
                EXPECT_EQ(killAt, counter.steps()) << "status " << status;
            }

            // Recovery as the app runs it, or as the command line does, by turns.
            if (killAt % 2 == 0) {
                FlowStore(root).recover();
            } else {
                const CliResult recovered = runCli({"recover"}, root.string());
                EXPECT_EQ(recovered.code, cli::kSuccess) << recovered.err;
            }

            const LibraryState now = stateOf(root);
            bool fine = flowsOnTheirOwn ? eachFlowOldOrNew(now, before, after)
                                        : (now == before || now == after);
            EXPECT_TRUE(fine) << "neither the old nor the new library";
            for (const auto& bytes : screenBytes(before)) {
                if (screenBytes(after).contains(bytes) && !screenBytes(now).contains(bytes)) {
                    ++figures.screensLost;
                    fine = false;
                }
            }
            const auto hidden = hiddenLeftovers(root);
            figures.leftovers += static_cast<long>(hidden.size());
            EXPECT_TRUE(hidden.empty()) << hidden.front();
            const auto problems = checkLibrary(FlowStore(root));
            EXPECT_TRUE(problems.empty()) << problems.front();
            fine = fine && hidden.empty() && problems.empty();
            figures.survived += fine;
            fs::remove_all(root);
        }
        return figures;
    }

    static bool eachFlowOldOrNew(const LibraryState& now, const LibraryState& before,
                                 const LibraryState& after) {
        std::set<std::string> ids;
        for (const auto* state : {&now, &before, &after})
            for (const auto& [id, flow] : *state)
                ids.insert(id);
        auto of = [](const LibraryState& state, const std::string& id) {
            auto it = state.find(id);
            return it == state.end() ? std::optional<FlowState>() : it->second;
        };
        return std::all_of(ids.begin(), ids.end(), [&](const std::string& id) {
            return of(now, id) == of(before, id) || of(now, id) == of(after, id);
        });
    }

    fs::path copyOf(const fs::path& base) {
        const fs::path copy = dir / ("run-" + std::to_string(++copies_));
        fs::copy(base, copy, fs::copy_options::recursive);
        return copy;
    }

    void report(const std::string& operation, const Figures& f) {
        std::cout << "[ kills    ] " << operation << ": " << f.kills << " kills, " << f.survived
                  << " survived, " << f.screensLost << " screens lost, " << f.leftovers
                  << " leftovers\n";
        total_.kills += f.kills;
        EXPECT_GT(f.kills, 3) << operation << " has several steps";
        EXPECT_EQ(f.survived, f.kills) << operation;
    }

    TempDir dir;
    fs::path base = dir / "base";
    SampleLibrary sample{base};
    Figures total_;
    int copies_ = 0;
};

} // namespace

TEST_F(KillRecoveryTest, FlowAndScreenChangesSurviveAKillAtEveryStep) {
    const std::string signUp = SampleLibrary::signUp, logIn = SampleLibrary::logIn;
    report("delete flow",
           killEverywhere(
               base, [&](FlowStore& s, const fs::path&) { s.deleteFlow(signUp); }, false));
    report("delete application",
           killEverywhere(
               base,
               [&](FlowStore& s, const fs::path&) {
                   for (const auto& flow : AppArchive::flowsOf(s.readIndex(), "Acme"))
                       s.deleteFlow(flow.folderName);
               },
               true));
    report("delete screens", killEverywhere(
                                 base,
                                 [&](FlowStore& s, const fs::path&) {
                                     s.deleteScreens(signUp, {"01.png", "02.png"});
                                 },
                                 false));
    report("move screens", killEverywhere(
                               base,
                               [&](FlowStore& s, const fs::path&) {
                                   s.moveScreens(signUp, {"02.png", "01.png"}, logIn, 1);
                               },
                               false));
    report("reorder screens", killEverywhere(
                                  base,
                                  [&](FlowStore& s, const fs::path&) {
                                      s.reorderScreens(signUp, {"03.mov", "02.png", "01.png"});
                                  },
                                  false));
    report("duplicate screens",
           killEverywhere(
               base, [&](FlowStore& s, const fs::path&) { s.duplicateScreens(signUp, {"02.png"}); },
               false));
    writeFile(dir / "new.png", pngBytes(1290, 2796, "added"));
    report("add screens", killEverywhere(
                              base,
                              [&](FlowStore& s, const fs::path&) {
                                  s.addScreens(logIn, {dir / "new.png"}, Date::now());
                              },
                              false));
    report(
        "rename flow",
        killEverywhere(
            base, [&](FlowStore& s, const fs::path&) { s.renameFlow(signUp, "Welcome"); }, false));
    report("move flow", killEverywhere(
                            base,
                            [&](FlowStore& s, const fs::path&) {
                                s.moveFlow(SampleLibrary::transfer, "Acme", "Payments");
                            },
                            false));
    sample.leaveGapInLogIn();
    report("renumber",
           killEverywhere(
               base, [&](FlowStore& s, const fs::path&) { s.renumberScreens(logIn); }, false));
    std::cout << "[ kills    ] flow and screen changes: " << total_.kills << " kills\n";
}

TEST_F(KillRecoveryTest, ImportsSurviveAKillAtEveryStep) {
    const fs::path zip = dir / "Acme.varnel.zip";
    AppArchive::exportApplication("Acme", sample.store, sample.store.readIndex(), zip);
    auto import = [&](ImportConflictResolution resolution) {
        return [&, resolution](FlowStore& s, const fs::path& root) {
            const auto extracted = AppArchive::extract(zip, root, true);
            importExtracted(s, extracted, resolution);
            extracted.cleanup();
        };
    };
    // Replace meets one flow under its old name and one that was renamed since.
    sample.store.deleteScreens(SampleLibrary::signUp, {"03.mov"});
    sample.store.renameFlow(SampleLibrary::logIn, "Log in before");
    report("import, replacing",
           killEverywhere(base, import(ImportConflictResolution::replace), true));

    const fs::path fresh = dir / "fresh";
    SampleLibrary other(fresh);
    for (const auto& flow : AppArchive::flowsOf(other.store.readIndex(), "Acme"))
        other.store.deleteFlow(flow.folderName);
    report("import", killEverywhere(fresh, import(ImportConflictResolution::replace), true));
    std::cout << "[ kills    ] imports: " << total_.kills << " kills\n";
}
