#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace varnel {

// A translation could not be made; what() says why for the user.
class TranslationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Something that translates text from one language to another (ISO 639-1 codes).
class TranslationEngine {
public:
    virtual ~TranslationEngine() = default;
    // How the user knows it: "Apertium (on this computer)", "LibreTranslate at …".
    virtual std::string name() const = 0;
    virtual bool translates(const std::string& from, const std::string& to) const = 0;
    // The line's language by the engine's own detection; none when it has none.
    virtual std::optional<std::string> detect(const std::string&) const { return std::nullopt; }
    // One translation per line, in order. Throws TranslationError.
    virtual std::vector<std::string> translate(const std::vector<std::string>& lines,
                                               const std::string& from,
                                               const std::string& to) const = 0;
};

} // namespace varnel
