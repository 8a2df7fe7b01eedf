#pragma once
// Runs a program as a user does, for benchmarks that time whole commands.
#include <string>
#include <vector>

namespace varnel::bench {

// Starts `arguments[0]` with the rest, its output thrown away, and waits: its exit status, or
// -1 when it could not start or did not exit.
int runProgram(const std::vector<std::string>& arguments);

} // namespace varnel::bench
