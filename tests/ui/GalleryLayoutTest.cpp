#include "ui/GalleryLayout.h"
#include "ui/GalleryContent.h"

#include <gtest/gtest.h>

using namespace varnel;

namespace {

FlowSummary flow(const std::string& app, const std::string& name,
                 std::optional<std::string> category, std::int64_t screens = 3) {
    FlowSummary s;
    s.id = app + "/" + name;
    if (!app.empty())
        s.application = app;
    s.name = name;
    s.folderName = app + "/" + category.value_or("uncategorized") + "/" + name;
    s.categoryL1 = std::move(category);
    s.screenCount = screens;
    return s;
}

std::vector<std::string> outline(const GalleryContent& content) {
    std::vector<std::string> out;
    for (const auto& row : content.rows) {
        switch (row.kind) {
        case GalleryRow::Kind::application:
            out.push_back("# " + row.title);
            break;
        case GalleryRow::Kind::category:
            out.push_back("## " + row.title);
            break;
        case GalleryRow::Kind::flow:
            out.push_back(content.flows[row.flow].name);
            break;
        }
    }
    return out;
}

const std::vector<FlowSummary> kLibrary{
    flow("Bank", "Transfer", std::nullopt), flow("Acme", "Sign up", "Onboarding"),
    flow("", "Loose", std::nullopt),        flow("Acme", "Password", "Settings"),
    flow("Acme", "Log in", "Onboarding"),   flow("Acme", "Browse", std::nullopt)};

} // namespace

TEST(GalleryContentTest, AllShowsEveryApplicationWithItsCategoriesInTheUsersOrder) {
    const auto content = GalleryContent::make(kLibrary, {"Settings", "Onboarding"}, std::nullopt);
    EXPECT_EQ(outline(content),
              (std::vector<std::string>{"# Acme", "## Settings", "Password", "## Onboarding",
                                        "Sign up", "Log in", "## Uncategorized", "Browse", "# Bank",
                                        "## Uncategorized", "Transfer", "# Sans application",
                                        "## Uncategorized", "Loose"}));
    ASSERT_TRUE(content.rowOfFlow("Acme/Onboarding/Log in"));
    EXPECT_EQ(content.rows[*content.rowOfFlow("Acme/Onboarding/Log in")].application, "Acme");
    EXPECT_EQ(content.rowOfCategory("Bank", "Uncategorized"), 9u);
    EXPECT_FALSE(content.rowOfCategory("Bank", "Settings"));
    EXPECT_FALSE(content.rowOfFlow("nowhere"));
}

TEST(GalleryContentTest, OneApplicationShowsOnlyItsCategories) {
    EXPECT_EQ(outline(GalleryContent::make(kLibrary, {}, std::string("Acme"))),
              (std::vector<std::string>{"## Onboarding", "Sign up", "Log in", "## Settings",
                                        "Password", "## Uncategorized", "Browse"}));
    EXPECT_EQ(outline(GalleryContent::make(kLibrary, {}, std::string("Sans application"))),
              (std::vector<std::string>{"## Uncategorized", "Loose"}));
    EXPECT_TRUE(GalleryContent::make(kLibrary, {}, std::string("Gone")).rows.empty());
    EXPECT_TRUE(GalleryContent::make({}, {}, std::nullopt).rows.empty());
}

class GalleryLayoutTest : public ::testing::Test {
protected:
    GalleryLayoutTest() {
        content = GalleryContent::make({flow("A", "One", "C", 7), flow("A", "Empty", "C", 0)}, {},
                                       std::string("A"));
        metrics.thumbHeight = 200; // tiles 92 wide, 106 apart
        layout.build(content, 2 * metrics.margin + 3 * 106 + 20, metrics);
    }
    GalleryContent content;
    GalleryMetrics metrics;
    GalleryLayout layout;
};

TEST_F(GalleryLayoutTest, BandsWrapTheirScreensIntoLines) {
    EXPECT_EQ(metrics.tileWidth(), 92);
    EXPECT_EQ(layout.perLine(), 3);
    ASSERT_EQ(layout.rowCount(), 3u);
    EXPECT_EQ(layout.rowHeight(0), metrics.categoryHeading);
    // Seven screens on three lines; an empty flow keeps one line for its message.
    EXPECT_EQ(layout.rowHeight(1),
              metrics.bandHeader + 3 * metrics.lineHeight() + metrics.bandBottom);
    EXPECT_EQ(layout.rowHeight(2), metrics.bandHeader + metrics.lineHeight() + metrics.bandBottom);
    EXPECT_EQ(layout.height(), layout.rowTop(2) + layout.rowHeight(2));

    EXPECT_EQ(layout.tileRect(1, 4),
              QRect(metrics.margin + 106,
                    layout.rowTop(1) + metrics.bandHeader + metrics.lineHeight(), 92, 200));
    // A narrow window still shows one screen a line.
    GalleryLayout narrow;
    narrow.build(content, 50, metrics);
    EXPECT_EQ(narrow.perLine(), 1);
}

TEST_F(GalleryLayoutTest, FindsRowsAndTilesUnderThePointer) {
    EXPECT_EQ(layout.rowAt(0), 0u);
    EXPECT_EQ(layout.rowAt(layout.rowTop(1) - 1), 0u);
    EXPECT_EQ(layout.rowAt(layout.rowTop(1)), 1u);
    EXPECT_FALSE(layout.rowAt(-1));
    EXPECT_FALSE(layout.rowAt(layout.height()));
    EXPECT_EQ(layout.rowsIn(layout.rowTop(1) + 5, layout.rowTop(2) + 1),
              (std::pair<std::size_t, std::size_t>{1, 3}));
    EXPECT_EQ(layout.rowsIn(layout.height() + 10, layout.height() + 20),
              (std::pair<std::size_t, std::size_t>{0, 0}));

    const QRect fifth = layout.tileRect(1, 4);
    EXPECT_EQ(layout.tileAt(1, fifth.center(), 7), 4u);
    EXPECT_EQ(layout.tileAt(1, fifth.bottomLeft() + QPoint(0, 10), 7), 4u) << "its caption";
    EXPECT_FALSE(layout.tileAt(1, fifth.topRight() + QPoint(5, 0), 7)) << "the gap between tiles";
    EXPECT_FALSE(
        layout.tileAt(1, layout.tileRect(1, 2).center() + QPoint(0, 2 * metrics.lineHeight()), 7))
        << "past the last screen";
    EXPECT_FALSE(layout.tileAt(1, layout.headerRect(1).center(), 7));
}

TEST_F(GalleryLayoutTest, DropsGoToTheNearerGap) {
    const QRect second = layout.tileRect(1, 1);
    EXPECT_EQ(layout.insertionAt(1, second.center() - QPoint(20, 0), 7), 1u);
    EXPECT_EQ(layout.insertionAt(1, second.center() + QPoint(20, 0), 7), 2u);
    EXPECT_EQ(layout.insertionAt(1, layout.tileRect(1, 2).topRight() + QPoint(30, 5), 7), 3u)
        << "right of a line's last tile: after it";
    EXPECT_EQ(layout.insertionAt(1, layout.headerRect(1).center(), 7), 7u) << "the title: the end";
    EXPECT_EQ(layout.insertionAt(1, layout.tileRect(1, 6).center() + QPoint(200, 0), 7), 7u);
    EXPECT_EQ(layout.insertionAt(2, layout.tileRect(2, 0).center(), 0), 0u) << "an empty flow";
    // The marker after a full line stays on that line.
    EXPECT_EQ(layout.insertionMarker(1, 3).top(), layout.tileRect(1, 2).top());
    EXPECT_GT(layout.insertionMarker(1, 3).left(), layout.tileRect(1, 2).right());
}
