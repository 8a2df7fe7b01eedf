// Opening a library of 10,000 flows to the first painted gallery, thumbnails already made.
#include "app/AppSettings.h"
#include "library/FileOps.h"
#include "library/FlowLibrary.h"
#include "library/Uuid.h"
#include "thumbnails/ThumbnailFiles.h"
#include "ui/GalleryView.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QImage>
#include <QScrollBar>

#include <benchmark/benchmark.h>

#include <fstream>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

constexpr int kFlows = 10000;
constexpr int kScreensPerFlow = 10;
constexpr int kApplications = 50; // the gallery opens on all of them, the first at the top

struct GeneratedLibrary {
    fs::path root = fs::temp_directory_path() / ("varnel-bench-" + newUUIDString());

    GeneratedLibrary() {
        QImage thumbnail(277, ThumbnailFiles::kHeight, QImage::Format_RGB32);
        thumbnail.fill(QColor(60, 120, 220));
        LibraryIndex index;
        for (int f = 0; f < kFlows; ++f) {
            FlowMeta meta;
            meta.id = newUUIDString();
            meta.application = "App " + std::to_string(f % kApplications);
            meta.categoryL1 = "Category " + std::to_string(f % 20);
            meta.name = "Flow " + std::to_string(f);
            meta.date = Date{700000000.0 + f};
            const std::string folder = "app-" + std::to_string(f % kApplications) + "/category-" +
                                       std::to_string(f % 20) + "/flow-" + std::to_string(f);
            const fs::path dir = root / folder;
            fs::create_directories(dir);
            for (int s = 1; s <= kScreensPerFlow; ++s) {
                ScreenRef ref;
                ref.filename = (s < 10 ? "0" : "") + std::to_string(s) + ".png";
                ref.capturedAt = Date{700000000.0 + s};
                std::ofstream(dir / ref.filename) << "screen";
                if (f % kApplications == 0) { // the first application's flows
                    const fs::path thumb = ThumbnailFiles::url(root, {folder, ref.filename});
                    fs::create_directories(thumb.parent_path());
                    thumbnail.save(QString::fromStdString(thumb.string()), "JPG", 85);
                }
                meta.screens.push_back(std::move(ref));
            }
            FileOps::writeAtomically(dir / "meta.json", encodeLibraryJson(meta.toJson()));
            index.flows.push_back(meta.summary(folder));
        }
        FileOps::writeAtomically(root / "index.json", encodeLibraryJson(index.toJson()));
    }
    ~GeneratedLibrary() {
        std::error_code ec;
        fs::remove_all(root, ec);
    }
};

// Whether every screen in sight has its picture.
bool allVisibleShown(MainWindow& window) {
    GalleryView& gallery = window.gallery();
    const int top = gallery.verticalScrollBar()->value();
    const auto [first, last] =
        gallery.galleryLayout().rowsIn(top, top + gallery.viewport()->height());
    for (std::size_t row = first; row < last; ++row) {
        const GalleryRow& r = gallery.content().rows[row];
        if (r.kind != GalleryRow::Kind::flow)
            continue;
        const auto& folder = gallery.content().flows[r.flow].folderName;
        const auto* screens = gallery.screensOf(folder);
        for (std::size_t i = 0; screens && i < screens->size(); ++i) {
            const QRect tile = gallery.galleryLayout().tileRect(row, i);
            if (tile.bottom() < top || tile.top() > top + gallery.viewport()->height())
                continue;
            const ScreenID screen{folder, (*screens)[i].filename};
            if (window.thumbnails().hasFailed(screen))
                throw std::runtime_error("no thumbnail for " + folder);
            if (window.thumbnails().image(screen).isNull())
                return false;
        }
    }
    return true;
}

void BM_OpenToFirstPaintedGallery(benchmark::State& state) {
    static GeneratedLibrary generated;
    const fs::path settingsFile = generated.root.parent_path() / (newUUIDString() + ".ini");
    for (auto _ : state) {
        AppSettings settings(std::make_unique<QSettings>(
            QString::fromStdString(settingsFile.string()), QSettings::IniFormat));
        FlowLibrary library{FlowStore(generated.root)};
        library.open();
        MainWindow window(library, settings);
        window.resize(1280, 900);
        window.show();
        // Paint, let the thumbnails in, paint again: the user sees the gallery complete.
        window.gallery().viewport()->repaint();
        while (!allVisibleShown(window)) {
            window.thumbnails().waitForIdle();
            QApplication::processEvents();
        }
        window.gallery().viewport()->repaint();
        state.counters["flows"] = static_cast<double>(library.summaries().size());
    }
    std::error_code ec;
    fs::remove(settingsFile, ec);
}
BENCHMARK(BM_OpenToFirstPaintedGallery)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
