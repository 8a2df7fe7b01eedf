#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace varnel::Http {

// The connection failed before an answer came (no route, refused, timed out, TLS, too large).
class TransportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The request was stopped from another thread before its answer came. Whether the server acted
// on it is unknown.
class Cancelled : public TransportError {
public:
    Cancelled() : TransportError("the request was stopped") {}
};

struct Request {
    std::string method = "GET";
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    long timeoutSeconds = 60;
    // Set from another thread to abort the request; it ends within about a second.
    std::shared_ptr<const std::atomic<bool>> cancel;
    // A longer answer is an error; 0 for no limit.
    std::size_t maxBytes = 0;
    // Redirects followed, for GET only, each to an https address (or, from this machine's
    // loopback, to the loopback again). Headers are never sent to a redirect's address.
    int maxRedirects = 0;
};

struct Response {
    long status = 0;
    std::string body;
};

// Whether requests may go to `url`: https anywhere, plain http only to this machine's loopback
// (the tests' servers), never another scheme. Secrets must never cross the network in clear.
bool isAllowedURL(const std::string& url);
// Whether `url` is plain http to this machine's loopback.
bool isLoopbackURL(const std::string& url);

// Performs one blocking request. Throws TransportError (Cancelled when stopped), and
// std::invalid_argument for a URL isAllowedURL refuses.
Response perform(const Request& request);

// Percent-encodes everything but unreserved characters and those in `keep`.
std::string percentEncode(const std::string& text, const std::string& keep = {});

} // namespace varnel::Http
