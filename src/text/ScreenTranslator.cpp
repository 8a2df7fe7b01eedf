#include "text/ScreenTranslator.h"

#include "text/Languages.h"
#include "text/OCRIndex.h"

#include <map>

namespace varnel::ScreenTranslator {

namespace {

std::string noEngine(const std::string& from, const std::string& to) {
    return "Nothing here translates " + Languages::name(from) + " to " + Languages::name(to) +
           ": install its Apertium pair (apt install apertium-" + Languages::threeLetter(to) + "-" +
           Languages::threeLetter(from) + " or apertium-" + Languages::threeLetter(from) + "-" +
           Languages::threeLetter(to) +
           "), or set a LibreTranslate server in Settings ▸ Translation.";
}

} // namespace

Result translate(const FlowStore& store, const std::string& folder, const std::string& file,
                 const std::string& to, const std::vector<const TranslationEngine*>& engines,
                 bool keep) {
    std::vector<TextLine> lines = OCRIndex::textLines(store, folder, file);
    Result result;
    // The lines still to translate, by their language.
    std::map<std::string, std::vector<std::size_t>> pending;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        Line line;
        line.text = lines[i].text;
        line.from = Languages::guess(line.text);
        for (auto engine = engines.begin(); !line.from && engine != engines.end(); ++engine)
            line.from = (*engine)->detect(line.text);
        const auto& stored = lines[i].translations;
        if (stored && stored->contains(to)) {
            line.translation = stored->at(to);
            line.reused = true;
        } else if (line.from && *line.from != to) {
            pending[*line.from].push_back(i);
        }
        result.lines.push_back(std::move(line));
    }
    bool changed = false;
    for (const auto& [from, indexes] : pending) {
        const TranslationEngine* engine = nullptr;
        for (const auto* candidate : engines)
            if (!engine && candidate->translates(from, to))
                engine = candidate;
        if (!engine) {
            result.problems.push_back(noEngine(from, to));
            continue;
        }
        std::vector<std::string> texts;
        for (const auto i : indexes)
            texts.push_back(lines[i].text);
        try {
            const auto translated = engine->translate(texts, from, to);
            for (std::size_t k = 0; k < indexes.size(); ++k) {
                const auto i = indexes[k];
                result.lines[i].translation = translated[k];
                result.lines[i].engine = engine->name();
                if (!lines[i].translations)
                    lines[i].translations.emplace();
                (*lines[i].translations)[to] = translated[k];
            }
            changed = true;
        } catch (const TranslationError& error) {
            result.problems.push_back(error.what());
        }
    }
    if (changed && keep) {
        try {
            OCRIndex::saveTranslations(store, folder, file, lines);
        } catch (const std::exception&) {
            // Not kept is only translated again next time.
        }
    }
    return result;
}

} // namespace varnel::ScreenTranslator
