#include "model/FlowLibrary.h"
#include "organization/CategorizeSheet.h"
#include "organization/CategorySuggestions.h"
#include "organization/LibraryGrouping.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

FlowSummary flow(const std::string& name, std::optional<std::string> category,
                 std::optional<std::string> application = "App") {
    return {name, application, name, "app/x/" + name, category, Date{}, 1};
}

std::vector<std::string> names(const std::vector<CategoryGroup>& groups) {
    std::vector<std::string> out;
    for (const auto& g : groups)
        out.push_back(g.name);
    return out;
}

} // namespace

TEST(LibraryGroupingTest, OrdersGroupsByTheUsersOrderThenByNameWithUncategorizedLast) {
    const std::vector<FlowSummary> flows{flow("1", "Payments"), flow("2", std::nullopt),
                                         flow("3", "alpha"),    flow("4", "Beta"),
                                         flow("5", "Payments"), flow("6", "Zeta")};
    EXPECT_EQ(names(LibraryGrouping::group(flows, {})),
              (std::vector<std::string>{"Beta", "Payments", "Zeta", "alpha", "Uncategorized"}));
    EXPECT_EQ(names(LibraryGrouping::group(flows, {"Uncategorized", "Zeta", "Gone", "alpha"})),
              (std::vector<std::string>{"Zeta", "alpha", "Beta", "Payments", "Uncategorized"}));
    EXPECT_EQ(names(LibraryGrouping::group(flows, {"Payments", "Beta", "Payments"})),
              (std::vector<std::string>{"Payments", "Beta", "Zeta", "alpha", "Uncategorized"}))
        << "a name listed twice keeps its first place";

    const auto groups = LibraryGrouping::group(flows, {});
    ASSERT_EQ(groups[1].flows.size(), 2u);
    EXPECT_EQ(groups[1].flows[0].id, "1") << "each group keeps the order it was given";
    EXPECT_EQ(groups[1].flows[1].id, "5");
    EXPECT_TRUE(LibraryGrouping::group({}, {"x"}).empty());
}

TEST(CategorySuggestionsTest, DistinctSortedAndScopedToTheApplication) {
    EXPECT_EQ(CategorySuggestions::distinctSorted({"b", "", "a", "b", "  "}),
              (std::vector<std::string>{"  ", "a", "b"}));
    std::vector<FlowSummary> flows;
    for (int i = 0; i < 10; ++i)
        flows.push_back(flow("f" + std::to_string(i), "Settings"));
    flows.push_back(flow("x", "", "App"));
    flows.push_back(flow("y", "Login", "app"));
    flows.push_back(flow("z", "Home", std::nullopt));
    EXPECT_EQ(CategorySuggestions::categories("App", flows), std::vector<std::string>{"Settings"});
    EXPECT_EQ(CategorySuggestions::categories("app", flows), std::vector<std::string>{"Login"});
    EXPECT_EQ(LibraryGrouping::applications(flows), (std::vector<std::string>{"App", "app"}));
}

class CategorizeSheetTest : public ::testing::Test {
protected:
    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowLibrary library{FlowStore(sample.root)};
};

TEST_F(CategorizeSheetTest, ListsFlowsByApplicationThenLowerCasedName) {
    library.createEmptyFlow("Acme", "account", std::nullopt, Date{});
    FlowMeta orphan = library.meta(SampleLibrary::transfer);
    orphan.application.reset();
    library.saveMeta(SampleLibrary::transfer, orphan);

    CategorizeAny::Sheet sheet(library);
    std::vector<std::string> order;
    for (const auto& f : sheet.flows())
        order.push_back(f.name);
    EXPECT_EQ(order, (std::vector<std::string>{"account", "Log in", "Sign up", "Transfer"}));
}

TEST_F(CategorizeSheetTest, PrefillsSuggestsAndSavesTrimmedValues) {
    CategorizeAny::Sheet sheet(library);
    sheet.prefill(SampleLibrary::transfer);
    EXPECT_EQ(sheet.application, "Bank");
    EXPECT_EQ(sheet.category, "");
    sheet.application = "Acme";
    EXPECT_EQ(sheet.categorySuggestions(), std::vector<std::string>{"Onboarding"});
    EXPECT_EQ(sheet.applicationSuggestions(), (std::vector<std::string>{"Acme", "Bank"}));

    sheet.category = "  Settings ";
    const std::string moved = sheet.save();
    EXPECT_EQ(moved, "acme/settings/transfer");
    EXPECT_EQ(library.meta(moved).categoryL1, "Settings");
    EXPECT_FALSE(fs::exists(sample.root / "bank"));

    sheet.category = "   ";
    EXPECT_EQ(sheet.save(), "acme/uncategorized/transfer");
    EXPECT_FALSE(library.meta("acme/uncategorized/transfer").categoryL1);
}

TEST_F(CategorizeSheetTest, AFlowThatCantBeReadIsNotSaved) {
    CategorizeAny::Sheet sheet(library);
    sheet.prefill(SampleLibrary::logIn);
    writeFile(sample.root / SampleLibrary::logIn / "meta.json", "{");
    sheet.category = "Elsewhere";
    EXPECT_THROW(sheet.save(), DecodingError);
    EXPECT_EQ(sheet.selectedFolder(), std::string(SampleLibrary::logIn));
    EXPECT_TRUE(fs::exists(sample.root / SampleLibrary::logIn));
    EXPECT_THROW(sheet.prefill("no/such/flow"), FlowNotFoundError);
}
