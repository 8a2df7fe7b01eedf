#include "figma/FigmaAccountCache.h"

#include "figma/Background.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaAvatarCache.h"
#include "figma/FigmaSyncError.h"

#include <variant>

namespace varnel {

FigmaAccountCache::FigmaAccountCache(SecretStore& secrets, FigmaAvatarCache& avatars,
                                     FigmaAPIFactory factory, QObject* parent)
    : QObject(parent), secrets_(secrets), avatars_(avatars), factory_(std::move(factory)) {
    connect(&avatars_, &FigmaAvatarCache::imageLoaded, this, [this](const QString& url) {
        if (account_ && account_->imgUrl && url.toStdString() == *account_->imgUrl)
            emit changed();
    });
}

FigmaAccountCache::~FigmaAccountCache() {
    *stop_ = true;
}

void FigmaAccountCache::ensureLoaded() {
    if (account_ || loading_)
        return;
    const auto token = FigmaAuth::token(secrets_);
    if (!token)
        return;
    loading_ = true;
    emit changed();
    using Result = std::variant<FigmaAccount, FigmaSyncError>;
    std::shared_ptr<FigmaCommentAPI> api;
    try {
        api = factory_(*token);
        api->setStopFlag(stop_);
    } catch (...) {
        loading_ = false;
        lastError_ = FigmaSyncError::from(std::current_exception()).message();
        emit changed();
        return;
    }
    const unsigned generation = generation_;
    runInBackground(
        this,
        [api]() -> Result {
            try {
                return api->me();
            } catch (...) {
                return FigmaSyncError::from(std::current_exception());
            }
        },
        [this, generation](const Result& result) {
            if (generation != generation_)
                return; // the token changed meanwhile
            loading_ = false;
            if (const auto* account = std::get_if<FigmaAccount>(&result)) {
                account_ = *account;
                lastError_.clear();
                avatars_.ensureLoaded(account_->imgUrl);
            } else {
                lastError_ = std::get<FigmaSyncError>(result).message();
            }
            emit changed();
        });
}

void FigmaAccountCache::clear() {
    ++generation_;
    account_.reset();
    loading_ = false;
    lastError_.clear();
    emit changed();
}

QImage FigmaAccountCache::avatar() const {
    if (!account_ || !account_->imgUrl)
        return {};
    return avatars_.image(*account_->imgUrl);
}

} // namespace varnel
