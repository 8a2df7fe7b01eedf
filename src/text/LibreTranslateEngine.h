#pragma once

#include "text/TranslationEngine.h"

#include <map>
#include <mutex>
#include <set>

namespace varnel {

// A translation server that speaks the LibreTranslate API, run or chosen by the user. Nothing
// is sent anywhere unless the user set its address; https, or http on this machine only.
class LibreTranslateEngine : public TranslationEngine {
public:
    explicit LibreTranslateEngine(std::string baseURL, std::string apiKey = {},
                                  long timeoutSeconds = 20);

    std::string name() const override { return "LibreTranslate at " + baseURL_; }
    // Asks the server's languages once; a server that can't be asked is given the benefit of
    // the doubt, and its error comes with the translation.
    bool translates(const std::string& from, const std::string& to) const override;
    std::optional<std::string> detect(const std::string& line) const override;
    std::vector<std::string> translate(const std::vector<std::string>& lines,
                                       const std::string& from,
                                       const std::string& to) const override;

private:
    std::string post(const std::string& path, const std::string& body) const;

    std::string baseURL_;
    std::string apiKey_;
    long timeoutSeconds_;
    mutable std::mutex mutex_;
    mutable bool asked_ = false;
    mutable std::map<std::string, std::set<std::string>> targets_;
};

} // namespace varnel
