#pragma once

#include <string>
#include <sys/types.h>

namespace varnel::test {

// An Xvfb of its own on a display number nobody uses, stopped at the end of its life.
class XServer {
public:
    explicit XServer(const std::string& screen = "1280x1024x24");
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    bool running() const { return pid_ > 0; }
    // ":93", say.
    const std::string& display() const { return display_; }

private:
    pid_t pid_ = 0;
    std::string display_;
};

} // namespace varnel::test
