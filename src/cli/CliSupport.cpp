#include "cli/CliSupport.h"

#include <algorithm>

namespace varnel::cli {

Invocation parse(const std::vector<std::string>& args) {
    Invocation inv;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--library") {
            if (++i == args.size())
                throw UsageError("--library needs a folder");
            inv.library = args[i];
        } else if (a.starts_with("--library=")) {
            inv.library = a.substr(10);
        } else if (a == "--json") {
            inv.json = true;
        } else if (inv.command.empty()) {
            inv.command = a;
        } else {
            inv.arguments.push_back(a);
        }
    }
    return inv;
}

// Pulls "--name VALUE" pairs out of the arguments.
std::map<std::string, std::string> options(std::vector<std::string>& arguments,
                                           std::initializer_list<std::string> names) {
    std::map<std::string, std::string> found;
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& a = arguments[i];
        if (std::find(names.begin(), names.end(), a) == names.end()) {
            rest.push_back(a);
            continue;
        }
        if (++i == arguments.size())
            throw UsageError(a + " needs a value");
        found[a] = arguments[i];
    }
    arguments = rest;
    return found;
}

void expectCount(const Invocation& inv, std::size_t min, std::size_t max) {
    if (inv.arguments.size() < min || inv.arguments.size() > max)
        throw UsageError("wrong number of arguments for " + inv.command);
}

} // namespace varnel::cli
