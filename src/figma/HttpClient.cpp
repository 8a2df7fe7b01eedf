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

size_t collect(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
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

Response perform(const Request& request) {
    if (!isAllowedURL(request.url))
        throw std::invalid_argument("refusing to send a request to " + request.url);
    initOnce();
    std::unique_ptr<CURL, EasyDeleter> handle(curl_easy_init());
    if (!handle)
        throw TransportError("the HTTP client could not start");
    CURL* curl = handle.get();
    std::unique_ptr<curl_slist, ListDeleter> headers;
    for (const auto& [name, value] : request.headers) {
        const std::string line = name + ": " + value;
        curl_slist* appended = curl_slist_append(headers.get(), line.c_str());
        if (!appended)
            throw TransportError("the HTTP client ran out of memory");
        headers.release();
        headers.reset(appended);
    }
    Response response;
    const bool https = request.url.rfind("https:", 0) == 0;
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, https ? "https" : "http");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, request.timeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
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
    if (code != CURLE_OK)
        throw TransportError(message[0] ? message : curl_easy_strerror(code));
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    return response;
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
