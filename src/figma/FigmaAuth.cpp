#include "figma/FigmaAuth.h"

#include "library/Text.h"
#include "library/Utf8.h"

namespace varnel::FigmaAuth {

std::optional<std::string> token(SecretStore& store) {
    auto bytes = store.data(kAccount);
    if (!bytes || bytes->empty() || !Utf8::isValid(*bytes))
        return std::nullopt;
    return bytes;
}

void setToken(const std::string& text, SecretStore& store) {
    const std::string token = Text::trimmed(text);
    if (token.empty())
        store.remove(kAccount);
    else
        store.set(token, kAccount);
}

} // namespace varnel::FigmaAuth
