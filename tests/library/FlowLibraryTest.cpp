#include "model/FlowLibrary.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class FlowLibraryTest : public ::testing::Test {
protected:
    TempDir dir;
    SampleLibrary sample{dir / "Library"};
};

} // namespace

TEST_F(FlowLibraryTest, PublishesTheIndexAndApplications) {
    FlowLibrary library{FlowStore(sample.root)};
    EXPECT_EQ(library.summaries().size(), 3u);
    EXPECT_EQ(library.applications(), (std::vector<std::string>{"Acme", "Bank"}));
    EXPECT_FALSE(library.loadError());
    EXPECT_EQ(library.meta(SampleLibrary::signUp).screens.size(), 3u);
}

TEST_F(FlowLibraryTest, MissingIndexIsAnEmptyLibrary) {
    FlowLibrary library{FlowStore(dir / "Nothing")};
    EXPECT_TRUE(library.summaries().empty());
    EXPECT_FALSE(library.loadError());
    EXPECT_FALSE(fs::exists(dir / "Nothing")) << "opening writes nothing";
}

TEST_F(FlowLibraryTest, UnreadableIndexIsReportedAndNotReplaced) {
    writeFile(sample.root / "index.json", "[]");
    FlowLibrary library{FlowStore(sample.root)};
    ASSERT_TRUE(library.loadError());
    EXPECT_NE(library.loadError()->find("index.json"), std::string::npos);
    EXPECT_THROW(library.createEmptyFlow("A", "B", std::nullopt, Date{}), DecodingError);
    EXPECT_EQ(readFile(sample.root / "index.json"), "[]");
}

TEST_F(FlowLibraryTest, EveryChangeReloadsEvenWhenItFails) {
    FlowLibrary library{FlowStore(sample.root)};
    int reloads = 0;
    QObject::connect(&library, &FlowLibrary::changed, [&] { ++reloads; });

    library.createEmptyFlow("Zeta", "New", std::string("Settings"), Date{});
    EXPECT_EQ(reloads, 1);
    EXPECT_EQ(library.summaries().size(), 4u);
    EXPECT_EQ(library.applications().back(), "Zeta");

    EXPECT_THROW(library.deleteFlow("../escape"), UnsafeNameError);
    EXPECT_EQ(reloads, 2);

    const std::string moved = library.moveFlow(SampleLibrary::transfer, "Zeta", std::nullopt);
    EXPECT_EQ(library.applications(), (std::vector<std::string>{"Acme", "Zeta"}));
    EXPECT_EQ(library.meta(moved).application, "Zeta") << "the cache does not serve stale metas";
}

TEST_F(FlowLibraryTest, RemovingTheLastScreenDeletesAFlowNotMadeEmptyOnPurpose) {
    FlowLibrary library{FlowStore(sample.root)};
    std::vector<ThumbEdits> thumbs;
    QObject::connect(&library, &FlowLibrary::thumbnailsChanged,
                     [&](const ThumbEdits& e) { thumbs.push_back(e); });
    library.deleteScreens(SampleLibrary::logIn, {"01.png", "02.png"});
    EXPECT_FALSE(fs::exists(sample.root / SampleLibrary::logIn));
    EXPECT_EQ(library.summaries().size(), 2u);
    ASSERT_EQ(thumbs.size(), 1u);
    EXPECT_EQ(thumbs[0].removals.size(), 2u);

    library.moveScreens(SampleLibrary::transfer, {"01.png"}, SampleLibrary::signUp, 3);
    EXPECT_EQ(library.meta(SampleLibrary::signUp).screens.size(), 4u);
    EXPECT_TRUE(library.meta(SampleLibrary::transfer).screens.empty())
        << "a flow made empty on purpose stays";
}
