#include "cli/CliReading.h"

#include <QCoreApplication>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <unistd.h>

// What only reads the library runs here, with Qt Core alone; every other command runs in the
// program with the whole of Varnel (capture, text recognition, Figma...), which takes the
// time to load all of it.
int main(int argc, char** argv) {
    // No QCoreApplication: reading the settings needs only these names, and a command handed on
    // should not wait for one.
    QCoreApplication::setOrganizationName("Varnel");
    QCoreApplication::setApplicationName("Varnel");
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (const auto handled = varnel::cli::runReading(args, std::cout, std::cerr))
        return *handled;

    std::error_code ec;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    const auto commands = (self.parent_path() / VARNEL_CLI_COMMANDS).lexically_normal();
    std::cout.flush();
    execv(commands.c_str(), argv);
    std::cerr << "varnel-cli: couldn’t start " << commands.string() << ": " << std::strerror(errno)
              << "\n";
    return varnel::cli::kFailed;
}
