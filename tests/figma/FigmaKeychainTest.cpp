// The token in a real Secret Service: the test runs inside its own D-Bus session with an
// unlocked gnome-keyring (see with-secret-service.sh).
#include "figma/FigmaAuth.h"
#include "figma/KeychainStore.h"

#include <QCoreApplication>
#include <QProcess>

#include <gtest/gtest.h>

namespace varnel {
namespace {

// What the desktop's own tool finds under the service and account.
std::string lookedUp(const std::string& service, const std::string& account) {
    QProcess tool;
    tool.start("secret-tool", {"lookup", "server", QString::fromStdString(service), "user",
                               QString::fromStdString(account)});
    tool.waitForFinished(30000);
    return tool.readAllStandardOutput().toStdString();
}

class FigmaKeychainTest : public ::testing::Test {
protected:
    void TearDown() override { store.remove(FigmaAuth::kAccount); }
    KeychainStore store;
};

TEST_F(FigmaKeychainTest, TokenIsStoredTrimmedAndForgottenWhenBlank) {
    EXPECT_EQ(store.service(), "design.mirta.quillane.figma");
    EXPECT_EQ(FigmaAuth::token(store), std::nullopt);

    FigmaAuth::setToken("  figd_abc123\n", store);
    EXPECT_EQ(FigmaAuth::token(store), "figd_abc123");
    EXPECT_EQ(lookedUp("design.mirta.quillane.figma", "pat"), "figd_abc123");

    FigmaAuth::setToken("figd_replaced", store); // replaces, never adds a second item
    EXPECT_EQ(FigmaAuth::token(store), "figd_replaced");

    FigmaAuth::setToken(" \n\t ", store);
    EXPECT_EQ(FigmaAuth::token(store), std::nullopt);
    EXPECT_EQ(store.data(FigmaAuth::kAccount), std::nullopt);
    EXPECT_EQ(lookedUp("design.mirta.quillane.figma", "pat"), "");
}

TEST_F(FigmaKeychainTest, UnusableItemsReadAsNoToken) {
    store.set("\xff\xfe not text", FigmaAuth::kAccount);
    EXPECT_TRUE(store.data(FigmaAuth::kAccount));
    EXPECT_EQ(FigmaAuth::token(store), std::nullopt);
    store.set("", FigmaAuth::kAccount);
    EXPECT_EQ(FigmaAuth::token(store), std::nullopt);

    // Another service's item is not ours.
    KeychainStore other("design.mirta.quillane.other");
    other.set("theirs", FigmaAuth::kAccount);
    EXPECT_EQ(FigmaAuth::token(store), std::nullopt);
    other.remove(FigmaAuth::kAccount);
}

} // namespace
} // namespace varnel

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv); // keychain calls wait in a local event loop
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
