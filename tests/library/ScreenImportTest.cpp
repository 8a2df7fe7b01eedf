#include "model/ScreenImport.h"

#include "capture/MovieWriter.h"
#include "library/LibraryLayout.h"
#include "media/GstSupport.h"
#include "model/FlowLibrary.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"

#include <QImage>
#include <QImageWriter>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

using namespace varnel;
using namespace varnel::test;
namespace Import = varnel::ScreenImport;

namespace {

// A picture whose every pixel says where it is and which picture it is, so that a screen's
// source and orientation can be told from its pixels.
QImage marked(int width, int height, int tag) {
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(
                x, y,
                qRgb((x * 255) / std::max(1, width - 1), (y * 255) / std::max(1, height - 1), tag));
    return image;
}

void save(const QImage& image, const fs::path& file, const char* format) {
    fs::create_directories(file.parent_path());
    QImageWriter writer(QString::fromStdString(file.string()), format);
    writer.setQuality(95);
    ASSERT_TRUE(writer.write(image)) << writer.errorString().toStdString();
}

// The blue channel of a screen's first pixel: the tag of the picture it was made from.
int tagOf(const fs::path& png) {
    const cv::Mat pixels = cv::imread(png.string(), cv::IMREAD_COLOR);
    return pixels.empty() ? -1 : pixels.at<cv::Vec3b>(0, 0)[0];
}

// Every regular file below `folder` with its bytes, links not followed.
std::map<std::string, std::string> filesBelow(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (auto it = fs::recursive_directory_iterator(folder);
         it != fs::recursive_directory_iterator(); ++it)
        if (it->is_symlink())
            files[it->path().lexically_relative(folder).string()] =
                "-> " + fs::read_symlink(it->path()).string();
        else if (it->is_regular_file())
            files[it->path().lexically_relative(folder).string()] = readFile(it->path());
    return files;
}

bool runPipeline(const std::string& description) {
    gst::initialize();
    std::string error;
    auto pipeline = gst::parse(description.c_str(), &error);
    if (!pipeline) {
        ADD_FAILURE() << error;
        return false;
    }
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline.get());
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 60 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ok = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message && !ok) {
        GError* gerror = nullptr;
        gst_message_parse_error(message, &gerror, nullptr);
        ADD_FAILURE() << (gerror ? gerror->message : "");
        if (gerror)
            g_error_free(gerror);
    }
    if (message)
        gst_message_unref(message);
    gst_object_unref(bus);
    return ok;
}

class ScreenImportTest : public ::testing::Test {
protected:
    std::vector<std::string> screensOf(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& screen : library.store().meta(folder).screens)
            names.push_back(screen.filename);
        return names;
    }
    // Hidden folders an import could leave at the root of the library.
    std::vector<std::string> leftovers() {
        std::vector<std::string> names;
        for (const auto& name : FileOps::list(root))
            if (name.starts_with(".") && name != LibraryLayout::kJournalFolder)
                names.push_back(name);
        return names;
    }

    TempDir dir;
    fs::path root = dir / "Library";
    fs::path source = dir / "Source";
    FlowLibrary library{FlowStore(root)};
};

} // namespace

TEST_F(ScreenImportTest, AFolderOfFoldersBecomesOneFlowPerFolderInNaturalOrder) {
    library.open();
    const fs::path trip = source / "Trip";
    save(marked(40, 80, 1), trip / "cover.png", "PNG");
    save(marked(40, 80, 12), trip / "Checkout" / "IMG_10.png", "PNG");
    save(marked(40, 80, 11), trip / "Checkout" / "IMG_2.png", "PNG");
    save(marked(40, 80, 10), trip / "Checkout" / "IMG_1.png", "PNG");
    save(marked(40, 80, 13), trip / "Checkout" / "more" / "IMG_3.png", "PNG");
    save(marked(40, 80, 20), trip / "Sign in" / "a.png", "PNG");
    writeFile(trip / "Sign in" / "notes.txt", "remember the coupon");
    writeFile(trip / "Sign in" / ".DS_Store", "system");
    fs::create_directories(trip / "Empty");

    Import::Plan plan = Import::plan({trip});
    ASSERT_EQ(plan.flows.size(), 3u);
    EXPECT_EQ(plan.flows[0].name, "Trip") << "the top folder's own files";
    EXPECT_EQ(plan.flows[1].name, "Checkout");
    EXPECT_EQ(plan.flows[2].name, "Sign in");
    std::vector<std::string> checkout;
    for (const auto& file : plan.flows[1].files)
        checkout.push_back(file.filename().string());
    EXPECT_EQ(checkout,
              (std::vector<std::string>{"IMG_1.png", "IMG_2.png", "IMG_10.png", "IMG_3.png"}));
    ASSERT_EQ(plan.skipped.size(), 1u);
    EXPECT_EQ(plan.skipped[0].file.filename(), "notes.txt");

    plan.application = "Acme";
    plan.category = "Travel";
    plan.flows[2].name = "Log in";
    const Import::Report report = Import::run(library, plan);
    EXPECT_EQ(report.createdFlows,
              (std::vector<std::string>{"acme/travel/trip", "acme/travel/checkout",
                                        "acme/travel/log-in"}));
    EXPECT_EQ(report.screens, 6u);
    EXPECT_EQ(report.summary(), "Imported 6 screens into 3 flows; 1 file skipped.");
    EXPECT_EQ(report.skippedLines(),
              (std::vector<std::string>{"notes.txt: it isn’t a PNG, JPEG or HEIC picture, nor "
                                        "a MOV or MP4 clip"}));
    ASSERT_EQ(library.summaries().size(), 3u);
    EXPECT_EQ(screensOf("acme/travel/checkout"),
              (std::vector<std::string>{"01.png", "02.png", "03.png", "04.png"}));
    std::vector<int> tags;
    for (const auto& name : screensOf("acme/travel/checkout"))
        tags.push_back(tagOf(root / "acme/travel/checkout" / name));
    EXPECT_EQ(tags, (std::vector<int>{10, 11, 12, 13}));
    const FlowMeta meta = library.store().meta("acme/travel/log-in");
    EXPECT_EQ(meta.name, "Log in");
    EXPECT_EQ(meta.application, "Acme");
    EXPECT_EQ(meta.categoryL1, "Travel");
    EXPECT_EQ(meta.width, 40);
    EXPECT_EQ(meta.height, 80);
    EXPECT_EQ(readFile(root / "acme/travel/log-in/01.png"), readFile(trip / "Sign in" / "a.png"))
        << "a PNG is copied as it is";
    EXPECT_TRUE(leftovers().empty());
    EXPECT_TRUE(fs::exists(trip / "Checkout" / "IMG_10.png")) << "the sources stay";
}

TEST_F(ScreenImportTest, JpegAndHeicBecomePngWithTheirPixelsTurnedAsTheFileSays) {
    library.open();
    // Blocks of one colour decode to the same pixels in any JPEG decoder.
    QImage blocks(64, 48, QImage::Format_RGB32);
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            blocks.setPixel(
                x, y,
                qRgb(((x / 16) * 70) % 256, ((y / 16) * 90) % 256, ((x / 16 + y / 16) * 40) % 256));
    save(blocks, source / "photo.jpg", "JPEG");
    // The same stored picture, with an EXIF block saying it is shown turned a quarter clockwise.
    const std::string plain = readFile(source / "photo.jpg");
    const std::string exif("\xFF\xE1\x00\x22"
                           "Exif\0\0"
                           "II*\0\x08\0\0\0"
                           "\x01\0"
                           "\x12\x01\x03\0\x01\0\0\0\x06\0\0\0"
                           "\0\0\0\0",
                           36);
    writeFile(source / "turned.jpg", plain.substr(0, 2) + exif + plain.substr(2));

    Import::Plan plan = Import::plan({source / "photo.jpg", source / "turned.jpg"});
    plan.application = "Acme";
    const Import::Report report = Import::run(library, plan);
    ASSERT_EQ(report.createdFlows.size(), 1u) << report.summary();
    EXPECT_TRUE(report.skipped.empty()) << report.skippedLines().front();
    const fs::path flow = root / report.createdFlows[0];
    const cv::Mat expected = cv::imread((source / "photo.jpg").string(), cv::IMREAD_UNCHANGED);
    const cv::Mat converted = cv::imread((flow / "01.png").string(), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(Import::kindOf(flow / "01.png"), Import::Kind::png);
    ASSERT_EQ(converted.size(), expected.size()) << converted.cols << "x" << converted.rows;
    ASSERT_EQ(converted.type(), expected.type());
    EXPECT_EQ(cv::norm(converted, expected, cv::NORM_INF), 0) << "every pixel kept";
    const cv::Mat turned = cv::imread((flow / "02.png").string(), cv::IMREAD_UNCHANGED);
    const cv::Mat stored = cv::imread((source / "turned.jpg").string(),
                                      cv::IMREAD_UNCHANGED | cv::IMREAD_IGNORE_ORIENTATION);
    cv::Mat clockwise;
    cv::rotate(stored, clockwise, cv::ROTATE_90_CLOCKWISE);
    ASSERT_EQ(turned.size(), cv::Size(48, 64));
    EXPECT_EQ(cv::norm(turned, clockwise, cv::NORM_INF), 0);

    // HEIC, made by an encoder at test time.
    if (std::system("command -v heif-enc >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no HEIC encoder (heif-enc, from libheif-examples) is installed";
    save(blocks, dir / "for-heic.png", "PNG");
    const std::string encode = "heif-enc -L -o '" + (source / "IMG_0001.HEIC").string() + "' '" +
                               (dir / "for-heic.png").string() + "' >/dev/null 2>&1";
    ASSERT_EQ(std::system(encode.c_str()), 0);
    ASSERT_EQ(Import::kindOf(source / "IMG_0001.HEIC"), Import::Kind::heic);
    Import::Plan heic = Import::plan({source / "IMG_0001.HEIC"});
    heic.application = "Acme";
    heic.targetFlow = report.createdFlows[0];
    const Import::Report added = Import::run(library, heic);
    ASSERT_EQ(added.addedScreens.at(report.createdFlows[0]), (std::vector<std::string>{"03.png"}))
        << added.summary();
    EXPECT_EQ(added.summary(), "Added 1 screen to the flow.");
    const cv::Mat fromHeic = cv::imread((flow / "03.png").string(), cv::IMREAD_COLOR);
    ASSERT_EQ(fromHeic.size(), expected.size());
    // The encoder's "lossless" still goes through YCbCr: close to the original on average, and
    // each block's middle within a few steps.
    EXPECT_LE(cv::norm(fromHeic, expected, cv::NORM_L1) / (64.0 * 48 * 3), 3.0);
    for (int y = 8; y < 48; y += 16)
        for (int x = 8; x < 64; x += 16)
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(fromHeic.at<cv::Vec3b>(y, x)[c], expected.at<cv::Vec3b>(y, x)[c], 4);
}

TEST_F(ScreenImportTest, Mp4IsRewrappedWithoutReencodingAndOtherCodecsAreConverted) {
    library.open();
    fs::create_directories(source);
    ASSERT_TRUE(runPipeline("videotestsrc num-buffers=20 pattern=ball ! "
                            "video/x-raw,width=160,height=240,framerate=30/1 ! x264enc ! "
                            "video/x-h264,profile=high ! mp4mux ! filesink location=" +
                            (source / "clip.mp4").string()));
    ClipRecipe hevc;
    hevc.hevc10 = true;
    hevc.frames = 10;
    const bool haveHevc = writeClip(source / "hevc.mov", hevc);
    ASSERT_EQ(Import::kindOf(source / "clip.mp4"), Import::Kind::mpeg4);

    std::vector<fs::path> files{source / "clip.mp4"};
    if (haveHevc)
        files.push_back(source / "hevc.mov");
    Import::Plan plan = Import::plan(files);
    plan.application = "Acme";
    const Import::Report report = Import::run(library, plan);
    ASSERT_EQ(report.createdFlows.size(), 1u);
    ASSERT_TRUE(report.skipped.empty()) << report.skippedLines().front();
    const fs::path flow = root / report.createdFlows[0];
    const std::vector<std::string> expected = haveHevc
                                                  ? std::vector<std::string>{"01.mov", "02.mov"}
                                                  : std::vector<std::string>{"01.mov"};
    EXPECT_EQ(screensOf(report.createdFlows[0]), expected);
    EXPECT_EQ(Import::kindOf(flow / "01.mov"), Import::Kind::quickTime);
    EXPECT_EQ(MovieWriter::playableFrames(flow / "01.mov"), 20);
    const auto facts = streamFacts(flow / "01.mov");
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->codec, "video/x-h264");
    // Not re-encoded: every decoded frame is the source's, bit for bit.
    const auto before = lumaPlanes(source / "clip.mp4");
    const auto after = lumaPlanes(flow / "01.mov");
    ASSERT_EQ(before.size(), 20u);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < before.size(); ++i)
        EXPECT_EQ(cv::norm(before[i], after[i], cv::NORM_INF), 0) << "frame " << i;
    if (haveHevc) {
        const auto converted = streamFacts(flow / "02.mov");
        ASSERT_TRUE(converted);
        EXPECT_EQ(converted->codec, "video/x-h264");
        EXPECT_EQ(MovieWriter::playableFrames(flow / "02.mov"), 10);
    }
}

TEST_F(ScreenImportTest, HostileFilesAreSkippedWithAReasonAndNothingIsLost) {
    library.open();
    const fs::path shots = source / "Shots";
    save(marked(30, 60, 1), shots / "good.png", "PNG");
    const std::string odd = "new\nline ✓ \xff name.png"; // not even UTF-8
    save(marked(30, 60, 2), shots / odd, "PNG");
    const std::string whole = readFile(shots / "good.png");
    writeFile(shots / "truncated.png", whole.substr(0, whole.size() / 2));
    writeFile(shots / "empty.png", "");
    writeFile(shots / "text.png", "not a picture at all");
    save(marked(30, 60, 3), dir / "cut.jpg", "JPEG");
    const std::string jpeg = readFile(dir / "cut.jpg");
    writeFile(shots / "cut.jpg", jpeg.substr(0, jpeg.size() - 200));
    fs::create_symlink("loop-b.png", shots / "loop-a.png");
    fs::create_symlink("loop-a.png", shots / "loop-b.png");
    fs::create_symlink("gone.png", shots / "dangling.png");
    ASSERT_EQ(mkfifo((shots / "pipe.png").c_str(), 0600), 0);
    fs::create_directories(shots / "inner");
    save(marked(30, 60, 4), shots / "inner" / "deep.png", "PNG");
    fs::create_directory_symlink("..", shots / "inner" / "up");
    const auto sourceBefore = filesBelow(shots);

    Import::Plan plan = Import::plan({shots});
    plan.application = "Acme";
    const Import::Report report = Import::run(library, plan);
    std::map<std::string, std::string> reasons;
    for (const auto& skipped : report.skipped)
        reasons[skipped.file.filename().string()] = skipped.reason;
    EXPECT_EQ(reasons, (std::map<std::string, std::string>{
                           {"truncated.png", "the picture is cut short or damaged"},
                           {"cut.jpg", "the picture is cut short or damaged"},
                           {"empty.png", "the file is empty"},
                           {"text.png", "it isn’t a PNG, JPEG or HEIC picture, nor a MOV or MP4 "
                                        "clip"},
                           {"loop-a.png", "it is a link that leads back to itself"},
                           {"loop-b.png", "it is a link that leads back to itself"},
                           {"dangling.png", "it is a link to something that isn’t there"},
                           {"pipe.png", "it isn’t a file"},
                           {"up", "it is a link to a folder already imported"}}));
    // The folder's own files, then its subfolder's flow.
    ASSERT_EQ(report.createdFlows,
              (std::vector<std::string>{"acme/uncategorized/shots", "acme/uncategorized/inner"}));
    std::vector<int> tags;
    for (const auto& name : screensOf("acme/uncategorized/shots"))
        tags.push_back(tagOf(root / "acme/uncategorized/shots" / name));
    EXPECT_EQ(tags, (std::vector<int>{1, 2})) << "good.png, then the odd name";
    EXPECT_EQ(report.summary(), "Imported 3 screens into 2 flows; 9 files skipped.");
    EXPECT_EQ(filesBelow(shots), sourceBefore) << "the sources are untouched";
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(ScreenImportTest, ACancelKeepsWholeFlowsAndMakesNothingOfTheRest) {
    library.open();
    for (int flow = 1; flow <= 3; ++flow)
        for (int i = 1; i <= 4; ++i)
            save(marked(30, 60, flow * 10 + i),
                 source / ("Flow " + std::to_string(flow)) / ("s" + std::to_string(i) + ".png"),
                 "PNG");
    Import::Plan plan = Import::plan({source / "Flow 1", source / "Flow 2", source / "Flow 3"});
    plan.application = "Acme";
    const Import::Report report = Import::run(library, plan, [](const Import::Progress& now) {
        return now.flowsMade == 0; // stops once the first flow is in
    });
    EXPECT_TRUE(report.cancelled);
    ASSERT_FALSE(report.createdFlows.empty());
    EXPECT_EQ(report.createdFlows.size(), 1u) << "the cancel came right after the first";
    ASSERT_EQ(library.summaries().size(), report.createdFlows.size());
    for (const auto& folder : report.createdFlows)
        EXPECT_EQ(screensOf(folder).size(), 4u) << folder << " is whole";
    EXPECT_TRUE(leftovers().empty());
    EXPECT_NE(report.summary().find("The import was stopped"), std::string::npos);
}

TEST_F(ScreenImportTest, AFailedWriteAtAnyStepLeavesWholeFlowsOnlyAndTheSourcesIntact) {
    for (int flow = 1; flow <= 2; ++flow)
        for (int i = 1; i <= 2; ++i)
            save(marked(30, 60, flow * 10 + i),
                 source / ("Flow " + std::to_string(flow)) / ("s" + std::to_string(i) + ".png"),
                 "PNG");
    const auto sourceBefore = contents(source);
    // How many calls of each kind a whole import makes.
    std::map<FaultInjector::Kind, int> calls;
    {
        TempDir clean;
        FaultInjector counting;
        FlowLibrary counted{FlowStore(clean / "Library", counting.operations())};
        counted.open();
        Import::Plan plan = Import::plan({source / "Flow 1", source / "Flow 2"});
        plan.application = "Acme";
        ASSERT_EQ(Import::run(counted, plan).createdFlows.size(), 2u);
        for (auto kind : {FaultInjector::Kind::writer, FaultInjector::Kind::mover,
                          FaultInjector::Kind::remover, FaultInjector::Kind::creator})
            calls[kind] = counting.calls(kind);
    }
    for (const auto& [kind, count] : calls) {
        for (int n = 1; n <= count; ++n) {
            SCOPED_TRACE(std::string(name(kind)) + " call " + std::to_string(n));
            TempDir fresh;
            FaultInjector faults(kind, n);
            FlowLibrary faulty{FlowStore(fresh / "Library", faults.operations())};
            faulty.open();
            Import::Plan plan = Import::plan({source / "Flow 1", source / "Flow 2"});
            plan.application = "Acme";
            const Import::Report report = Import::run(faulty, plan);
            EXPECT_EQ(report.failure.has_value(), faults.fired() && report.createdFlows.size() < 2);
            // What opening the library finds afterwards: whole flows, nothing else.
            FlowLibrary reopened{FlowStore(fresh / "Library")};
            reopened.open();
            for (const auto& summary : reopened.summaries())
                EXPECT_EQ(reopened.store().meta(summary.folderName).screens.size(), 2u);
            EXPECT_GE(reopened.summaries().size(), report.createdFlows.size());
            for (const auto& name : FileOps::list(fresh / "Library"))
                EXPECT_TRUE(!name.starts_with(".") || name == LibraryLayout::kJournalFolder ||
                            name == ".thumbs")
                    << name;
            EXPECT_EQ(contents(source), sourceBefore);
        }
    }
}

TEST_F(ScreenImportTest, WhatAnInterruptedImportLeftIsRemovedWhenTheLibraryOpens) {
    library.open();
    const fs::path work =
        root / (std::string(LibraryLayout::kExtractionPrefix) + "0E9C4A1B-import");
    save(marked(30, 60, 1), work / "1" / "01.png", "PNG");
    FlowLibrary reopened{FlowStore(root)};
    reopened.open();
    EXPECT_FALSE(fs::exists(work));
    EXPECT_TRUE(reopened.summaries().empty());
}

TEST(ScreenImportOrder, NamesAreOrderedAsPeopleReadNumbers) {
    std::vector<std::string> names{"IMG_10.png",
                                   "img_2.png",
                                   "IMG_1.png",
                                   "IMG_002.png",
                                   "Screenshot 2026-11-25 at 9.05.png",
                                   "Screenshot 2026-11-25 at 10.01.png",
                                   "IMG_1a.png"};
    std::sort(names.begin(), names.end(), Import::naturalLess);
    EXPECT_EQ(names,
              (std::vector<std::string>{"IMG_1.png", "IMG_1a.png", "IMG_002.png", "img_2.png",
                                        "IMG_10.png", "Screenshot 2026-11-25 at 9.05.png",
                                        "Screenshot 2026-11-25 at 10.01.png"}));
}
