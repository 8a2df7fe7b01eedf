// Blur zones on real pictures: where they land, what they leave alone, and their two extremes.
#include "editing/ImageRedactor.h"
#include "support/TestLibrary.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

RedactShape zone(RedactShape::Kind kind, double x, double y, double w, double h) {
    RedactShape shape;
    shape.kind = kind;
    shape.rect = {x, y, w, h};
    return shape;
}

// Stripes and a gradient: blurring visibly changes every part of it.
cv::Mat pattern(int width, int height) {
    cv::Mat image(height, width, CV_8UC4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.at<cv::Vec4b>(y, x) = ((x / 4 + y / 4) % 2)
                                            ? cv::Vec4b(20, static_cast<uchar>(y), 200, 255)
                                            : cv::Vec4b(230, 240, static_cast<uchar>(x), 255);
    return image;
}

class RedactorTest : public ::testing::Test {
protected:
    RedactorTest() { cv::imwrite(file.string(), original); }
    cv::Mat result() { return ImageRedactor::load(file); }
    // Rows [first, end) of the result equal the original's.
    bool rowsUnchanged(int first, int end) {
        const cv::Mat now = result();
        return cv::norm(now.rowRange(first, end), original.rowRange(first, end), cv::NORM_INF) == 0;
    }

    TempDir dir;
    fs::path file = dir / "01.png";
    cv::Mat original = pattern(200, 400);
    RedactStyle style; // light preset: white, 0.35, sigma 50
};

TEST_F(RedactorTest, AZoneAtTheTopLandsAtTheTop) {
    ASSERT_TRUE(ImageRedactor::apply({zone(RedactShape::Kind::rect, 0, 0, 1, 0.25)}, file,
                                     std::nullopt, style));
    EXPECT_TRUE(rowsUnchanged(100, 400)) << "below the zone nothing moves, not even its edge row";
    EXPECT_FALSE(rowsUnchanged(0, 99)) << "the zone is frosted";
}

TEST_F(RedactorTest, AnEllipseOverTheWholePictureLeavesTheCornersClear) {
    ASSERT_TRUE(ImageRedactor::apply({zone(RedactShape::Kind::ellipse, 0, 0, 1, 1)}, file,
                                     std::nullopt, style));
    const cv::Mat now = result();
    for (const cv::Point corner : {cv::Point(0, 0), cv::Point(199, 0), cv::Point(0, 399),
                                   cv::Point(199, 399), cv::Point(10, 10)})
        EXPECT_EQ(now.at<cv::Vec4b>(corner), original.at<cv::Vec4b>(corner)) << corner;
    EXPECT_NE(now.at<cv::Vec4b>(200, 100), original.at<cv::Vec4b>(200, 100));
}

TEST_F(RedactorTest, OpacityZeroIsAPlainBlurOfTheWholePicture) {
    style.opacity = 0;
    style.blur = 6;
    ASSERT_TRUE(ImageRedactor::apply({zone(RedactShape::Kind::rect, 0.25, 0.25, 0.5, 0.5)}, file,
                                     std::nullopt, style));
    cv::Mat expected;
    cv::GaussianBlur(original, expected, cv::Size(0, 0), 6, 6, cv::BORDER_REPLICATE);
    const cv::Rect inside(60, 110, 80, 180); // well inside the zone's edges
    EXPECT_LE(cv::norm(result()(inside), expected(inside), cv::NORM_INF), 1)
        << "blurring only around the zone gives what blurring everything gives";
}

TEST_F(RedactorTest, BlurZeroWithOpacityOneIsAFlatFill) {
    style = {0.2, 0.4, 0.6, 1.0, 0};
    ASSERT_TRUE(ImageRedactor::apply({zone(RedactShape::Kind::rect, 0.5, 0.5, 0.5, 0.5)}, file,
                                     std::nullopt, style));
    const cv::Mat inside = result()(cv::Rect(102, 202, 96, 196));
    cv::Mat flat(inside.size(), CV_8UC4, cv::Scalar(153, 102, 51, 255));
    EXPECT_LE(cv::norm(inside, flat, cv::NORM_INF), 1);
}

TEST_F(RedactorTest, TheSourceIsReadAndTheDestinationWritten) {
    const fs::path copy = dir / "01.orig.png";
    cv::imwrite(copy.string(), original);
    writeFile(file, "not a picture");
    ASSERT_TRUE(
        ImageRedactor::apply({zone(RedactShape::Kind::rect, 0, 0, 0.5, 0.5)}, file, copy, style));
    EXPECT_TRUE(rowsUnchanged(200, 400));
    EXPECT_EQ(cv::norm(ImageRedactor::load(copy), original, cv::NORM_INF), 0) << "source untouched";

    writeFile(file, "not a picture");
    EXPECT_FALSE(ImageRedactor::apply({zone(RedactShape::Kind::rect, 0, 0, 1, 1)}, file,
                                      std::nullopt, style));
    EXPECT_EQ(readFile(file), "not a picture");
    EXPECT_FALSE(ImageRedactor::apply({}, copy, std::nullopt, style)) << "no zones, no write";

    cv::Mat deep;
    original.convertTo(deep, CV_16U, 257);
    cv::imwrite(copy.string(), deep);
    const cv::Mat loaded = ImageRedactor::load(copy);
    ASSERT_EQ(loaded.type(), CV_8UC4) << "16-bit pictures are read as 8-bit";
    EXPECT_EQ(cv::norm(loaded, original, cv::NORM_INF), 0);
}

TEST(MaskTest, RectanglesAndEllipsesWithSoftEdges) {
    const auto mask =
        ImageRedactor::maskImage({zone(RedactShape::Kind::rect, 0.25, 0.125, 0.5, 0.25)}, 100, 100);
    ASSERT_TRUE(mask);
    EXPECT_EQ(mask->type(), CV_8UC1);
    EXPECT_EQ(mask->at<uchar>(20, 50), 255) << "inside";
    EXPECT_EQ(mask->at<uchar>(60, 50), 0) << "below";
    EXPECT_EQ(mask->at<uchar>(20, 10), 0) << "left of it";
    // An edge half-way through a pixel is half covered.
    const auto half =
        ImageRedactor::maskImage({zone(RedactShape::Kind::rect, 0.105, 0, 0.5, 1)}, 100, 10);
    EXPECT_GT(half->at<uchar>(5, 10), 40);
    EXPECT_LT(half->at<uchar>(5, 10), 215);
    const auto ellipse =
        ImageRedactor::maskImage({zone(RedactShape::Kind::ellipse, 0, 0, 1, 1)}, 50, 50);
    EXPECT_EQ(ellipse->at<uchar>(0, 0), 0);
    EXPECT_EQ(ellipse->at<uchar>(25, 25), 255);
    EXPECT_FALSE(ImageRedactor::maskImage({}, 0, 10));
}

} // namespace
