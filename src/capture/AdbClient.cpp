#include "capture/AdbClient.h"

#include <fcntl.h>
#include <netdb.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

extern char** environ;

namespace varnel {

namespace {

// A device that stops answering mid-command is given up on after this.
constexpr int kReplySeconds = 15;

class Socket {
public:
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            throw AdbError(std::string("The adb server stopped listening: ") +
                           std::strerror(errno));
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

// Up to `size` bytes; 0 at the end.
std::size_t readSome(int fd, char* into, std::size_t size) {
    for (;;) {
        const ssize_t got = ::recv(fd, into, size, 0);
        if (got >= 0)
            return static_cast<std::size_t>(got);
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            throw AdbError("The device stopped answering.");
        throw AdbError(std::string("The link to the adb server failed: ") + std::strerror(errno));
    }
}

std::string readExactly(int fd, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t at = 0; at < size;) {
        const std::size_t got = readSome(fd, bytes.data() + at, size - at);
        if (got == 0)
            throw AdbError("The adb server closed the connection mid-answer.");
        at += got;
    }
    return bytes;
}

std::size_t hexLength(const std::string& digits) {
    std::size_t value = 0;
    for (const char c : digits) {
        const int digit = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit < 0)
            throw AdbError("The adb server answered in a way Varnel does not understand.");
        value = value * 16 + static_cast<std::size_t>(digit);
    }
    return value;
}

std::string readBlock(int fd) {
    return readExactly(fd, hexLength(readExactly(fd, 4)));
}

void readStatus(int fd) {
    const std::string status = readExactly(fd, 4);
    if (status == "OKAY")
        return;
    if (status == "FAIL")
        throw AdbError(readBlock(fd));
    throw AdbError("The adb server answered in a way Varnel does not understand.");
}

void sendRequest(int fd, const std::string& request) {
    char length[8];
    std::snprintf(length, sizeof length, "%04zx", request.size());
    writeAll(fd, std::string(length) + request);
}

void setReplyTimeout(int fd, int seconds) {
    timeval timeout{};
    timeout.tv_sec = seconds;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
}

// "model:Pixel_7" is how adb writes "Pixel 7".
std::string spaced(std::string text) {
    for (char& c : text)
        if (c == '_')
            c = ' ';
    return text;
}

} // namespace

AdbAddress AdbAddress::parse(std::string_view spec) {
    AdbAddress address;
    address.fromEnvironment = true;
    if (spec.rfind("localfilesystem:", 0) == 0) {
        address.unixPath = std::string(spec.substr(16));
        return address;
    }
    if (spec.rfind("tcp:", 0) == 0)
        spec.remove_prefix(4);
    const auto colon = spec.rfind(':');
    const std::string port(colon == std::string_view::npos ? spec : spec.substr(colon + 1));
    if (colon != std::string_view::npos && colon > 0)
        address.host = std::string(spec.substr(0, colon));
    address.port = std::atoi(port.c_str());
    if (address.port <= 0 || address.port > 65535)
        throw AdbError("ADB_SERVER_SOCKET is not an address Varnel understands: " +
                       std::string(spec));
    return address;
}

AdbAddress AdbAddress::current() {
    const char* spec = std::getenv("ADB_SERVER_SOCKET");
    return spec && *spec ? parse(spec) : AdbAddress{};
}

AdbStream::~AdbStream() {
    ::close(fd_);
}

std::size_t AdbStream::read(char* into, std::size_t size) {
    return readSome(fd_, into, size);
}

void AdbStream::cancel() {
    ::shutdown(fd_, SHUT_RDWR);
}

AdbClient::AdbClient(AdbAddress address) : address_(std::move(address)) {}

int AdbClient::connectToServer() const {
    if (!address_.unixPath.empty()) {
        Socket fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un where{};
        where.sun_family = AF_UNIX;
        std::strncpy(where.sun_path, address_.unixPath.c_str(), sizeof where.sun_path - 1);
        if (fd.get() < 0 ||
            ::connect(fd.get(), reinterpret_cast<sockaddr*>(&where), sizeof where) != 0)
            throw AdbError("No adb server answers at " + address_.unixPath + ".");
        return fd.release();
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(address_.port);
    if (::getaddrinfo(address_.host.c_str(), port.c_str(), &hints, &found) != 0 || !found)
        throw AdbError("No adb server answers at " + address_.host + ":" + port + ".");
    std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> list(found, &::freeaddrinfo);
    for (const addrinfo* at = found; at; at = at->ai_next) {
        Socket fd(::socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC, at->ai_protocol));
        if (fd.get() >= 0 && ::connect(fd.get(), at->ai_addr, at->ai_addrlen) == 0)
            return fd.release();
    }
    throw AdbError("No adb server answers at " + address_.host + ":" + port + ".");
}

int AdbClient::request(const std::string& text) const {
    Socket fd(connectToServer());
    setReplyTimeout(fd.get(), kReplySeconds);
    sendRequest(fd.get(), text);
    readStatus(fd.get());
    return fd.release();
}

int AdbClient::deviceService(const std::string& serial, const std::string& service) const {
    Socket fd(request("host:transport:" + serial));
    sendRequest(fd.get(), service);
    readStatus(fd.get());
    return fd.release();
}

int AdbClient::version() const {
    Socket fd(request("host:version"));
    return static_cast<int>(hexLength(readBlock(fd.get())));
}

bool AdbClient::ensureServer() const {
    try {
        version();
        return true;
    } catch (const AdbError&) {
        if (address_.fromEnvironment)
            return false;
    }
    // `adb start-server` returns once the server listens; a missing adb is simply no server.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char adb[] = "adb";
    char start[] = "start-server";
    char* argv[] = {adb, start, nullptr};
    pid_t child = 0;
    const int spawned = posix_spawnp(&child, "adb", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return false;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    try {
        version();
        return true;
    } catch (const AdbError&) {
        return false;
    }
}

std::vector<AdbDevice> AdbClient::parseDevices(std::string_view text) {
    std::vector<AdbDevice> devices;
    std::istringstream lines{std::string(text)};
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        AdbDevice device;
        if (!(words >> device.serial >> device.state))
            continue;
        std::string word;
        while (words >> word) {
            const auto colon = word.find(':');
            if (colon == std::string::npos)
                continue;
            const std::string key = word.substr(0, colon), value = word.substr(colon + 1);
            if (key == "model")
                device.model = value;
            else if (key == "product")
                device.product = value;
            else if (key == "device")
                device.device = value;
        }
        devices.push_back(std::move(device));
    }
    return devices;
}

std::vector<AdbDevice> AdbClient::devices() const {
    Socket fd(request("host:devices-l"));
    return parseDevices(readBlock(fd.get()));
}

std::string AdbClient::exec(const std::string& serial, const std::string& command,
                            std::size_t maxBytes) const {
    Socket fd(deviceService(serial, "exec:" + command));
    std::string output;
    char buffer[64 * 1024];
    while (const std::size_t got = readSome(fd.get(), buffer, sizeof buffer)) {
        output.append(buffer, got);
        if (output.size() > maxBytes)
            throw AdbError("The device sent more than Varnel expected.");
    }
    return output;
}

std::unique_ptr<AdbStream> AdbClient::open(const std::string& serial,
                                           const std::string& command) const {
    Socket fd(deviceService(serial, "exec:" + command));
    setReplyTimeout(fd.get(), 0); // a stream may pause as long as the screen does not change
    return std::make_unique<AdbStream>(fd.release());
}

std::string AdbClient::displayName(const AdbDevice& device, const std::string& avdName) {
    if (device.isEmulator())
        return "Android Emulator — " + spaced(!avdName.empty()        ? avdName
                                              : !device.model.empty() ? device.model
                                                                      : device.serial);
    return "Android — " + spaced(device.model.empty() ? device.serial : device.model);
}

AdbDeviceTracker::AdbDeviceTracker(AdbClient client, std::function<void()> changed)
    : client_(std::move(client)), changed_(std::move(changed)), thread_([this] { run(); }) {}

AdbDeviceTracker::~AdbDeviceTracker() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        if (fd_ >= 0)
            ::shutdown(fd_, SHUT_RDWR);
    }
    thread_.join();
}

void AdbDeviceTracker::run() {
    const auto stopping = [this] {
        std::lock_guard lock(mutex_);
        return stopping_;
    };
    client_.ensureServer();
    bool listed = false;
    while (!stopping()) {
        try {
            Socket fd(client_.request("host:track-devices"));
            setReplyTimeout(fd.get(), 0);
            // Published for the destructor to wake the read below; withdrawn before closing.
            struct Published {
                AdbDeviceTracker& tracker;
                bool open;
                Published(AdbDeviceTracker& t, int fd) : tracker(t) {
                    std::lock_guard lock(tracker.mutex_);
                    open = !tracker.stopping_;
                    if (open)
                        tracker.fd_ = fd;
                }
                ~Published() {
                    std::lock_guard lock(tracker.mutex_);
                    tracker.fd_ = -1;
                }
            } published(*this, fd.get());
            // The first list comes at once, then one after every change.
            while (published.open) {
                readBlock(fd.get());
                listed = true;
                changed_();
            }
        } catch (const AdbError&) {
        }
        if (stopping())
            break;
        // The server went away (or never came): its devices went with it. Try again soon.
        if (listed)
            changed_();
        listed = false;
        for (int tick = 0; tick < 20 && !stopping(); ++tick)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

} // namespace varnel
