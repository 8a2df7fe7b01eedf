#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace varnel::test {

// An adb server on 127.0.0.1 speaking the host protocol: version, device lists and tracking,
// transport to a serial, and exec of `screencap -p`, `screenrecord --output-format=h264 -` and
// `getprop`. Devices are plugged and unplugged by the test; each serves a real PNG and a real
// H.264 stream, sent at its frame rate.
class FakeAdb {
public:
    struct Device {
        std::string serial;
        std::string state = "device";
        std::string model;               // as adb writes it: "Pixel_7"
        std::string avdName;             // emulators only
        std::string png;                 // what screencap sends; empty: screencap fails
        std::string h264;                // an H.264 byte stream (see h264Stream)
        std::vector<std::size_t> frames; // where each access unit of `h264` starts
        int fps = 30;
        // A stream ends after this many frames, as screenrecord does at its time limit; 0 for
        // the whole stream once.
        int framesPerStream = 0;
    };

    FakeAdb();
    ~FakeAdb();
    FakeAdb(const FakeAdb&) = delete;
    FakeAdb& operator=(const FakeAdb&) = delete;

    // What ADB_SERVER_SOCKET names to reach it.
    std::string address() const;

    void plug(Device device);
    void unplug(const std::string& serial);
    void setState(const std::string& serial, const std::string& state);
    // Ends every running screen stream now, as a device does when its recorder stops.
    void endStreams();

    int screencaps() const { return screencaps_; }
    int streamsStarted() const { return streams_; }
    std::vector<std::string> requests() const;

    // A real H.264 byte stream of `frames` frames from GStreamer's test source, and where each
    // frame starts in it.
    static std::pair<std::string, std::vector<std::size_t>> h264Stream(int width, int height,
                                                                       int frames, int fps);

private:
    void serve(int client);
    void track(int client);
    void transport(int client, const std::string& serial);
    void stream(int client, const Device& device);
    std::string listing(bool longForm) const;

    int listener_ = -1;
    int port_ = 0;
    std::thread acceptor_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    unsigned generation_ = 0;
    unsigned streamGeneration_ = 0;
    bool stopping_ = false;
    std::map<std::string, Device> devices_;
    std::vector<std::string> order_;
    std::vector<std::string> requests_;
    std::vector<std::thread> clients_;
    std::vector<int> openClients_;
    std::atomic<int> screencaps_{0};
    std::atomic<int> streams_{0};
};

} // namespace varnel::test
