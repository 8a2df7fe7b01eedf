#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace varnel {

// What went wrong talking to the adb server or a device; what() says it for the user.
class AdbError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a phone waiting for the user's leave to be debugged needs.
inline constexpr const char* kAdbUnauthorizedHint =
    "The phone has not allowed this computer yet: unlock it and tap Allow when it asks “Allow "
    "USB debugging?” (tick “Always allow from this computer”), then refresh.";

// Where the adb server listens: ADB_SERVER_SOCKET ("tcp:HOST:PORT", "tcp:PORT" or
// "localfilesystem:PATH"), else tcp:localhost:5037.
struct AdbAddress {
    std::string host = "localhost";
    int port = 5037;
    std::string unixPath; // set for a local socket
    bool fromEnvironment = false;

    static AdbAddress current();
    static AdbAddress parse(std::string_view spec);
};

// One device as the server lists it ("host:devices-l").
struct AdbDevice {
    std::string serial;
    std::string state; // "device", "unauthorized", "offline", ...
    std::string model;
    std::string product;
    std::string device;

    bool isEmulator() const { return serial.rfind("emulator-", 0) == 0; }
    bool operator==(const AdbDevice&) const = default;
};

// An open connection to a device command whose output is read as it comes.
class AdbStream {
public:
    explicit AdbStream(int fd) : fd_(fd) {}
    ~AdbStream();
    AdbStream(const AdbStream&) = delete;
    AdbStream& operator=(const AdbStream&) = delete;

    // Up to `size` bytes; 0 at the end of the output. Throws AdbError when the link fails.
    std::size_t read(char* into, std::size_t size);
    // Ends the stream from another thread: a blocked read returns 0.
    void cancel();

private:
    int fd_;
};

// A client of the adb server's host protocol: requests are a 4-digit hex length and text, and
// answers "OKAY" or "FAIL" with a hex-length reason. Each call opens its own connection, so one
// client may be used from several threads.
class AdbClient {
public:
    explicit AdbClient(AdbAddress address = AdbAddress::current());

    // The server's protocol version. Throws AdbError when no server answers.
    int version() const;
    // Asks `adb start-server` to start one when none answers at the default address (never
    // when ADB_SERVER_SOCKET names another); whether a server answers now.
    bool ensureServer() const;
    std::vector<AdbDevice> devices() const;
    // Runs a command on the device and returns all it wrote (at most `maxBytes`).
    std::string exec(const std::string& serial, const std::string& command,
                     std::size_t maxBytes = 256u << 20) const;
    // Runs a command on the device and hands its output over as it comes.
    std::unique_ptr<AdbStream> open(const std::string& serial, const std::string& command) const;

    // "Android — Pixel 7", "Android Emulator — Pixel 7 API 34"; `avdName` for emulators.
    static std::string displayName(const AdbDevice& device, const std::string& avdName = {});
    static std::vector<AdbDevice> parseDevices(std::string_view text);

private:
    int connectToServer() const;
    // Opens a connection and sends `request`; the answer's "OKAY" is read. Throws on "FAIL".
    int request(const std::string& request) const;
    // A transport to the device, then `service` on it.
    int deviceService(const std::string& serial, const std::string& service) const;

    friend class AdbDeviceTracker;

    AdbAddress address_;
};

// Follows the server's device list ("host:track-devices") on a thread of its own, calling
// `changed` after every change; a lost server is retried. Stops when destroyed.
class AdbDeviceTracker {
public:
    AdbDeviceTracker(AdbClient client, std::function<void()> changed);
    ~AdbDeviceTracker();
    AdbDeviceTracker(const AdbDeviceTracker&) = delete;
    AdbDeviceTracker& operator=(const AdbDeviceTracker&) = delete;

private:
    void run();
    AdbClient client_;
    std::function<void()> changed_;
    // Guards `fd_`, so that stopping never shuts a socket down once it is closed.
    std::mutex mutex_;
    bool stopping_ = false;
    int fd_ = -1;
    std::thread thread_;
};

} // namespace varnel
