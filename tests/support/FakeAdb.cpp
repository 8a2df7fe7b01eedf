#include "support/FakeAdb.h"

#include "media/GstSupport.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace varnel::test {

namespace {

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool readExactly(int fd, std::string& into, std::size_t size) {
    into.assign(size, '\0');
    for (std::size_t at = 0; at < size;) {
        const ssize_t got = ::recv(fd, into.data() + at, size - at, 0);
        if (got <= 0)
            return false;
        at += static_cast<std::size_t>(got);
    }
    return true;
}

std::string block(std::string_view text) {
    char length[8];
    std::snprintf(length, sizeof length, "%04zx", text.size());
    return std::string(length) + std::string(text);
}

bool readRequest(int fd, std::string& request) {
    std::string length;
    if (!readExactly(fd, length, 4))
        return false;
    return readExactly(fd, request, std::stoul(length, nullptr, 16));
}

void fail(int fd, std::string_view reason) {
    sendAll(fd, "FAIL" + block(reason));
}

} // namespace

FakeAdb::FakeAdb() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("the fake adb server could not listen");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] {
        for (;;) {
            const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            std::lock_guard lock(mutex_);
            if (client < 0 || stopping_) {
                if (client >= 0)
                    ::close(client);
                return;
            }
            openClients_.push_back(client);
            clients_.emplace_back([this, client] { serve(client); });
        }
    });
}

FakeAdb::~FakeAdb() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        for (const int client : openClients_)
            ::shutdown(client, SHUT_RDWR);
    }
    changed_.notify_all();
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (auto& client : clients_)
        client.join();
    ::close(listener_);
}

std::string FakeAdb::address() const {
    return "tcp:127.0.0.1:" + std::to_string(port_);
}

void FakeAdb::plug(Device device) {
    {
        std::lock_guard lock(mutex_);
        if (!devices_.contains(device.serial))
            order_.push_back(device.serial);
        devices_[device.serial] = std::move(device);
        ++generation_;
    }
    changed_.notify_all();
}

void FakeAdb::unplug(const std::string& serial) {
    {
        std::lock_guard lock(mutex_);
        devices_.erase(serial);
        std::erase(order_, serial);
        ++generation_;
        ++streamGeneration_; // its streams end with it
    }
    changed_.notify_all();
}

void FakeAdb::setState(const std::string& serial, const std::string& state) {
    {
        std::lock_guard lock(mutex_);
        devices_.at(serial).state = state;
        ++generation_;
    }
    changed_.notify_all();
}

void FakeAdb::endStreams() {
    {
        std::lock_guard lock(mutex_);
        ++streamGeneration_;
    }
    changed_.notify_all();
}

std::vector<std::string> FakeAdb::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::string FakeAdb::listing(bool longForm) const {
    std::string text;
    for (const auto& serial : order_) {
        const Device& device = devices_.at(serial);
        text += serial + "\t" + device.state;
        if (longForm && device.state == "device")
            text += " product:" + device.model + " model:" + device.model +
                    " device:" + device.model + " transport_id:1";
        text += "\n";
    }
    return text;
}

void FakeAdb::serve(int client) {
    std::string request;
    if (readRequest(client, request)) {
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(request);
        }
        if (request == "host:version") {
            sendAll(client, "OKAY" + block("0029"));
        } else if (request == "host:devices" || request == "host:devices-l") {
            std::lock_guard lock(mutex_);
            sendAll(client, "OKAY" + block(listing(request == "host:devices-l")));
        } else if (request == "host:track-devices") {
            track(client);
        } else if (request.rfind("host:transport:", 0) == 0) {
            transport(client, request.substr(15));
        } else {
            fail(client, "unknown host service");
        }
    }
    std::lock_guard lock(mutex_);
    std::erase(openClients_, client);
    ::close(client);
}

void FakeAdb::track(int client) {
    std::unique_lock lock(mutex_);
    if (!sendAll(client, "OKAY"))
        return;
    unsigned sent = generation_ - 1;
    while (!stopping_) {
        if (sent != generation_) {
            sent = generation_;
            if (!sendAll(client, block(listing(false))))
                return;
        }
        changed_.wait(lock, [&] { return stopping_ || sent != generation_; });
    }
}

void FakeAdb::transport(int client, const std::string& serial) {
    Device device;
    {
        std::lock_guard lock(mutex_);
        const auto found = devices_.find(serial);
        if (found == devices_.end())
            return fail(client, "device '" + serial + "' not found");
        if (found->second.state == "unauthorized")
            return fail(client, "device unauthorized.\nThis adb server's $ADB_VENDOR_KEYS is not "
                                "set\nTry 'adb kill-server' if that seems wrong.\nOtherwise "
                                "check for a confirmation dialog on your device.");
        if (found->second.state != "device")
            return fail(client, "device offline");
        device = found->second;
    }
    if (!sendAll(client, "OKAY"))
        return;
    std::string service;
    if (!readRequest(client, service))
        return;
    {
        std::lock_guard lock(mutex_);
        requests_.push_back(serial + " " + service);
    }
    if (service == "exec:screencap -p") {
        ++screencaps_;
        if (device.png.empty())
            return void(sendAll(client, "OKAY/system/bin/sh: screencap: inaccessible\n"));
        sendAll(client, "OKAY" + device.png);
    } else if (service.rfind("exec:screenrecord", 0) == 0 &&
               service.find("--output-format=h264") != std::string::npos) {
        sendAll(client, "OKAY");
        stream(client, device);
    } else if (service.rfind("exec:getprop ", 0) == 0) {
        const bool avd = service.find("avd_name") != std::string::npos;
        sendAll(client, "OKAY" + (avd ? device.avdName : std::string()) + "\n");
    } else {
        fail(client, "closed");
    }
}

void FakeAdb::stream(int client, const Device& device) {
    ++streams_;
    const auto frames = device.frames;
    const std::size_t count = frames.size();
    const std::size_t limit =
        device.framesPerStream > 0 ? static_cast<std::size_t>(device.framesPerStream) : count;
    const auto interval = std::chrono::microseconds(1'000'000 / device.fps);
    auto next = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    const unsigned generation = streamGeneration_;
    // Every stream starts with the stream's first frame (its parameter sets and a key frame),
    // as a recorder does when it starts; later ones loop over the rest.
    for (std::size_t sent = 0; sent < limit; ++sent) {
        const std::size_t index = sent == 0 ? 0 : 1 + (sent - 1) % (count - 1);
        const std::size_t end = index + 1 < count ? frames[index + 1] : device.h264.size();
        lock.unlock();
        const bool ok = sendAll(
            client, std::string_view(device.h264).substr(frames[index], end - frames[index]));
        lock.lock();
        if (!ok)
            return;
        next += interval;
        if (changed_.wait_until(lock, next,
                                [&] { return stopping_ || streamGeneration_ != generation; }))
            return;
    }
}

std::pair<std::string, std::vector<std::size_t>> FakeAdb::h264Stream(int width, int height,
                                                                     int frames, int fps) {
    gst::initialize();
    // One key frame a stream's worth: every stream opens with the first frame, which is one.
    const std::string description =
        "videotestsrc pattern=smpte horizontal-speed=4 num-buffers=" + std::to_string(frames) +
        " ! video/x-raw,format=I420,width=" + std::to_string(width) +
        ",height=" + std::to_string(height) + ",framerate=" + std::to_string(fps) +
        "/1 ! x264enc speed-preset=ultrafast tune=zerolatency key-int-max=" +
        std::to_string(frames) +
        " ! h264parse config-interval=-1 ! video/x-h264,stream-format=byte-stream,alignment=au"
        " ! appsink name=sink sync=false";
    auto pipeline = gst::parse(description.c_str());
    if (!pipeline)
        throw std::runtime_error("no H.264 encoder");
    auto sink = gst::child(pipeline.get(), "sink");
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    std::pair<std::string, std::vector<std::size_t>> out;
    while (GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink.get()))) {
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        GstMapInfo map;
        if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            out.second.push_back(out.first.size());
            out.first.append(reinterpret_cast<const char*>(map.data), map.size);
            gst_buffer_unmap(buffer, &map);
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    return out;
}

} // namespace varnel::test
