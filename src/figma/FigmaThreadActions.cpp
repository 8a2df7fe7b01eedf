#include "figma/FigmaThreadActions.h"

#include "figma/Background.h"
#include "figma/FigmaAPIError.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaSyncError.h"
#include "figma/FigmaSyncService.h"
#include "library/FlowLibrary.h"

#include <variant>

namespace varnel {

namespace {

// A 404 on a thread means the thread, not the file: the file answered the link before.
std::string messageFor(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const FigmaAPIError& e) {
        if (e.kind() == FigmaAPIError::Kind::status && e.status() == 404)
            return FigmaThreadActions::kThreadGone;
    } catch (...) {
    }
    return FigmaSyncError::from(error).message();
}

} // namespace

FigmaThreadActions::FigmaThreadActions(FlowLibrary& library, SecretStore& secrets,
                                       FigmaAPIFactory factory, QObject* parent)
    : QObject(parent), library_(library), secrets_(secrets), factory_(std::move(factory)) {}

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

template <typename Work, typename Apply>
void FigmaThreadActions::request(const std::string& folderName, const std::string& rootId,
                                 Work work, Apply apply) {
    const auto fail = [&](const std::string& message) {
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
    } catch (...) {
        return fail(FigmaSyncError::from(std::current_exception()).message());
    }
    using Value = decltype(work(*api, key));
    using Result = std::variant<Value, std::string>;
    runInBackground(
        this,
        [api, key, work]() -> Result {
            try {
                return work(*api, key);
            } catch (...) {
                return messageFor(std::current_exception());
            }
        },
        [this, folderName, rootId, apply](const Result& result) {
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
            const std::string id = api.postReply(key, text, rootId);
            const FigmaAccount me = api.me();
            return FigmaReply{id, text, me.handle, me.imgUrl, me.id, Date::now()};
        },
        [this, folderName, filename, rootId](const FigmaReply& reply) {
            library_.addFigmaReply(folderName, filename, rootId, reply);
        });
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
        });
}

} // namespace varnel
