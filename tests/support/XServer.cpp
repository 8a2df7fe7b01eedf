#include "support/XServer.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace varnel::test {

XServer::XServer(const std::string& screen) {
    // Xvfb picks a free display itself and writes its number to this pipe once it listens:
    // tests started side by side never share or race for a display.
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        return;
    const pid_t pid = fork();
    if (pid < 0) {
        close(ready[0]);
        close(ready[1]);
        return;
    }
    if (pid == 0) {
        // The server goes with the test, however the test ends, and keeps its talk to itself.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        const int fd = dup(ready[1]); // without close-on-exec
        std::string fdText = std::to_string(fd);
        std::string screenText = screen;
        std::vector<char*> argv{const_cast<char*>("Xvfb"), const_cast<char*>("-displayfd"),
                                fdText.data(), const_cast<char*>("-screen"), const_cast<char*>("0"),
                                screenText.data(), const_cast<char*>("-nolisten"),
                                const_cast<char*>("tcp"),
                                // no reset when the last client leaves: the next test's
                                // connection would race with it
                                const_cast<char*>("-noreset"), nullptr};
        execvp("Xvfb", argv.data());
        _exit(127);
    }
    close(ready[1]);
    std::string number;
    pollfd wait{ready[0], POLLIN, 0};
    while (poll(&wait, 1, 30000) > 0) {
        char c = 0;
        if (read(ready[0], &c, 1) != 1 || c == '\n')
            break;
        number += c;
    }
    close(ready[0]);
    if (number.empty()) {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
        return;
    }
    pid_ = pid;
    display_ = ":" + number;
}

XServer::~XServer() {
    if (pid_ <= 0)
        return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
}

} // namespace varnel::test
