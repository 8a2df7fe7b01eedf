#include "figma/FigmaSyncError.h"

#include "figma/FigmaAPIError.h"

namespace varnel {

std::string FigmaSyncError::message() const {
    switch (kind) {
    case Kind::network:
        return "Network error — publish again to retry";
    case Kind::badFileURL:
        return "Check the Figma file link";
    case Kind::tokenRejected:
        return "Figma refused the token — check Settings → Figma";
    case Kind::fileNotFound:
        return "Figma file not found — check the link";
    case Kind::boardNotFound:
        return "No board for this flow — re-import with the updated plugin";
    case Kind::screensChanged:
        return "Screens changed since import — re-import the flow, then publish";
    }
    return {};
}

FigmaSyncError FigmaSyncError::from(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const FigmaAPIError& e) {
        if (e.kind() == FigmaAPIError::Kind::status) {
            if (e.status() == 401 || e.status() == 403)
                return {Kind::tokenRejected, e.what()};
            if (e.status() == 404)
                return {Kind::fileNotFound, e.what()};
        }
        return {Kind::network, e.what()};
    } catch (const std::exception& e) {
        return {Kind::network, e.what()};
    } catch (...) {
        return {Kind::network, "unknown failure"};
    }
}

} // namespace varnel
