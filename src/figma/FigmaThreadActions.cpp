#include "figma/FigmaThreadActions.h"

#include "figma/Background.h"
#include "figma/FigmaAPIError.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaSyncError.h"
#include "figma/FigmaSyncService.h"
#include "figma/HttpClient.h"
#include "model/FlowLibrary.h"

#include <variant>

namespace varnel {

namespace {

std::optional<long> statusOf(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const FigmaAPIError& e) {
        if (e.kind() == FigmaAPIError::Kind::status)
            return e.status();
    } catch (...) {
    }
    return std::nullopt;
}

// A 404 on a thread means the thread, not the file: the file answered the link before.
std::string replyMessage(std::exception_ptr error) {
    if (statusOf(error) == 404)
        return FigmaThreadActions::kThreadGone;
    return FigmaSyncError::from(error).message();
}

// Figma answers 403 to a token that works, when the thread is someone else's.
std::string deleteMessage(std::exception_ptr error) {
    if (statusOf(error) == 403)
        return FigmaThreadActions::kNotAuthor;
    return replyMessage(error);
}

struct PostedReply {
    std::string id;
    std::optional<FigmaAccount> author;
};

} // namespace

FigmaThreadActions::FigmaThreadActions(FlowLibrary& library, SecretStore& secrets,
                                       FigmaAPIFactory factory, const FigmaAccountCache* account,
                                       QObject* parent)
    : QObject(parent), library_(library), secrets_(secrets), factory_(std::move(factory)),
      account_(account) {}

FigmaThreadActions::~FigmaThreadActions() {
    *stop_ = true;
}

std::string FigmaThreadActions::threadURL(const std::string& folderName,
                                          const std::string& rootId) {
    try {
        const auto key = FigmaFileLink::key(library_.meta(folderName).figmaFileURL.value_or(""));
        if (key)
            return std::string("https://") + FigmaFileLink::kWebHost + "/design/" + *key + "#" +
                   rootId;
    } catch (const std::exception&) {
    }
    return {};
}

template <typename Work, typename Apply, typename Explain>
void FigmaThreadActions::request(const std::string& folderName, const std::string& rootId,
                                 Work work, Apply apply, Explain explain) {
    if (!busy_.insert(rootId).second)
        return;
    // Marked busy first: reading the keychain may run the event loop, and with it a second click.
    const auto fail = [&](const std::string& message) {
        busy_.erase(rootId);
        emit finished(QString::fromStdString(folderName), QString::fromStdString(rootId),
                      QString::fromStdString(message));
    };
    const auto token = FigmaAuth::token(secrets_);
    if (!token)
        return fail(FigmaSyncService::kNoToken);
    std::shared_ptr<FigmaCommentAPI> api;
    std::string key;
    try {
        const auto found = FigmaFileLink::key(library_.meta(folderName).figmaFileURL.value_or(""));
        if (!found)
            return fail(FigmaSyncError{FigmaSyncError::Kind::badFileURL, {}}.message());
        key = *found;
        api = factory_(*token);
        api->setStopFlag(stop_);
    } catch (...) {
        return fail(FigmaSyncError::from(std::current_exception()).message());
    }
    using Value = decltype(work(*api, key));
    using Result = std::variant<Value, std::string>;
    runInBackground(
        this,
        [api, key, work, explain]() -> Result {
            try {
                return work(*api, key);
            } catch (...) {
                return explain(std::current_exception());
            }
        },
        [this, folderName, rootId, apply](const Result& result) {
            busy_.erase(rootId);
            std::string error;
            if (const auto* value = std::get_if<Value>(&result)) {
                try {
                    apply(*value);
                } catch (const std::exception& e) {
                    error = e.what();
                }
            } else {
                error = std::get<std::string>(result);
            }
            emit finished(QString::fromStdString(folderName), QString::fromStdString(rootId),
                          QString::fromStdString(error));
        });
}

void FigmaThreadActions::reply(const std::string& folderName, const std::string& filename,
                               const std::string& rootId, const std::string& text) {
    request(
        folderName, rootId,
        [rootId, text](FigmaCommentAPI& api, const std::string& key) {
            PostedReply posted{api.postReply(key, text, rootId), std::nullopt};
            // Figma has the reply now: not knowing who wrote it must not lose it.
            try {
                posted.author = api.me();
            } catch (const std::exception&) {
            }
            return posted;
        },
        [this, folderName, filename, rootId, text](const PostedReply& posted) {
            std::optional<FigmaAccount> author = posted.author;
            if (!author && account_)
                author = account_->account();
            FigmaReply reply{posted.id, text, {}, {}, {}, Date::now()};
            if (author) {
                reply.authorHandle = author->handle;
                reply.authorImgURL = author->imgUrl;
                reply.authorId = author->id;
            }
            library_.addFigmaReply(folderName, filename, rootId, reply);
        },
        replyMessage);
}

void FigmaThreadActions::deleteThread(const std::string& folderName, const std::string& filename,
                                      const std::string& rootId) {
    request(
        folderName, rootId,
        [rootId](FigmaCommentAPI& api, const std::string& key) {
            api.deleteComment(key, rootId);
            return true;
        },
        [this, folderName, filename, rootId](bool) {
            library_.removeFigmaThread(folderName, filename, rootId);
        },
        deleteMessage);
}

} // namespace varnel
