#pragma once

#include <optional>
#include <string>

namespace varnel {

// Secrets kept by (service, account) key. Failures are silent by design: a read that fails is
// no secret, a write that fails leaves whatever the store holds.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual std::optional<std::string> data(const std::string& key) = 0;
    // Replaces any existing item.
    virtual void set(const std::string& data, const std::string& key) = 0;
    virtual void remove(const std::string& key) = 0;
};

// The desktop's keychain (the Secret Service on Linux) through QtKeychain. Each call waits for
// the keychain in a local event loop, so it needs a QCoreApplication.
class KeychainStore : public SecretStore {
public:
    static constexpr const char* kFigmaService = "design.mirta.quillane.figma";

    explicit KeychainStore(std::string service = kFigmaService) : service_(std::move(service)) {}
    const std::string& service() const { return service_; }

    std::optional<std::string> data(const std::string& key) override;
    void set(const std::string& data, const std::string& key) override;
    void remove(const std::string& key) override;

private:
    std::string service_;
};

} // namespace varnel
