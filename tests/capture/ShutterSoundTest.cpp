// The shutter sound's catalogue and playing.
#include "capture/ShutterSound.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

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
