#include "app/LibraryLock.h"
#include "library/Errors.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

using namespace varnel;
using namespace varnel::test;

namespace {

std::string process(long pid) {
    return "(process " + std::to_string(pid) + ")";
}

// A process id that no process has any more.
long finishedProcess() {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return child;
}

// What `body` returns when run in a child process as `uid` (when given; only root may switch).
std::string runAs(std::optional<uid_t> uid, const std::function<std::string()>& body) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0)
        return "no pipe";
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(pipeFds[0]);
        std::string answer;
        if (uid && (::setgid(*uid) != 0 || ::setuid(*uid) != 0))
            answer = "couldn't switch user";
        else
            answer = body();
        [[maybe_unused]] const auto written = ::write(pipeFds[1], answer.data(), answer.size());
        ::_exit(0);
    }
    ::close(pipeFds[1]);
    std::string answer;
    char buffer[512];
    for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;)
        answer.append(buffer, static_cast<std::size_t>(n));
    ::close(pipeFds[0]);
    ::waitpid(child, nullptr, 0);
    return answer;
}

std::string readOnlyReason(const fs::path& root) {
    std::optional<std::string> reason;
    const auto lock = takeLibrary(root, reason);
    return lock ? "taken" : reason.value_or("held");
}

std::string changeRefusal(const fs::path& root) {
    try {
        lockForChange(root);
        return "locked";
    } catch (const LibraryError& e) {
        return e.what();
    }
}

std::string nameOf(uid_t uid) {
    const passwd* entry = ::getpwuid(uid);
    return entry ? entry->pw_name : "user " + std::to_string(uid);
}

} // namespace

TEST(LibraryLockTest, ThoseKeptAwaySayWhichProgramHoldsTheLibrary) {
    TempDir dir;
    const fs::path root = dir / "Library";
    fs::create_directories(root);
    const long me = ::getpid();
    {
        auto cli = LibraryLock::acquire(root, LibraryLock::kCommandLineProgram);
        ASSERT_TRUE(cli);
        const auto holder = LibraryLock::holder(root);
        ASSERT_TRUE(holder);
        EXPECT_EQ(holder->program, "varnel-cli");
        EXPECT_EQ(holder->pid, me);
        EXPECT_EQ(heldReason(root), "varnel-cli " + process(me) + " is changing this library.");
        EXPECT_EQ(heldMessage(root), "The library at " + root.string() +
                                         " is being changed by another varnel-cli " + process(me) +
                                         "; try again once it is done.");
        std::optional<std::string> reason;
        EXPECT_FALSE(takeLibrary(root, reason));
        EXPECT_FALSE(reason) << "held, not unwritable: the window may still hand over";
    }
    {
        std::optional<std::string> reason;
        auto window = takeLibrary(root, reason);
        ASSERT_TRUE(window);
        EXPECT_EQ(LibraryLock::holder(root)->program, "varnel");
        EXPECT_EQ(heldReason(root),
                  "another Varnel window " + process(me) + " has this library open.");
        EXPECT_EQ(changeRefusal(root), "The library at " + root.string() + " is open in Varnel " +
                                           process(me) +
                                           "; make the change there, or quit Varnel first.");
    }
    // A record left by a process that is gone, or one that can't be read, names no one.
    const fs::path lockFile = root / LibraryLock::kFileName;
    for (const std::string& record :
         {"varnel-cli " + std::to_string(finishedProcess()) + "\n", std::string("varnel-cli"),
          std::string("varnel-cli -3"), std::string("varnel-cli 12x"), std::string()}) {
        SCOPED_TRACE(record);
        writeFile(lockFile, record);
        EXPECT_FALSE(LibraryLock::holder(root));
        EXPECT_EQ(heldReason(root),
                  "another program (such as varnel-cli) is changing this library.");
        EXPECT_NE(heldMessage(root).find("is in use by another program"), std::string::npos);
    }
    EXPECT_EQ(changeRefusal(root), "locked") << "nobody holds it";
}

TEST(LibraryLockTest, AFolderThisUserCantWriteSaysWhoseItIs) {
    TempDir dir;
    const bool superuser = ::geteuid() == 0;
    // Root writes anywhere: the refusals are seen by an ordinary user.
    const uid_t user = superuser ? 65534 : ::geteuid();
    const std::optional<uid_t> switchTo =
        superuser ? std::optional<uid_t>(user) : std::optional<uid_t>();
    fs::permissions(dir.path(), fs::perms::all, fs::perm_options::replace);

    const fs::path own = dir / "Own";
    fs::create_directories(own);
    if (superuser) {
        ASSERT_EQ(::chown(own.c_str(), user, user), 0);
    }
    fs::permissions(own, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                             fs::perms::group_exec | fs::perms::others_read |
                             fs::perms::others_exec);
    const std::string noPermission = "this user (" + nameOf(user) +
                                     ") has no permission to write in its folder (Permission "
                                     "denied).";
    EXPECT_EQ(runAs(switchTo, [&] { return readOnlyReason(own); }), noPermission);
    EXPECT_EQ(runAs(switchTo, [&] { return changeRefusal(own); }),
              "The library at " + own.string() + " can’t be changed: " + noPermission);

    if (!superuser) {
        // Another user's folder can only be made by root; the root folder is one.
        EXPECT_EQ(unwritableReason("/", EACCES),
                  "its folder belongs to another user (root), and this user (" + nameOf(user) +
                      ") can’t write in it.");
        return;
    }
    const fs::path others = dir / "Others";
    fs::create_directories(others);
    const std::string belongs = "its folder belongs to another user (root), and this user (" +
                                nameOf(user) + ") can’t write in it.";
    EXPECT_EQ(runAs(switchTo, [&] { return readOnlyReason(others); }), belongs);
    EXPECT_EQ(runAs(switchTo, [&] { return changeRefusal(others); }),
              "The library at " + others.string() + " can’t be changed: " + belongs);

    // The folder is this user's, but a lock file left by another user can't be opened.
    const fs::path shared = dir / "Shared";
    fs::create_directories(shared);
    writeFile(shared / LibraryLock::kFileName, "");
    ASSERT_EQ(::chown(shared.c_str(), user, user), 0);
    EXPECT_EQ(runAs(switchTo, [&] { return changeRefusal(shared); }),
              "The library at " + shared.string() +
                  " can’t be changed: its lock file (.varnel.lock) belongs to another user "
                  "(root).");
    EXPECT_EQ(runAs(switchTo, [&] { return readOnlyReason(shared); }),
              "its lock file (.varnel.lock) belongs to another user (root).");
}
