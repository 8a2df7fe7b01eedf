#include "ui/MainWindow.h"
#include "app/AppSettings.h"
#include "library/FlowLibrary.h"
#include "support/TestLibrary.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QStatusBar>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

std::vector<std::string> outline(QTreeWidgetItem* parent, int depth = 0) {
    std::vector<std::string> out;
    for (int i = 0; i < parent->childCount(); ++i) {
        QTreeWidgetItem* child = parent->child(i);
        out.push_back(std::string(static_cast<std::size_t>(depth) * 2, ' ') +
                      child->text(0).toStdString());
        const auto below = outline(child, depth + 1);
        out.insert(out.end(), below.begin(), below.end());
    }
    return out;
}

} // namespace

TEST(MainWindowTest, ShowsApplicationsCategoriesAndFlowsAndFollowsChanges) {
    TempDir dir;
    SampleLibrary sample(dir / "Library");
    FlowLibrary library{FlowStore(sample.root)};
    AppSettings settings(std::make_unique<QSettings>(
        QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat));
    MainWindow window(library, settings);
    auto* tree = window.findChild<QTreeWidget*>();
    ASSERT_TRUE(tree);
    // Flows keep the user's order within their category.
    EXPECT_EQ(outline(tree->invisibleRootItem()),
              (std::vector<std::string>{"Acme", "  Onboarding", "    Sign up", "    Log in", "Bank",
                                        "  Uncategorized", "    Transfer"}));
    auto* status = window.statusBar()->findChild<QLabel*>();
    ASSERT_TRUE(status);
    EXPECT_TRUE(status->text().endsWith("3 flows")) << status->text().toStdString();

    auto* exportAction = window.findChild<QAction*>();
    for (QAction* action : window.findChildren<QAction*>())
        if (action->text() == "Export Application…")
            exportAction = action;
    ASSERT_EQ(exportAction->text(), "Export Application…");
    EXPECT_FALSE(exportAction->isEnabled()) << "nothing selected yet";
    tree->setCurrentItem(tree->topLevelItem(0)->child(0)->child(1));
    EXPECT_TRUE(exportAction->isEnabled());
    EXPECT_EQ(window.selectedApplication(), "Acme") << "a flow's row stands for its application";

    library.createEmptyFlow("Acme", "Pay", std::string("Payments"), Date{});
    library.moveCategory("Payments", std::string("Onboarding"));
    EXPECT_EQ(tree->topLevelItem(0)->child(0)->text(0), "Payments") << "the user's category order";
    library.deleteFlow("acme/payments/pay");

    library.deleteFlow(SampleLibrary::transfer);
    EXPECT_EQ(tree->topLevelItemCount(), 1);
    EXPECT_TRUE(status->text().endsWith("2 flows"));

    writeFile(sample.root / "index.json", "{");
    library.reload();
    EXPECT_TRUE(status->text().startsWith("Couldn’t read the library"))
        << status->text().toStdString();
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
