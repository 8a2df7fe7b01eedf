#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// The undo steps of a multi-step change, run newest first when a later step fails.
class UndoLog {
public:
    void add(std::function<void()> step) { steps_.push_back(std::move(step)); }
    void clear() { steps_.clear(); }

    // Runs every step even when one fails; returns the first failure's description.
    std::optional<std::string> undo() noexcept;

    // Undoes after `failure`; returns when everything was undone (the caller rethrows) and
    // throws RollbackError naming `dataLocation` when undoing failed too.
    void undoOrThrow(const std::string& action, const std::string& dataLocation,
                     const std::exception& failure) noexcept(false);

private:
    std::vector<std::function<void()>> steps_;
};

} // namespace varnel
