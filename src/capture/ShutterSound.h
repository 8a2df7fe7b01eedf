#pragma once

#include <filesystem>
#include <string>
#include <vector>

typedef struct _GstElement GstElement;

namespace varnel {

// The sounds the shutter can make (files of the system's sound folders) and the playing of one
// of them. The sound is made once per name and played again from the start on every capture.
class ShutterSound {
public:
    struct Option {
        std::string id;          // file name without its extension
        std::string displayName; // the id with "_" shown as " "
        std::filesystem::path url;
        bool operator==(const Option& other) const { return id == other.id; }
    };

    static std::vector<std::filesystem::path> defaultDirectories();
    // The sound played when the chosen one can't be found.
    static constexpr const char* kFallbackID = "camera-shutter";

    // `audioSink` names the GStreamer element that plays (empty: the system's default output).
    explicit ShutterSound(std::vector<std::filesystem::path> directories = defaultDirectories(),
                          std::string audioSink = {});
    ~ShutterSound();
    ShutterSound(const ShutterSound&) = delete;
    ShutterSound& operator=(const ShutterSound&) = delete;

    // "Shutter" first when there is one, the others by name; an id found in two folders is
    // taken from the first.
    const std::vector<Option>& options();
    static std::vector<Option> catalogue(const std::vector<std::filesystem::path>& directories);

    // Plays the sound of that id at `volume` (clamped to 0..1); false when no sound is there.
    bool play(const std::string& id, double volume);

    // The file that plays, and its volume (what the last `play` chose).
    const std::filesystem::path& loadedFile() const { return loadedFile_; }
    double volume() const;

private:
    std::filesystem::path resolve(const std::string& id);

    std::vector<std::filesystem::path> directories_;
    std::string audioSink_;
    bool catalogued_ = false;
    std::vector<Option> options_;
    GstElement* player_ = nullptr;
    std::string loadedID_;
    std::filesystem::path loadedFile_;
};

} // namespace varnel
