#include "figma/FigmaAuth.h"

#include "library/Utf8.h"

namespace varnel::FigmaAuth {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

} // namespace

std::optional<std::string> token(SecretStore& store) {
    auto bytes = store.data(kAccount);
    if (!bytes || bytes->empty() || !Utf8::isValid(*bytes))
        return std::nullopt;
    return bytes;
}

void setToken(const std::string& text, SecretStore& store) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    if (begin == end)
        store.remove(kAccount);
    else
        store.set(text.substr(begin, end - begin), kAccount);
}

} // namespace varnel::FigmaAuth
