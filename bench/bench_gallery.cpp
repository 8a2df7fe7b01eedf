// Opening a library of 10,000 flows to the first painted gallery, thumbnails already made; and
// the window's own work while a text pass reads 5,000 flows with the "Images" filter on.
#include "app/AppSettings.h"
#include "library/FileOps.h"
#include "library/Uuid.h"
#include "model/FlowLibrary.h"
#include "text/OCRIndex.h"
#include "thumbnails/ThumbnailFiles.h"
#include "ui/GalleryView.h"
#include "ui/MainWindow.h"
#include "ui/ScreenPreview.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <ctime>
#include <fstream>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

constexpr int kFlows = 10000;
constexpr int kScreensPerFlow = 10;
constexpr int kApplications = 50; // the gallery opens on all of them, the first at the top

struct GeneratedLibrary {
    fs::path root = fs::temp_directory_path() / ("varnel-bench-" + newUUIDString());

    explicit GeneratedLibrary(int flows = kFlows) {
        QImage thumbnail(277, ThumbnailFiles::kHeight, QImage::Format_RGB32);
        thumbnail.fill(QColor(60, 120, 220));
        LibraryIndex index;
        for (int f = 0; f < flows; ++f) {
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

// The main thread's work: its processor time, and its longest stall, seen as the longest a
// timer due every few milliseconds had to wait.
class MainThreadClock {
public:
    MainThreadClock() : cpuStart_(threadCpuNs()) {
        heartbeat_.setInterval(kBeatMs);
        QObject::connect(&heartbeat_, &QTimer::timeout, [this] {
            longest_ = std::max(longest_, sinceBeat_.nsecsElapsed() - kBeatMs * 1000000);
            sinceBeat_.start();
        });
        sinceBeat_.start();
        heartbeat_.start();
    }
    double busyMs() const { return static_cast<double>(threadCpuNs() - cpuStart_) / 1e6; }
    double longestStallMs() const { return static_cast<double>(longest_) / 1e6; }

private:
    static constexpr int kBeatMs = 5;
    static qint64 threadCpuNs() {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return qint64{now.tv_sec} * 1000000000 + now.tv_nsec;
    }
    qint64 cpuStart_;
    QTimer heartbeat_;
    QElapsedTimer sinceBeat_;
    qint64 longest_ = 0;
};

void BM_TextPassWithFilterOn(benchmark::State& state) {
    static GeneratedLibrary generated(5000);
    const fs::path settingsFile = generated.root.parent_path() / (newUUIDString() + ".ini");
    for (auto _ : state) {
        state.PauseTiming();
        // Nothing read yet: every flow's result is news.
        for (const auto& entry : fs::recursive_directory_iterator(generated.root))
            if (entry.path().filename() == "ocr.json")
                fs::remove(entry.path());
        AppSettings settings(std::make_unique<QSettings>(
            QString::fromStdString(settingsFile.string()), QSettings::IniFormat));
        settings.setMediaFilter(MediaFilter::images);
        FlowLibrary library{FlowStore(generated.root)};
        library.open();
        library.setRecognizerFactory([] {
            return OCRIndex::Recognizer(
                [](const fs::path& file) -> std::optional<std::vector<TextLine>> {
                    return std::vector<TextLine>{
                        {"Sign in to " + file.parent_path().filename().string(),
                         {0.1, 0.1, 0.5, 0.05},
                         std::nullopt}};
                });
        });
        MainWindow window(library, settings);
        window.resize(1280, 900);
        window.show();
        QApplication::processEvents();
        state.ResumeTiming();

        MainThreadClock clock;
        library.refreshOCRIndex();
        while (library.isIndexingText())
            QApplication::processEvents(QEventLoop::WaitForMoreEvents);
        // The last results reach the gallery.
        QElapsedTimer settle;
        settle.start();
        while (settle.elapsed() < 400)
            QApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        state.counters["main_thread_busy_ms"] = clock.busyMs();
        state.counters["longest_stall_ms"] = clock.longestStallMs();
        state.counters["flows"] = static_cast<double>(library.ocrIndex().size());
    }
    std::error_code ec;
    fs::remove(settingsFile, ec);
}
BENCHMARK(BM_TextPassWithFilterOn)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

// Pointing at a line whose translation is stored: from the mouse move to the translation
// painted over the line in the large preview (a 1170 × 2532 screen of 12 lines).
void BM_HoverShowsAStoredTranslation(benchmark::State& state) {
    GeneratedLibrary generated(1);
    const std::string folder = "app-0/category-0/flow-0";
    QImage screen(1170, 2532, QImage::Format_RGB32);
    screen.fill(QColor(245, 245, 247));
    screen.save(QString::fromStdString((generated.root / folder / "01.png").string()), "PNG");
    std::vector<TextLine> lines;
    for (int i = 0; i < 12; ++i) {
        TextLine line{
            "Línea de texto número " + std::to_string(i),
            {0.08, 0.05 + 0.07 * i, 0.7, 0.035},
            std::map<std::string, std::string>{{"en", "Line of text " + std::to_string(i)}}};
        lines.push_back(std::move(line));
    }
    FlowStore store(generated.root);
    OCRIndex::saveTextLines(store, folder, "01.png", lines);
    const fs::path settingsFile = generated.root / "settings.ini";
    AppSettings settings(std::make_unique<QSettings>(QString::fromStdString(settingsFile.string()),
                                                     QSettings::IniFormat));
    FlowLibrary library{FlowStore(generated.root)};
    library.open();
    MainWindow window(library, settings);
    window.resize(1280, 900);
    window.show();
    QApplication::processEvents();
    window.gallery().selectScreen({folder, "01.png"});
    window.action("Show Translation")->setChecked(true);
    ScreenPreview* preview = window.preview();
    if (!preview) {
        state.SkipWithError("no preview");
        return;
    }
    while (!preview->showsFullPicture())
        QApplication::processEvents();
    std::size_t line = 0;
    for (auto _ : state) {
        const QPointF point = preview->lineRect(line).center();
        QMouseEvent move(QEvent::MouseMove, point, preview->mapToGlobal(point), Qt::NoButton,
                         Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(preview, &move);
        preview->repaint();
        line = (line + 1) % lines.size();
    }
}
BENCHMARK(BM_HoverShowsAStoredTranslation)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
