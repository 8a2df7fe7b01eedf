#pragma once

#include <string>

namespace varnel {

// A new random UUID in its standard upper-case text form.
std::string newUUIDString();

} // namespace varnel
