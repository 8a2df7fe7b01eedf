#pragma once

#include "text/TranslationEngine.h"

#include <map>
#include <set>
#include <utility>

namespace varnel {

// Apertium, a rule-based engine on this computer: one Debian package per language pair
// (apertium-eng-spa...). Nothing leaves the machine.
class ApertiumEngine : public TranslationEngine {
public:
    // `program` is the apertium command; the pairs are asked of it once.
    explicit ApertiumEngine(std::string program = "apertium");

    std::string name() const override { return "Apertium (on this computer)"; }
    bool translates(const std::string& from, const std::string& to) const override;
    std::vector<std::string> translate(const std::vector<std::string>& lines,
                                       const std::string& from,
                                       const std::string& to) const override;
    // The pairs installed, as (from, to) language codes.
    const std::set<std::pair<std::string, std::string>>& pairs() const { return pairs_; }
    bool isInstalled() const { return installed_; }

private:
    std::string program_;
    bool installed_ = false;
    std::set<std::pair<std::string, std::string>> pairs_;
    std::map<std::pair<std::string, std::string>, std::string> modes_;
};

} // namespace varnel
