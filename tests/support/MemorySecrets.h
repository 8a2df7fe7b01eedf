#pragma once

#include "figma/KeychainStore.h"

#include <map>

namespace varnel::test {

// Secrets in memory, for tests that are not about the keychain itself.
class MemorySecrets : public SecretStore {
public:
    std::optional<std::string> data(const std::string& key) override {
        const auto found = items.find(key);
        return found == items.end() ? std::nullopt : std::optional(found->second);
    }
    void set(const std::string& data, const std::string& key) override { items[key] = data; }
    void remove(const std::string& key) override { items.erase(key); }

    std::map<std::string, std::string> items;
};

} // namespace varnel::test
