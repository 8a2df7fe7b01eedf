#pragma once

#include <exception>
#include <map>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace varnel::cli {

enum ExitCode : int {
    kSuccess = 0,
    kFailed = 1,     // the operation failed; stderr says why
    kUsage = 2,      // the command line is wrong
    kCheckFailed = 3 // `check` found broken invariants
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Invocation {
    std::optional<std::string> library;
    bool json = false;
    std::string command;
    std::vector<std::string> arguments;
};

Invocation parse(const std::vector<std::string>& args);

// Pulls "--name VALUE" pairs out of the arguments.
std::map<std::string, std::string> options(std::vector<std::string>& arguments,
                                           std::initializer_list<std::string> names);

// Throws a UsageError unless the command has between `min` and `max` arguments.
void expectCount(const Invocation& inv, std::size_t min, std::size_t max);

// Runs `command`, turning what it throws into the message and exit status the user sees.
template <typename Command>
auto guarded(std::ostream& err, Command&& command) -> decltype(command()) {
    try {
        return command();
    } catch (const UsageError& e) {
        err << "varnel-cli: " << e.what() << "\nTry “varnel-cli --help”.\n";
        return kUsage;
    } catch (const std::exception& e) {
        err << "varnel-cli: " << e.what() << "\n";
        return kFailed;
    }
}

} // namespace varnel::cli
