#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace varnel::Http {

// The connection failed before an answer came (no route, refused, timed out, TLS).
class TransportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Request {
    std::string method = "GET";
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    long timeoutSeconds = 60;
};

struct Response {
    long status = 0;
    std::string body;
};

// Whether requests may go to `url`: https anywhere, plain http only to this machine's loopback
// (the tests' servers), never another scheme. Secrets must never cross the network in clear.
bool isAllowedURL(const std::string& url);

// Performs one blocking request. Redirects are not followed, so headers never reach another
// host. Throws TransportError, and std::invalid_argument for a URL isAllowedURL refuses.
Response perform(const Request& request);

// Percent-encodes everything but unreserved characters and those in `keep`.
std::string percentEncode(const std::string& text, const std::string& keep = {});

} // namespace varnel::Http
