#include "figma/FigmaAvatarCache.h"

#include "figma/Background.h"
#include "figma/HttpClient.h"

namespace varnel {

namespace {

std::optional<std::string> fetch(const std::string& url) {
    try {
        Http::Request request;
        request.url = url;
        const Http::Response response = Http::perform(request);
        if (response.status >= 200 && response.status <= 299)
            return response.body;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

} // namespace

void FigmaAvatarCache::ensureLoaded(const std::optional<std::string>& url) {
    if (!url || images_.contains(*url) || inFlight_.contains(*url) || failed_.contains(*url) ||
        !Http::isAllowedURL(*url))
        return;
    inFlight_.insert(*url);
    ++started_;
    const std::string address = *url;
    runInBackground(
        this, [address] { return fetch(address); },
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
