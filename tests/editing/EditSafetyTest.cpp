// Saving and reverting edits never touches another screen's files, never records what wasn't
// baked, and never leaves a screen without its untouched picture: real files, real PNG chunks.
#include "editing/ScreenEdits.h"
#include "library/LibraryCheck.h"
#include "library/ScreenFiles.h"
#include "media/PngImage.h"
#include "support/TestLibrary.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <zlib.h>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

RedactShape zone(double x, double y, double w, double h) {
    return {"", RedactShape::Kind::rect, {x, y, w, h}};
}

cv::Mat noise(int width, int height, int type) {
    cv::Mat image(height, width, type);
    cv::randu(image, cv::Scalar::all(0),
              cv::Scalar::all(CV_MAT_DEPTH(type) == CV_16U ? 65535 : 255));
    return image;
}

std::string chunk(const std::string& type, const std::string& data) {
    std::string out;
    const auto length = static_cast<std::uint32_t>(data.size());
    for (int shift : {24, 16, 8, 0})
        out += static_cast<char>((length >> shift) & 0xff);
    out += type + data;
    const std::string crcd = type + data;
    const auto crc = static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(crcd.data()), static_cast<uInt>(crcd.size())));
    for (int shift : {24, 16, 8, 0})
        out += static_cast<char>((crc >> shift) & 0xff);
    return out;
}

// The chunks between the header and the picture data, as they are in the file.
std::string chunksBeforePicture(const std::string& png) {
    const std::size_t start = 8 + 25;
    const std::size_t idat = png.find("IDAT");
    return idat == std::string::npos ? "" : png.substr(start, idat - 4 - start);
}

// A tagged picture of a phone, written the way such files come.
std::string taggedPng(const cv::Mat& pixels) {
    PngImage image;
    image.pixels = pixels;
    image.colourChunks = chunk("gAMA", std::string("\x00\x00\xb1\x8f", 4)) +
                         chunk("cHRM", std::string(32, '\x01')) +
                         chunk("cICP", std::string("\x0c\x0d\x00\x01", 4));
    return image.encode();
}

class EditSafetyTest : public ::testing::Test {
protected:
    EditSafetyTest() {
        folder = store.createEmptyFlow("Acme", "Sign up", std::nullopt, Date{}).folderName;
        cv::imwrite((dir / "a.png").string(), noise(60, 100, CV_8UC3));
        cv::imwrite((dir / "b.png").string(), noise(60, 100, CV_8UC3));
        writeFile(dir / "c.mov", "a clip");
        store.addScreens(folder, {dir / "a.png", dir / "b.png", dir / "c.mov"}, Date{});
    }
    fs::path file(const std::string& name) const { return root / folder / name; }
    void listPatches(const std::string& screen, const std::vector<std::string>& files) {
        FlowMeta meta = store.meta(folder);
        std::vector<RedactPatch> patches;
        for (const auto& name : files)
            patches.push_back({"", name, {0, 0, 0.5, 0.5}});
        meta.screen(screen)->patches = patches;
        store.writeMeta(folder, meta);
    }

    TempDir dir;
    fs::path root = dir / "library";
    FlowStore store{root};
    std::string folder;
    RedactStyle style = defaultStyle(RedactPreset::dark);
};

TEST_F(EditSafetyTest, APatchEntryNamesOnlyItsScreensOwnPatchFiles) {
    const std::string screen2 = readFile(file("02.png"));
    const std::string clip = readFile(file("03.mov"));
    writeFile(file("03.orig.mov"), "the untouched clip");
    listPatches("01.png", {"02.png", "03.orig.mov", "03.mov"});

    const ScreenRef entry = *store.meta(folder).screen("01.png");
    EXPECT_FALSE(entry.patches) << "none of them is a patch file";
    EXPECT_EQ(entry.refusedPatches.size(), 3u);
    const auto problems = checkLibrary(store);
    EXPECT_TRUE(std::any_of(problems.begin(), problems.end(), [](const std::string& p) {
        return p.find("“02.png” as its patch") != std::string::npos;
    })) << "check names the entry";

    ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 1, 0.5)}, style, {});
    ScreenEdits::revert(store, folder, "01.png");
    EXPECT_EQ(readFile(file("02.png")), screen2);
    EXPECT_EQ(readFile(file("03.mov")), clip);
    EXPECT_EQ(readFile(file("03.orig.mov")), "the untouched clip");
    EXPECT_TRUE(store.meta(folder).screen("01.png")->refusedPatches.empty())
        << "the next write drops the entries";

    // A patch file claimed by two screens is one screen's only.
    const std::string shared = "01.patch-5A0B4C1D-0000-4000-8000-000000000009.png";
    writeFile(file(shared), "patch");
    listPatches("01.png", {shared});
    listPatches("02.png", {shared});
    EXPECT_TRUE(store.meta(folder).screen("01.png")->patches);
    EXPECT_FALSE(store.meta(folder).screen("02.png")->patches);
    ScreenEdits::revert(store, folder, "02.png");
    EXPECT_EQ(readFile(file(shared)), "patch");
}

TEST_F(EditSafetyTest, AnUndecodablePictureIsNeverReportedBlurred) {
    const std::string whole = readFile(file("01.png"));
    const std::string truncated = whole.substr(0, whole.size() * 2 / 3);
    writeFile(file("01.png"), truncated);
    try {
        ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 1, 1)}, style, {});
        FAIL() << "a picture cut short was saved";
    } catch (const LibraryError& e) {
        EXPECT_NE(std::string(e.what()).find("can’t be decoded"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("as it was before"), std::string::npos) << e.what();
    }
    EXPECT_EQ(readFile(file("01.png")), truncated);
    EXPECT_FALSE(fs::exists(file("01.orig.png")));
    EXPECT_FALSE(store.meta(folder).screen("01.png")->redactions) << "nothing recorded";
}

TEST_F(EditSafetyTest, ZoneValuesAreFiniteAndOnThePictureWhereverTheyComeFrom) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::string before = readFile(file("meta.json"));
    EXPECT_THROW(ScreenEdits::save(store, folder, "01.png", {zone(nan, 0, 0.5, 0.5)}, style, {}),
                 LibraryError);
    EXPECT_THROW(store.setEdits(folder, "01.png", {zone(0, 0, INFINITY, 1)}, style, {}),
                 LibraryError);
    EXPECT_EQ(readFile(file("meta.json")), before);
    EXPECT_FALSE(fs::exists(file("01.orig.png")));

    // Finite values are clamped to the picture.
    ScreenEdits::save(store, folder, "01.png", {zone(-0.25, 0.5, 0.5, 0.75)}, style, {});
    EXPECT_EQ(store.meta(folder).screen("01.png")->redactions->at(0).rect,
              (NormalizedRect{0, 0.5, 0.25, 0.5}));

    // A null written by an older version leaves the flow readable, without that zone.
    Json json = parseLibraryJson(readFile(file("meta.json")));
    json["screens"][0]["redactions"].push_back(
        Json{{"kind", "rect"}, {"rect", Json::array({Json::array({nullptr, 0}), {0.5, 0.5}})}});
    writeFile(file("meta.json"), json.dump());
    const ScreenRef entry = *store.meta(folder).screen("01.png");
    EXPECT_EQ(entry.redactions->size(), 1u);
    EXPECT_EQ(entry.refusedZones, 1);
}

TEST_F(EditSafetyTest, AFailedRecordLeavesTheScreenAndItsOldPatchesAsTheyWere) {
    const std::string old = "01.patch-5A0B4C1D-0000-4000-8000-00000000000A.png";
    ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 1, 0.5)}, style, {});
    writeFile(file(old), readFile(file("02.png")));
    FlowMeta meta = store.meta(folder);
    meta.screen("01.png")->patches = std::vector<RedactPatch>{{"", old, {0, 0, 0.5, 0.5}}};
    store.writeMeta(folder, meta);
    const auto before = treeSnapshot(root / folder);

    FaultInjector failing(FaultInjector::Kind::writer, 1);
    FlowStore faulty(root, failing.operations());
    cv::Mat patch = noise(10, 10, CV_8UC4);
    try {
        ScreenEdits::save(faulty, folder, "01.png", {zone(0, 0.5, 1, 0.5)}, style,
                          {{patch, {0.1, 0.1, 0.2, 0.2}}});
        FAIL() << "the record was written";
    } catch (const LibraryError& e) {
        EXPECT_NE(std::string(e.what()).find("as it was before"), std::string::npos) << e.what();
    }
    EXPECT_TRUE(failing.fired());
    EXPECT_EQ(treeSnapshot(root / folder), before)
        << "the baked screen, the old patch file and no new patch file";
}

TEST_F(EditSafetyTest, ColourChunksAndEveryPixelOutsideTheZonesSurviveABake) {
    for (const int type : {CV_16UC4, CV_16UC3, CV_8UC1, CV_8UC2, CV_8UC4}) {
        SCOPED_TRACE(type);
        cv::Mat pixels = noise(60, 100, type);
        if (CV_MAT_CN(type) == 4) { // opaque, as screenshots are
            std::vector<cv::Mat> channels;
            cv::split(pixels, channels);
            channels[3].setTo(pixels.depth() == CV_16U ? 65535 : 255);
            cv::merge(channels, pixels);
        }
        const std::string png = taggedPng(pixels);
        auto decoded = PngImage::decode(png);
        ASSERT_TRUE(std::holds_alternative<PngImage>(decoded));
        const cv::Mat untouched = std::get<PngImage>(decoded).pixels;
        writeFile(dir / "tagged.png", png);
        const auto name = store.addScreens(folder, {dir / "tagged.png"}, Date{}).front();

        ScreenEdits::save(store, folder, name, {zone(0, 0, 1, 0.25)}, style,
                          {{noise(8, 8, CV_8UC4), {0.5, 0.9, 0.25, 0.05}}});
        const std::string baked = readFile(file(name));
        EXPECT_EQ(chunksBeforePicture(baked), chunksBeforePicture(png)) << "byte for byte";
        auto result = PngImage::decode(baked);
        ASSERT_TRUE(std::holds_alternative<PngImage>(result));
        const cv::Mat after = std::get<PngImage>(result).pixels;
        ASSERT_EQ(after.depth(), untouched.depth());
        ASSERT_EQ(after.size(), untouched.size());
        cv::Mat a = after, b = untouched;
        if (a.channels() != b.channels()) // opaque BGRA comes back as BGR
            cv::cvtColor(b, b, cv::COLOR_BGRA2BGR);
        const cv::Range outside(27, 88);
        EXPECT_EQ(cv::norm(a.rowRange(outside), b.rowRange(outside), cv::NORM_INF), 0);
        EXPECT_GT(cv::norm(a.rowRange(0, 20), b.rowRange(0, 20), cv::NORM_L1), 0);
        EXPECT_EQ(readFile(root / folder / ScreenFiles::originalFilename(name)), png);
    }
}

} // namespace
