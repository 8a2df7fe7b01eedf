// Stills as PNG files and the shutter sound's catalogue and playing.
#include "library/PngWriter.h"
#include "capture/ShutterSound.h"
#include "support/TestLibrary.h"

#include <QImage>

#include <gtest/gtest.h>

#include <random>

using namespace varnel;
using namespace varnel::test;

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

class ShutterTest : public ::testing::Test {
protected:
    ShutterTest() {
        for (const char* name :
             {"zeta.wav", "Shutter.aiff", "alpha_beep.oga", "notes.txt", "Glass.WAV"})
            writeFile(dir / "first" / name, "sound");
        for (const char* name : {"alpha_beep.flac", "camera.ogg"})
            writeFile(dir / "second" / name, "sound");
    }
    TempDir dir;
};

TEST_F(ShutterTest, CatalogueListsShutterFirstThenByNameOncePerId) {
    const auto options = ShutterSound::catalogue({dir / "first", dir / "missing", dir / "second"});
    std::vector<std::string> ids;
    for (const auto& option : options)
        ids.push_back(option.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"Shutter", "alpha_beep", "camera", "Glass", "zeta"}));
    EXPECT_EQ(options[1].displayName, "alpha beep");
    EXPECT_EQ(options[1].url, dir / "first" / "alpha_beep.oga") << "the first folder wins";
}

TEST_F(ShutterTest, PlaysTheChosenSoundAtAClampedVolume) {
    const auto bell = fs::path("/usr/share/sounds/freedesktop/stereo/bell.oga");
    ASSERT_TRUE(fs::exists(bell)) << "the sound theme is installed by the project's set-up";
    ShutterSound sound({bell.parent_path()}, "fakesink");
    ASSERT_TRUE(sound.play("bell", 3.0));
    EXPECT_EQ(sound.loadedFile(), bell);
    EXPECT_DOUBLE_EQ(sound.volume(), 1.0);
    ASSERT_TRUE(sound.play("bell", -0.5));
    EXPECT_DOUBLE_EQ(sound.volume(), 0.0);
    ASSERT_TRUE(sound.play("bell", 0.25));
    EXPECT_DOUBLE_EQ(sound.volume(), 0.25);

    // A name that is nowhere falls back to the theme's camera shutter.
    ASSERT_TRUE(sound.play("Shutter", 1));
    EXPECT_EQ(sound.loadedFile().filename(), "camera-shutter.oga");
}

} // namespace
