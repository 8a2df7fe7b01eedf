#include "cli/Cli.h"

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Varnel");
    QCoreApplication::setApplicationName("Varnel");
    std::vector<std::string> args(argv + 1, argv + argc);
    return varnel::cli::run(args, std::cout, std::cerr);
}
