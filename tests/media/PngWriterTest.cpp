// Stills as PNG files: every pixel survives the encoder, at any size and row padding.
#include "media/PngWriter.h"

#include <QImage>

#include <gtest/gtest.h>

#include <random>

using namespace varnel;

namespace {

// A BGRA picture with flat areas, a gradient and noise, rows padded past their width.
std::vector<std::uint8_t> picture(int width, int height, std::size_t stride) {
    std::vector<std::uint8_t> pixels(stride * static_cast<std::size_t>(height), 0xee);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &pixels[static_cast<std::size_t>(y) * stride + x * 4];
            if (y < height / 3) {
                p[0] = 0x20, p[1] = 0x40, p[2] = 0xc0;
            } else if (y < 2 * height / 3) {
                p[0] = static_cast<std::uint8_t>(x), p[1] = static_cast<std::uint8_t>(y),
                p[2] = static_cast<std::uint8_t>(x + y);
            } else {
                p[0] = random() & 0xff, p[1] = random() & 0xff, p[2] = random() & 0xff;
            }
            p[3] = 0x00; // BGRx sources leave alpha at 0: the still must stay opaque
        }
    }
    return pixels;
}

TEST(PngWriterTest, DecodesToTheSamePixelsAtAnySize) {
    for (const auto& [width, height] :
         std::vector<std::pair<int, int>>{{1, 1}, {3, 70}, {321, 241}, {1179, 2556}}) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        const std::size_t stride = static_cast<std::size_t>(width) * 4 + 12;
        const auto pixels = picture(width, height, stride);
        const std::string png = PngWriter::encode(pixels.data(), width, height, stride);
        QImage image;
        ASSERT_TRUE(image.loadFromData(reinterpret_cast<const uchar*>(png.data()),
                                       static_cast<int>(png.size()), "PNG"));
        ASSERT_EQ(image.size(), QSize(width, height));
        EXPECT_FALSE(image.hasAlphaChannel());
        int wrong = 0;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const std::uint8_t* p = &pixels[static_cast<std::size_t>(y) * stride + x * 4];
                if (image.pixel(x, y) != qRgb(p[2], p[1], p[0]))
                    ++wrong;
            }
        }
        EXPECT_EQ(wrong, 0);
    }
}

TEST(PngWriterTest, RefusesAPictureWithoutRows) {
    std::uint8_t pixel[4] = {};
    EXPECT_THROW(PngWriter::encode(pixel, 0, 1, 4), std::invalid_argument);
    EXPECT_THROW(PngWriter::encode(pixel, 2, 1, 4), std::invalid_argument) << "stride too short";
}

} // namespace
