#pragma once

#include "figma/KeychainStore.h"

#include <optional>
#include <string>

// The user's personal access token, kept in the keychain under the account "pat".
namespace varnel::FigmaAuth {

inline constexpr const char* kAccount = "pat";

// None when nothing is stored, or what is stored is empty or not UTF-8.
std::optional<std::string> token(SecretStore& store);
// Stores the token trimmed; a blank one forgets the stored token.
void setToken(const std::string& text, SecretStore& store);

} // namespace varnel::FigmaAuth
