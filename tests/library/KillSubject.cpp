// One change of a library, run as a process of its own so that a test can kill it at any system
// call (under strace) and check what recovery makes of what it left:
//   kill_subject OPERATION LIBRARY [ARCHIVE]
// Exits 0 when the change was made, 2 when it failed with an error.
#include "archive/AppArchive.h"
#include "capture/SessionController.h"
#include "editing/ScreenEdits.h"
#include "library/FlowStore.h"
#include "model/FlowLibrary.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>

#include <iostream>
#include <string>

using namespace varnel;

namespace {

constexpr const char* kSignUp = "acme/onboarding/sign-up";
constexpr const char* kLogIn = "acme/onboarding/log-in";

void capture(FlowStore& store, const std::optional<std::string>& appendTo) {
    int shots = 0;
    SessionController session(store, [&] {
        ++shots;
        return std::optional<CapturedFrame>(
            {test::pngBytes(1179, 2556, "shot " + std::to_string(shots)), 1179, 2556, {}});
    });
    session.start(appendTo);
    session.add(CaptureSource::manual);
    const auto clip = session.beginVideo(1179, 2556);
    FileOps::writeAtomically(*clip, "a clip's bytes");
    session.commitVideo();
    session.add(CaptureSource::manual);
    session.stop("Acme", "Checkout", "Payments", "Pixel 8");
}

// A clip's zones saved by the window's model while an archive is imported beside it.
bool bakeClipDuringImport(const fs::path& root, const fs::path& archive) {
    FlowLibrary library{FlowStore(root)};
    library.open();
    std::optional<bool> saved;
    library.saveVideoEdits(kSignUp, "03.mov", {{"", RedactShape::Kind::rect, {0, 0, 1, 0.3}}},
                           defaultStyle(RedactPreset::dark), {}, [&](bool ok) { saved = ok; });
    const auto inspection = library.inspectArchive(archive);
    library.importArchive(inspection.extracted, ImportConflictResolution::replace);
    while (!saved)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return *saved;
}

bool run(const std::string& operation, const fs::path& root, const fs::path& archive) {
    FlowStore store(root);
    const std::vector<RedactShape> zone{{"", RedactShape::Kind::rect, {0.1, 0.1, 0.5, 0.2}}};
    if (operation == "capture-new")
        capture(store, std::nullopt);
    else if (operation == "capture-append")
        capture(store, std::string(kLogIn));
    else if (operation == "blur")
        ScreenEdits::save(store, kLogIn, "01.png", zone, defaultStyle(RedactPreset::dark), {});
    else if (operation == "revert")
        ScreenEdits::revert(store, kSignUp, "02.png");
    else if (operation == "renumber")
        store.renumberScreens(kLogIn);
    else if (operation == "move")
        store.moveScreens(kLogIn, {"01.png"}, kSignUp, 1);
    else if (operation == "trash-screens")
        store.trashScreens(kSignUp, {"01.png", "02.png"});
    else if (operation == "restore-flow")
        store.restoreFlows(store.trashEntries().front().id);
    else if (operation == "bake-clip-during-import")
        return bakeClipDuringImport(root, archive);
    else if (operation == "recover")
        store.recover();
    else
        throw std::invalid_argument("no such operation: " + operation);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::cerr << "usage: kill_subject OPERATION LIBRARY [ARCHIVE]\n";
        return 64;
    }
    try {
        return run(argv[1], argv[2], argc > 3 ? argv[3] : "") ? 0 : 2;
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
        return 2;
    }
}
