#include "text/TextLine.h"

namespace varnel {

TextLine TextLine::fromJson(const Json& json) {
    coding::requireObject(json, "a text line");
    TextLine line{coding::requireString(json, "text"),
                  coding::readRect(coding::requireKey(json, "box"), "box"), std::nullopt};
    if (coding::hasValue(json, "translations")) {
        const Json& object = coding::requireObject(json.at("translations"), "translations");
        std::map<std::string, std::string> translations;
        for (const auto& [language, text] : object.items()) {
            if (!text.is_string())
                throw CodingError("a translation is not a string");
            translations.emplace(language, text.get<std::string>());
        }
        line.translations = std::move(translations);
    }
    return line;
}

Json TextLine::toJson() const {
    Json json{{"text", text}, {"box", coding::writeRect(box)}};
    if (translations)
        json["translations"] = *translations;
    return json;
}

} // namespace varnel
