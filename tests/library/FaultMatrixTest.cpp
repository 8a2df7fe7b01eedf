// Every mutating store operation, failed at every call of each of the four file operations:
// either the library is exactly as before, or the error names a folder of the library and
// reopening the library (which recovers what it can) leaves it consistent. No screen file's
// bytes are ever lost.
#include "library/LibraryCheck.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

struct Operation {
    const char* name;
    std::set<std::string> removes; // payloads of the screens the operation deletes on purpose
    std::function<void(SampleLibrary&, const fs::path& scratch)> prepare;
    std::function<void(FlowStore&, const fs::path& scratch)> run;
};

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all{
        {"appendToIndex",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.appendToIndex(s.meta(SampleLibrary::logIn).summary(SampleLibrary::logIn));
         }},
        {"createEmptyFlowInNewCategory",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.createEmptyFlow("Acme", "Profile", std::string("Settings"), Date{});
         }},
        {"createEmptyFlowInNewApplication",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.createEmptyFlow("Zeta", "First", std::nullopt, Date{});
         }},
        {"deleteLastFlowOfApplication",
         {"transfer-1"},
         nullptr,
         [](FlowStore& s, const fs::path&) { s.deleteFlow(SampleLibrary::transfer); }},
        {"deleteFlow",
         {"sign-up-1", "sign-up-2", "sign-up-2-original", "sign-up-2-patch", "sign-up-3"},
         nullptr,
         [](FlowStore& s, const fs::path&) { s.deleteFlow(SampleLibrary::signUp); }},
        {"renumberScreens",
         {},
         [](SampleLibrary& lib, const fs::path&) { lib.leaveGapInLogIn(); },
         [](FlowStore& s, const fs::path&) { s.renumberScreens(SampleLibrary::logIn); }},
        {"deleteScreens",
         {"sign-up-1"},
         nullptr,
         [](FlowStore& s, const fs::path&) { s.deleteScreens(SampleLibrary::signUp, {"01.png"}); }},
        {"reorderScreens",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.reorderScreens(SampleLibrary::signUp, {"03.mov", "02.png", "01.png"});
         }},
        {"moveScreens",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.moveScreens(SampleLibrary::signUp, {"02.png"}, SampleLibrary::logIn, 0);
         }},
        {"duplicateScreens",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.duplicateScreens(SampleLibrary::signUp, {"02.png"});
         }},
        {"moveFlowToAnotherCategory",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.moveFlow(SampleLibrary::signUp, std::string("Acme"), std::string("Auth"));
         }},
        {"renameFlow",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) { s.renameFlow(SampleLibrary::transfer, "Payment"); }},
        {"moveCategory",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) { s.moveCategory("Onboarding", std::nullopt); }},
        {"addScreens",
         {},
         [](SampleLibrary&, const fs::path& scratch) {
             writeFile(scratch / "new.png", pngBytes(5, 5, "added-screen"));
         },
         [](FlowStore& s, const fs::path& scratch) {
             s.addScreens(SampleLibrary::logIn, {scratch / "new.png"}, Date{});
         }},
        {"adopt",
         {},
         [](SampleLibrary& lib, const fs::path& scratch) {
             fs::copy(lib.root / SampleLibrary::signUp, scratch / "payload",
                      fs::copy_options::recursive);
         },
         [](FlowStore& s, const fs::path& scratch) {
             FlowMeta meta = s.meta(SampleLibrary::signUp);
             meta.id = "ADOPTED";
             meta.application = "Imported";
             s.adopt(meta, scratch / "payload");
         }},
        {"trashFlow",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.trashFlows({SampleLibrary::signUp, SampleLibrary::transfer});
         }},
        {"trashScreens",
         {},
         nullptr,
         [](FlowStore& s, const fs::path&) {
             s.trashScreens(SampleLibrary::signUp, {"01.png", "02.png"});
         }},
        {"restoreFlows",
         {},
         [](SampleLibrary& lib, const fs::path&) {
             lib.store.trashFlows({SampleLibrary::signUp, SampleLibrary::logIn});
         },
         [](FlowStore& s, const fs::path&) { s.restoreFlows(s.trashEntries().front().id); }},
        {"restoreScreens",
         {},
         [](SampleLibrary& lib, const fs::path&) {
             lib.store.trashScreens(SampleLibrary::signUp, {"02.png", "03.mov"});
         },
         [](FlowStore& s, const fs::path&) { s.restoreScreens(s.trashEntries().front().id); }},
        {"recoverStagingFolder",
         {},
         [](SampleLibrary& lib, const fs::path&) {
             writeFile(lib.root / ".inprogress/SESSION/01.png", pngBytes(5, 5, "staged-1"));
             writeFile(lib.root / ".inprogress/SESSION/03.png", pngBytes(5, 5, "staged-2"));
         },
         [](FlowStore& s, const fs::path&) {
             const RecoveryReport report = s.recover();
             if (!report.problems.empty())
                 throw LibraryError(report.problems.front());
         }},
    };
    return all;
}

bool isScreenFile(const std::string& path) {
    return path.ends_with(".png") || path.ends_with(".mov");
}

// The recognizable part of a screen file, after the PNG header when there is one.
std::string payload(const std::string& content) {
    return content.starts_with("\x89PNG") && content.size() >= 33 ? content.substr(33) : content;
}

std::multiset<std::string> screenContents(const fs::path& top) {
    std::multiset<std::string> out;
    for (const auto& [path, content] : treeSnapshot(top)) {
        if (isScreenFile(path))
            out.insert(payload(content));
    }
    return out;
}

std::vector<std::string> problemsAfterReopening(const fs::path& root) {
    FlowStore reopened(root);
    reopened.recover();
    auto problems = checkLibrary(reopened);
    std::erase_if(problems, [](const std::string& p) {
        return p.starts_with("data of an interrupted deletion remains at");
    });
    return problems;
}

using Kind = FaultInjector::Kind;

class FaultMatrixTest : public ::testing::TestWithParam<std::tuple<std::size_t, Kind>> {};

} // namespace

TEST_P(FaultMatrixTest, EveryFailurePointLosesNothing) {
    const auto [index, kind] = GetParam();
    const Operation& op = operations()[index];

    int calls = 0;
    {
        TempDir dir;
        SampleLibrary sample(dir / "Library");
        if (op.prepare)
            op.prepare(sample, dir.path());
        FaultInjector counter;
        sample.store.operations() = counter.operations();
        op.run(sample.store, dir.path());
        calls = counter.calls(kind);
        ASSERT_TRUE(checkLibrary(sample.store).empty()) << op.name << " without failures";
    }

    for (int n = 1; n <= calls; ++n) {
        SCOPED_TRACE(std::string(op.name) + ": " + name(kind) + " call " + std::to_string(n) +
                     " of " + std::to_string(calls) + " fails");
        TempDir dir;
        SampleLibrary sample(dir / "Library");
        if (op.prepare)
            op.prepare(sample, dir.path());
        const auto before = treeSnapshot(sample.root);
        const auto screensBefore = screenContents(dir.path());

        FaultInjector injector(kind, n);
        sample.store.operations() = injector.operations();
        std::optional<std::string> error;
        try {
            op.run(sample.store, dir.path());
        } catch (const std::exception& e) {
            error = e.what();
        }
        ASSERT_TRUE(injector.fired());

        if (!error) {
            // A failed clean-up of something empty may be shrugged off; the result must hold.
            EXPECT_TRUE(checkLibrary(sample.store).empty());
            continue;
        }
        const auto screensAfter = screenContents(dir.path());
        for (const auto& content : screensBefore) {
            if (!op.removes.contains(content)) {
                EXPECT_GE(screensAfter.count(content), screensBefore.count(content))
                    << "a screen file was lost: " << content;
            }
        }
        if (treeSnapshot(sample.root) == before)
            continue;
        EXPECT_NE(error->find(sample.root.string()), std::string::npos)
            << "the library changed, so the error must name where: " << *error;
        const auto problems = problemsAfterReopening(sample.root);
        EXPECT_TRUE(problems.empty()) << *error << "\nafter reopening: " << problems.front();
    }
}

INSTANTIATE_TEST_SUITE_P(StoreOperations, FaultMatrixTest,
                         ::testing::Combine(::testing::Range<std::size_t>(0, operations().size()),
                                            ::testing::Values(Kind::writer, Kind::mover,
                                                              Kind::remover, Kind::creator)),
                         [](const auto& info) {
                             return std::string(operations()[std::get<0>(info.param)].name) + "_" +
                                    name(std::get<1>(info.param));
                         });
