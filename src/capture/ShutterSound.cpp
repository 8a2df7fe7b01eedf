#include "capture/ShutterSound.h"

#include "media/GstSupport.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

namespace varnel {

namespace {

constexpr std::array<std::string_view, 8> kExtensions = {"aiff", "aif", "caf", "m4a",
                                                         "wav",  "oga", "ogg", "flac"};

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool isAudio(const std::filesystem::path& file) {
    std::string ext = file.extension().string();
    if (ext.empty())
        return false;
    ext = lowered(ext.substr(1));
    return std::find(kExtensions.begin(), kExtensions.end(), ext) != kExtensions.end();
}

std::vector<std::filesystem::path> sortedFiles(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> files;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(directory, ec)) {
        std::error_code inner;
        if (entry.is_regular_file(inner))
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end(),
              [](const auto& a, const auto& b) { return a.filename() < b.filename(); });
    return files;
}

// The freedesktop sound theme's file of a named sound.
std::filesystem::path namedSound(const std::string& id) {
    const std::filesystem::path theme = "/usr/share/sounds/freedesktop/stereo";
    for (const auto ext : kExtensions) {
        const auto file = theme / (id + "." + std::string(ext));
        std::error_code ec;
        if (std::filesystem::is_regular_file(file, ec))
            return file;
    }
    return {};
}

} // namespace

std::vector<std::filesystem::path> ShutterSound::defaultDirectories() {
    return {"/usr/share/sounds/freedesktop/stereo", "/usr/share/sounds"};
}

ShutterSound::ShutterSound(std::vector<std::filesystem::path> directories, std::string audioSink)
    : directories_(std::move(directories)), audioSink_(std::move(audioSink)) {}

ShutterSound::~ShutterSound() {
    if (player_) {
        gst_element_set_state(player_, GST_STATE_NULL);
        gst_object_unref(player_);
    }
}

std::vector<ShutterSound::Option>
ShutterSound::catalogue(const std::vector<std::filesystem::path>& directories) {
    std::vector<Option> out;
    std::set<std::string> seen;
    for (const auto& directory : directories) {
        for (const auto& file : sortedFiles(directory)) {
            if (!isAudio(file))
                continue;
            std::string id = file.stem().string();
            if (!seen.insert(id).second)
                continue;
            std::string display = id;
            std::replace(display.begin(), display.end(), '_', ' ');
            out.push_back(Option{std::move(id), std::move(display), file});
        }
    }
    std::stable_sort(out.begin(), out.end(), [](const Option& a, const Option& b) {
        if ((a.id == "Shutter") != (b.id == "Shutter"))
            return a.id == "Shutter";
        return lowered(a.displayName) < lowered(b.displayName);
    });
    return out;
}

const std::vector<ShutterSound::Option>& ShutterSound::options() {
    if (!catalogued_) {
        options_ = catalogue(directories_);
        catalogued_ = true;
    }
    return options_;
}

std::filesystem::path ShutterSound::resolve(const std::string& id) {
    for (const auto& option : options()) {
        if (option.id == id)
            return option.url;
    }
    if (auto named = namedSound(id); !named.empty())
        return named;
    return namedSound(kFallbackID);
}

bool ShutterSound::play(const std::string& id, double volume) {
    if (!gst::initialize())
        return false;
    if (!player_ || id != loadedID_) {
        const auto file = resolve(id);
        if (file.empty())
            return false;
        if (!player_) {
            player_ = gst_element_factory_make("playbin", nullptr);
            if (!player_)
                return false;
            gst_object_ref_sink(player_);
            if (!audioSink_.empty())
                g_object_set(player_, "audio-sink",
                             gst_element_factory_make(audioSink_.c_str(), nullptr), nullptr);
            // Only the sound: no video window, no subtitles.
            g_object_set(player_, "flags", 0x2, nullptr);
        }
        gst_element_set_state(player_, GST_STATE_READY);
        gchar* uri = gst_filename_to_uri(file.c_str(), nullptr);
        g_object_set(player_, "uri", uri, nullptr);
        g_free(uri);
        loadedID_ = id;
        loadedFile_ = file;
    }
    gst_element_set_state(player_, GST_STATE_READY); // from the start, also while playing
    g_object_set(player_, "volume", std::clamp(volume, 0.0, 1.0), nullptr);
    return gst_element_set_state(player_, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
}

double ShutterSound::volume() const {
    double value = 0;
    if (player_)
        g_object_get(player_, "volume", &value, nullptr);
    return value;
}

} // namespace varnel
