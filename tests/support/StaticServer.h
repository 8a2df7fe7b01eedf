#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace varnel::test {

// An HTTP server on 127.0.0.1 that answers GET /PATH with the document set for it (404 for
// others), counting requests: a release feed, a download page.
class StaticServer {
public:
    StaticServer();
    ~StaticServer();

    void serve(const std::string& path, const std::string& body, int status = 200);
    std::string url(const std::string& path) const;
    int requests() const { return requests_; }

private:
    std::unique_ptr<httplib::Server> server_;
    std::mutex mutex_;
    std::string path_, body_;
    int status_ = 200;
    int port_ = 0;
    std::atomic<int> requests_{0};
    std::thread thread_;
};

} // namespace varnel::test
