#include "figma/FigmaFileLink.h"

#include <QUrl>
#include <QUrlQuery>

namespace varnel::FigmaFileLink {

namespace {

std::optional<QUrl> parse(const std::string& link) {
    const QUrl url(QString::fromStdString(link).trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return std::nullopt;
    return url;
}

} // namespace

std::optional<std::string> key(const std::string& link) {
    const auto url = parse(link);
    if (!url)
        return std::nullopt;
    const QString host = url->host().toLower();
    if (host != "figma.com" && host != "www.figma.com")
        return std::nullopt;
    const QStringList parts = url->path().split('/', Qt::SkipEmptyParts);
    if (parts.size() < 2 || (parts[0] != "file" && parts[0] != "design"))
        return std::nullopt;
    return parts[1].toStdString();
}

std::optional<std::string> nodeId(const std::string& link) {
    const auto url = parse(link);
    if (!url)
        return std::nullopt;
    const QUrlQuery query(*url);
    if (!query.hasQueryItem("node-id"))
        return std::nullopt;
    QString id = query.queryItemValue("node-id", QUrl::FullyDecoded);
    if (id.isEmpty())
        return std::nullopt;
    if (!id.contains(':'))
        id.replace('-', ':');
    return id.toStdString();
}

std::optional<std::string> canonicalURL(const std::string& link) {
    const auto fileKey = key(link);
    if (!fileKey)
        return std::nullopt;
    std::string out = std::string("https://") + kWebHost + "/design/" + *fileKey;
    if (const auto node = nodeId(link))
        out += "?node-id=" + *node;
    return out;
}

} // namespace varnel::FigmaFileLink
