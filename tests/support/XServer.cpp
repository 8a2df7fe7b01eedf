#include "support/XServer.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace varnel::test {

XServer::XServer(const std::string& screen) {
    namespace fs = std::filesystem;
    for (int number = 90; number < 250; ++number) {
        const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
        const std::string lock = "/tmp/.X" + std::to_string(number) + "-lock";
        if (fs::exists(socket) || fs::exists(lock))
            continue;
        const std::string name = ":" + std::to_string(number);
        std::vector<std::string> args{"Xvfb", name, "-screen", "0", screen, "-nolisten", "tcp"};
        std::vector<char*> argv;
        for (auto& arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        pid_t pid = fork();
        if (pid < 0)
            return;
        if (pid == 0) {
            // The server goes with the test, however the test ends, and keeps its talk to itself.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            execvp("Xvfb", argv.data());
            _exit(127);
        }
        // Ready once its socket is there; a server that dies (the number was taken) is retried.
        for (int wait = 0; wait < 300; ++wait) {
            if (fs::exists(socket)) {
                pid_ = pid;
                display_ = name;
                return;
            }
            int status = 0;
            if (waitpid(pid, &status, WNOHANG) == pid) {
                pid = 0;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
}

XServer::~XServer() {
    if (pid_ <= 0)
        return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
}

} // namespace varnel::test
