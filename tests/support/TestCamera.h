#pragma once

#include <string>
#include <utility>

namespace varnel::test {

// Cameras made of GStreamer's test source, offered through a device provider of their own, so
// that the product's device monitor finds them, sees them come and go, and reads their
// pictures exactly as it would a real camera's.
namespace TestCameras {

struct Spec {
    Spec(std::string serial, std::string name, int width = 640, int height = 480, int fps = 30,
         std::string pattern = "smpte")
        : serial(std::move(serial)), name(std::move(name)), width(width), height(height), fps(fps),
          pattern(std::move(pattern)) {}

    std::string serial; // the id the device manager gives the camera
    std::string name;   // its display name
    int width = 640;
    int height = 480;
    int fps = 30;
    std::string pattern = "smpte"; // videotestsrc's pattern
    // Offers only JPEG pictures (as many USB cameras do) instead of raw ones.
    bool mjpeg = false;
    // What the test calls it by to unplug it; the serial when empty. Two cameras may share a
    // serial (a buggy device) but not a key.
    std::string key;
    // The V4L2 node it stands for, when it should look like one.
    std::string v4l2Path;
};

// Registers the provider with GStreamer (once per process); the first camera does it.
void install();
// Plugs in a camera (a device-added message reaches running monitors).
void connect(const Spec& spec);
// Unplugs it (device-removed); by its key, which is its serial unless it was given one.
void disconnect(const std::string& key);
// Unplugs all.
void disconnectAll();

} // namespace TestCameras

} // namespace varnel::test
