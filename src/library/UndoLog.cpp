#include "library/UndoLog.h"

#include "library/Errors.h"

namespace varnel {

std::optional<std::string> UndoLog::undo() noexcept {
    std::optional<std::string> firstError;
    for (auto it = steps_.rbegin(); it != steps_.rend(); ++it) {
        try {
            (*it)();
        } catch (const std::exception& e) {
            if (!firstError)
                firstError = e.what();
        } catch (...) {
            if (!firstError)
                firstError = "unknown error";
        }
    }
    steps_.clear();
    return firstError;
}

void UndoLog::undoOrThrow(const std::string& action, const std::string& dataLocation,
                          const std::exception& failure) {
    if (auto error = undo())
        throw RollbackError(action, dataLocation, failure.what(), *error);
}

} // namespace varnel
