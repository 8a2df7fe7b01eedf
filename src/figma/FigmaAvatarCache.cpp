#include "figma/FigmaAvatarCache.h"

#include "figma/Background.h"
#include "figma/HttpClient.h"

#include <QUrl>

namespace varnel {

namespace {

std::optional<std::string> fetch(const std::string& url,
                                 std::shared_ptr<const std::atomic<bool>> stop) {
    try {
        Http::Request request;
        request.url = url;
        request.timeoutSeconds = 30;
        request.maxBytes = FigmaAvatarCache::kMaxBytes;
        request.cancel = std::move(stop);
        const Http::Response response = Http::perform(request);
        if (response.status >= 200 && response.status <= 299)
            return response.body;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

QString originOf(const QUrl& url) {
    return url.scheme().toLower() + "://" + url.host().toLower() + ":" +
           QString::number(url.port(url.scheme().toLower() == "https" ? 443 : 80));
}

} // namespace

FigmaAvatarCache::FigmaAvatarCache(std::string apiBaseURL, QObject* parent)
    : QObject(parent), apiBaseURL_(std::move(apiBaseURL)) {}

FigmaAvatarCache::~FigmaAvatarCache() {
    *stop_ = true;
}

bool FigmaAvatarCache::isAllowedAvatarURL(const std::string& url, const std::string& apiBaseURL) {
    if (!Http::isAllowedURL(url))
        return false;
    const QUrl parsed(QString::fromStdString(url), QUrl::StrictMode);
    const QString host = parsed.host().toLower();
    const bool figmaHost = host == "figma.com" || host.endsWith(".figma.com") ||
                           host.endsWith(".figmausercontent.com");
    if (parsed.scheme().toLower() == "https" && figmaHost)
        return true;
    if (apiBaseURL.empty())
        return false;
    return originOf(parsed) == originOf(QUrl(QString::fromStdString(apiBaseURL)));
}

void FigmaAvatarCache::ensureLoaded(const std::optional<std::string>& url) {
    if (!url || images_.contains(*url) || inFlight_.contains(*url) || failed_.contains(*url) ||
        !isAllowedAvatarURL(*url, apiBaseURL_))
        return;
    inFlight_.insert(*url);
    ++started_;
    const std::string address = *url;
    runInBackground(
        this, [address, stop = stop_] { return fetch(address, stop); },
        [this, address](const std::optional<std::string>& bytes) {
            inFlight_.erase(address);
            QImage image;
            if (bytes)
                image.loadFromData(reinterpret_cast<const uchar*>(bytes->data()),
                                   static_cast<int>(bytes->size()));
            if (image.isNull()) {
                failed_.insert(address);
                return;
            }
            images_[address] = image;
            emit imageLoaded(QString::fromStdString(address));
        });
}

QImage FigmaAvatarCache::image(const std::string& url) const {
    const auto found = images_.find(url);
    return found == images_.end() ? QImage() : found->second;
}

} // namespace varnel
