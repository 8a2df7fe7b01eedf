#pragma once

#include <string>

namespace varnel::test {

// Cameras made of GStreamer's test source, offered through a device provider of their own, so
// that the product's device monitor finds them, sees them come and go, and reads their
// pictures exactly as it would a real camera's.
namespace TestCameras {

struct Spec {
    std::string serial; // the id the device manager gives the camera
    std::string name;   // its display name
    int width = 640;
    int height = 480;
    int fps = 30;
    std::string pattern = "smpte"; // videotestsrc's pattern
};

// Registers the provider with GStreamer (once per process); the first camera does it.
void install();
// Plugs in a camera (a device-added message reaches running monitors).
void connect(const Spec& spec);
// Unplugs it (device-removed).
void disconnect(const std::string& serial);
// Unplugs all.
void disconnectAll();

} // namespace TestCameras

} // namespace varnel::test
