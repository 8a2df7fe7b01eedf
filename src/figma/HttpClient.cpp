#include "figma/HttpClient.h"

#include <curl/curl.h>

#include <QUrl>

#include <memory>
#include <mutex>

namespace varnel::Http {

namespace {

void initOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Sink {
    std::string* body;
    std::size_t maxBytes;
    bool tooLarge = false;
};

size_t collect(char* data, size_t size, size_t count, void* target) {
    auto* sink = static_cast<Sink*>(target);
    const std::size_t n = size * count;
    if (sink->maxBytes && sink->body->size() + n > sink->maxBytes) {
        sink->tooLarge = true;
        return 0; // ends the transfer with a write error
    }
    sink->body->append(data, n);
    return n;
}

// libcurl calls this at least once a second, also while waiting for an answer.
int progress(void* flag, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto* cancel = static_cast<const std::atomic<bool>*>(flag);
    return cancel && cancel->load() ? 1 : 0;
}

bool isLoopbackHost(const QString& host) {
    return host == "127.0.0.1" || host == "::1" ||
           host.compare("localhost", Qt::CaseInsensitive) == 0;
}

struct EasyDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

} // namespace

bool isAllowedURL(const std::string& url) {
    const QUrl parsed(QString::fromStdString(url), QUrl::StrictMode);
    if (!parsed.isValid() || parsed.host().isEmpty())
        return false;
    const QString scheme = parsed.scheme().toLower();
    return scheme == "https" || (scheme == "http" && isLoopbackHost(parsed.host()));
}

bool isLoopbackURL(const std::string& url) {
    const QUrl parsed(QString::fromStdString(url), QUrl::StrictMode);
    return parsed.isValid() && parsed.scheme().toLower() == "http" && isLoopbackHost(parsed.host());
}

namespace {

struct Exchange {
    Response response;
    std::string location; // where a redirect points, absolute
};

Exchange performOnce(const Request& request, const std::string& url, bool withHeaders) {
    std::unique_ptr<CURL, EasyDeleter> handle(curl_easy_init());
    if (!handle)
        throw TransportError("the HTTP client could not start");
    CURL* curl = handle.get();
    std::unique_ptr<curl_slist, ListDeleter> headers;
    for (const auto& [name, value] : withHeaders ? request.headers : decltype(request.headers){}) {
        const std::string line = name + ": " + value;
        curl_slist* appended = curl_slist_append(headers.get(), line.c_str());
        if (!appended)
            throw TransportError("the HTTP client ran out of memory");
        headers.release();
        headers.reset(appended);
    }
    Exchange exchange;
    Sink sink{&exchange.response.body, request.maxBytes};
    const bool https = url.rfind("https:", 0) == 0;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, https ? "https" : "http");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, request.timeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    if (request.cancel) {
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &progress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, request.cancel.get());
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    }
    if (request.method == "POST") {
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
    } else if (request.method != "GET") {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    char message[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, message);
    const CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_ABORTED_BY_CALLBACK)
        throw Cancelled();
    if (sink.tooLarge)
        throw TransportError("the answer is larger than " + std::to_string(request.maxBytes) +
                             " bytes");
    if (code != CURLE_OK)
        throw TransportError(message[0] ? message : curl_easy_strerror(code));
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &exchange.response.status);
    char* location = nullptr;
    curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &location);
    if (location)
        exchange.location = location;
    return exchange;
}

bool isRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

Response perform(const Request& request) {
    if (!isAllowedURL(request.url))
        throw std::invalid_argument("refusing to send a request to " + request.url);
    initOnce();
    const bool fromLoopback = isLoopbackURL(request.url);
    std::string url = request.url;
    for (int hop = 0;; ++hop) {
        Exchange exchange = performOnce(request, url, hop == 0);
        if (!isRedirect(exchange.response.status) || request.maxRedirects == 0 ||
            request.method != "GET")
            return std::move(exchange.response);
        if (hop >= request.maxRedirects)
            throw TransportError("too many redirects");
        const std::string& next = exchange.location;
        const bool secure = next.rfind("https:", 0) == 0 && isAllowedURL(next);
        if (!secure && !(fromLoopback && isLoopbackURL(next)))
            throw TransportError("refusing a redirect to " +
                                 (next.empty() ? std::string("nowhere") : next));
        url = next;
    }
}

std::string percentEncode(const std::string& text, const std::string& keep) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (const unsigned char c : text) {
        const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                                (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                                c == '~' || keep.find(static_cast<char>(c)) != std::string::npos;
        if (unreserved) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

} // namespace varnel::Http
