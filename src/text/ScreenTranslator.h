#pragma once

#include "library/FlowStore.h"
#include "text/TranslationEngine.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel {

// A screen's recognized lines translated into one language, each line once: lines already in
// that language are left alone, translations stored before are reused, the rest go to the
// first engine with their pair and are stored in "ocr.json" under the line's "translations".
namespace ScreenTranslator {

struct Line {
    std::string text;
    std::optional<std::string> from; // the line's language, when it could be told
    std::optional<std::string> translation;
    bool reused = false; // stored before
    std::string engine;  // which engine made it now
};

struct Result {
    std::vector<Line> lines;
    // What could not be translated, and why, in words for the user.
    std::vector<std::string> problems;
};

// Only lines that the picture shows now are translated. With `keep` off (a library open
// read-only) nothing is stored.
Result translate(const FlowStore& store, const std::string& folder, const std::string& file,
                 const std::string& to, const std::vector<const TranslationEngine*>& engines,
                 bool keep = true);

} // namespace ScreenTranslator
} // namespace varnel
