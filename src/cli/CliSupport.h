#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace varnel::cli {

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

} // namespace varnel::cli
