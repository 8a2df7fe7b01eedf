#include "support/StaticServer.h"

#include <httplib.h>

#include <chrono>

namespace varnel::test {

StaticServer::StaticServer() : server_(std::make_unique<httplib::Server>()) {
    server_->Get(".*", [this](const httplib::Request& req, httplib::Response& res) {
        ++requests_;
        std::lock_guard lock(mutex_);
        if (req.path != path_) {
            res.status = 404;
            return;
        }
        res.status = status_;
        res.set_content(body_, "application/json");
    });
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    while (!server_->is_running()) // so that stop() always finds it running
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

StaticServer::~StaticServer() {
    server_->stop();
    thread_.join();
}

void StaticServer::serve(const std::string& path, const std::string& body, int status) {
    std::lock_guard lock(mutex_);
    path_ = path;
    body_ = body;
    status_ = status;
}

std::string StaticServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

} // namespace varnel::test
