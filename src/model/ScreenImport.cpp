#include "model/ScreenImport.h"

#include "editing/VideoRedactor.h"
#include "library/FileOps.h"
#include "library/FlowMeta.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/StoreErrors.h"
#include "library/Text.h"
#include "library/Utf8.h"
#include "library/Uuid.h"
#include "media/GstSupport.h"
#include "media/PngImage.h"
#include "media/PngSize.h"
#include "media/PngWriter.h"
#include "model/FlowLibrary.h"

#include <QImage>
#include <QImageReader>

#include <libheif/heif.h>
#include <opencv2/imgproc.hpp>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace varnel::ScreenImport {

namespace {

// Pictures are read whole; no screen's file comes near this.
constexpr std::uintmax_t kMaxPictureBytes = 512ull * 1024 * 1024;

// Names from the file system may be any bytes; what is shown and stored is UTF-8.
std::string displayable(const std::string& bytes) {
    std::string out;
    std::size_t i = 0;
    while (i < bytes.size()) {
        const std::size_t start = i;
        if (Utf8::next(bytes, i))
            out.append(bytes, start, i - start);
        else
            out += "\xEF\xBF\xBD"; // U+FFFD
    }
    return out;
}

std::string displayName(const fs::path& path) {
    return displayable(path.filename().string());
}

Date modified(const fs::path& file) {
    std::error_code error;
    const auto time = fs::last_write_time(file, error);
    if (error)
        return Date::now();
    const auto system = std::chrono::file_clock::to_sys(time);
    return Date::fromUnixSeconds(std::chrono::duration<double>(system.time_since_epoch()).count());
}

std::string readReason(const std::error_code& error) {
    if (error == std::errc::permission_denied)
        return "it can’t be read: permission denied";
    return "it can’t be read: " + error.message();
}

std::variant<std::string, std::string> readAll(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        const std::error_code error(errno, std::generic_category());
        return std::variant<std::string, std::string>(std::in_place_index<1>, readReason(error));
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        return std::variant<std::string, std::string>(std::in_place_index<1>,
                                                      "it can’t be read: an input error");
    return std::variant<std::string, std::string>(std::in_place_index<0>, std::move(bytes));
}

std::uint32_t bigEndian(const std::string& bytes, std::size_t at) {
    return (std::uint32_t(static_cast<unsigned char>(bytes[at])) << 24) |
           (std::uint32_t(static_cast<unsigned char>(bytes[at + 1])) << 16) |
           (std::uint32_t(static_cast<unsigned char>(bytes[at + 2])) << 8) |
           std::uint32_t(static_cast<unsigned char>(bytes[at + 3]));
}

constexpr std::string_view kPngSignature("\x89PNG\r\n\x1a\n", 8);
constexpr std::string_view kDamaged = "the picture is cut short or damaged";

// A PNG is taken as it is once every chunk is whole, its checksum holds and it ends: a file cut
// short or garbled fails here rather than as a broken thumbnail later.
std::optional<std::string> pngProblem(const std::string& bytes, const std::string& name) {
    if (bytes.size() < 8 + 12 + 13 || bytes.compare(0, 8, kPngSignature) != 0 ||
        bytes.compare(12, 4, "IHDR") != 0 || bigEndian(bytes, 8) != 13)
        return std::string(kDamaged);
    if (auto problem = oversizeProblem(name, bigEndian(bytes, 16), bigEndian(bytes, 20)))
        return "it is too large: " + *problem;
    std::size_t at = 8;
    while (at + 12 <= bytes.size()) {
        const std::uint32_t length = bigEndian(bytes, at);
        if (length > 0x7fffffffu || bytes.size() - at - 12 < length)
            return std::string(kDamaged);
        const auto* chunk = reinterpret_cast<const Bytef*>(bytes.data() + at + 4);
        const uLong crc = crc32(crc32(0L, Z_NULL, 0), chunk, static_cast<uInt>(length + 4));
        if (crc != bigEndian(bytes, at + 8 + length))
            return std::string(kDamaged);
        if (bytes.compare(at + 4, 4, "IEND") == 0)
            return std::nullopt;
        at += 12 + length;
    }
    return std::string(kDamaged);
}

// A JPEG decoder fills what is missing of a file cut short with grey: the last scan must end.
bool jpegEnds(const std::string& bytes) {
    const auto scan = bytes.rfind("\xFF\xDA");
    return scan != std::string::npos && bytes.find("\xFF\xD9", scan + 2) != std::string::npos;
}

// Staged files are written plainly and made durable together before their flow comes in.
void writeStaged(const fs::path& file, std::string_view bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
        throw std::runtime_error("it couldn’t be written into the library");
}

// One flush of the file system for a whole flow's files rather than one per file.
void flushStaged(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0 || ::syncfs(fd) != 0) {
        if (fd >= 0)
            ::close(fd);
        ::sync();
        return;
    }
    ::close(fd);
}

std::optional<std::string> writePicture(const cv::Mat& bgra, const fs::path& destination) {
    bool opaque = true;
    for (int y = 0; y < bgra.rows && opaque; ++y) {
        const auto* row = bgra.ptr<std::uint8_t>(y);
        for (int x = 0; x < bgra.cols; ++x)
            if (row[4 * x + 3] != 255) {
                opaque = false;
                break;
            }
    }
    std::string png;
    if (opaque) {
        png = PngWriter::encode(bgra.data, bgra.cols, bgra.rows, bgra.step);
    } else {
        PngImage image;
        image.pixels = bgra;
        png = image.encode();
    }
    if (png.empty())
        return "it couldn’t be written as PNG";
    writeStaged(destination, png);
    return std::nullopt;
}

std::optional<std::string> convertJpeg(const fs::path& source, const std::string& bytes,
                                       const fs::path& destination) {
    if (!jpegEnds(bytes))
        return std::string(kDamaged);
    static std::once_flag limit;
    // The screen size cap is checked below; Qt's own default is smaller than it.
    std::call_once(limit, [] { QImageReader::setAllocationLimit(1024); });
    QImageReader reader(QString::fromStdString(source.string()), "jpeg");
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (!size.isValid())
        return std::string(kDamaged);
    if (auto problem = oversizeProblem(displayName(source), size.width(), size.height()))
        return "it is too large: " + *problem;
    QImage image = reader.read();
    if (image.isNull())
        return std::string(kDamaged);
    image = image.convertToFormat(QImage::Format_ARGB32);
    const cv::Mat bgra(image.height(), image.width(), CV_8UC4, image.bits(),
                       static_cast<std::size_t>(image.bytesPerLine()));
    return writePicture(bgra, destination);
}

std::optional<std::string> convertHeic(const fs::path& source, const fs::path& destination) {
    heif_context* context = heif_context_alloc();
    std::unique_ptr<heif_context, void (*)(heif_context*)> ownedContext(context, heif_context_free);
    heif_error error = heif_context_read_from_file(context, source.c_str(), nullptr);
    if (error.code != heif_error_Ok)
        return std::string(kDamaged) + " (" + error.message + ")";
    heif_image_handle* handle = nullptr;
    error = heif_context_get_primary_image_handle(context, &handle);
    if (error.code != heif_error_Ok)
        return std::string(kDamaged) + " (" + error.message + ")";
    std::unique_ptr<heif_image_handle, void (*)(const heif_image_handle*)> ownedHandle(
        handle, heif_image_handle_release);
    if (auto problem = oversizeProblem(displayName(source), heif_image_handle_get_width(handle),
                                       heif_image_handle_get_height(handle)))
        return "it is too large: " + *problem;
    // Decoding applies the file's rotation and mirroring.
    heif_image* image = nullptr;
    error = heif_decode_image(handle, &image, heif_colorspace_RGB, heif_chroma_interleaved_RGBA,
                              nullptr);
    if (error.code != heif_error_Ok)
        return "its picture can’t be decoded here (" + std::string(error.message) + ")";
    std::unique_ptr<heif_image, void (*)(const heif_image*)> ownedImage(image, heif_image_release);
    int stride = 0;
    const std::uint8_t* data =
        heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
    const int width = heif_image_get_width(image, heif_channel_interleaved);
    const int height = heif_image_get_height(image, heif_channel_interleaved);
    if (!data || width <= 0 || height <= 0)
        return std::string(kDamaged);
    const cv::Mat rgba(height, width, CV_8UC4, const_cast<std::uint8_t*>(data),
                       static_cast<std::size_t>(stride));
    cv::Mat bgra;
    cv::cvtColor(rgba, bgra, cv::COLOR_RGBA2BGRA);
    return writePicture(bgra, destination);
}

struct ClipProbe {
    std::string videoCodec; // caps name of the first picture track, "" when it has none
    std::optional<std::string> error;
};

// Waits for the end or an error of a running pipeline; a cancel stops it.
std::optional<std::string> waitForPipeline(GstElement* pipeline, GstMessageType until,
                                           const std::atomic<bool>* cancel) {
    GstBus* bus = gst_element_get_bus(pipeline);
    std::optional<std::string> failure;
    for (;;) {
        if (cancel && *cancel) {
            failure = "cancelled";
            break;
        }
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, 100 * GST_MSECOND, static_cast<GstMessageType>(until | GST_MESSAGE_ERROR));
        if (!message)
            continue;
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            GError* gerror = nullptr;
            gst_message_parse_error(message, &gerror, nullptr);
            failure = gerror ? gerror->message : "the media framework failed";
            if (gerror)
                g_error_free(gerror);
        }
        gst_message_unref(message);
        break;
    }
    gst_object_unref(bus);
    return failure;
}

ClipProbe probeClip(const fs::path& file, const std::atomic<bool>* cancel) {
    ClipProbe probe;
    std::string error;
    gst::ElementPtr pipeline = gst::parse("filesrc name=file ! qtdemux name=demux", &error);
    if (!pipeline) {
        probe.error = "the media framework can’t read clips: " + error;
        return probe;
    }
    g_object_set(gst::child(pipeline.get(), "file").get(), "location", file.c_str(), nullptr);
    struct Context {
        GstElement* pipeline;
        std::string* codec;
    } context{pipeline.get(), &probe.videoCodec};
    g_signal_connect(
        gst::child(pipeline.get(), "demux").get(), "pad-added",
        G_CALLBACK(+[](GstElement*, GstPad* pad, gpointer data) {
            auto* context = static_cast<Context*>(data);
            if (GstCaps* caps = gst_pad_query_caps(pad, nullptr)) {
                const char* name = gst_structure_get_name(gst_caps_get_structure(caps, 0));
                if (name && std::string_view(name).starts_with("video/") && context->codec->empty())
                    *context->codec = name;
                gst_caps_unref(caps);
            }
            GstElement* sink = gst_element_factory_make("fakesink", nullptr);
            gst_bin_add(GST_BIN(context->pipeline), sink);
            gst_element_sync_state_with_parent(sink);
            GstPad* sinkPad = gst_element_get_static_pad(sink, "sink");
            gst_pad_link(pad, sinkPad);
            gst_object_unref(sinkPad);
        }),
        &context);
    if (gst_element_set_state(pipeline.get(), GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
        probe.error = "the clip can’t be opened";
        return probe;
    }
    probe.error = waitForPipeline(pipeline.get(), GST_MESSAGE_ASYNC_DONE, cancel);
    pipeline.reset(); // before `context` goes
    return probe;
}

// An H.264 track as it is, in a QuickTime file.
std::optional<std::string> rewrap(const fs::path& source, const fs::path& destination,
                                  const std::atomic<bool>* cancel) {
    std::string error;
    gst::ElementPtr pipeline =
        gst::parse("filesrc name=file ! qtdemux name=demux demux.video_0 ! queue ! h264parse ! "
                   "qtmux ! filesink name=sink",
                   &error);
    if (!pipeline)
        return "the media framework can’t rewrap clips: " + error;
    g_object_set(gst::child(pipeline.get(), "file").get(), "location", source.c_str(), nullptr);
    g_object_set(gst::child(pipeline.get(), "sink").get(), "location", destination.c_str(),
                 nullptr);
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return std::string("the clip can’t be opened");
    auto failure = waitForPipeline(pipeline.get(), GST_MESSAGE_EOS, cancel);
    pipeline.reset();
    return failure;
}

std::string codecName(const std::string& caps) {
    static const std::map<std::string, std::string> names = {
        {"video/x-h264", "H.264"},    {"video/x-h265", "HEVC"}, {"video/x-prores", "ProRes"},
        {"video/x-vp9", "VP9"},       {"video/x-av1", "AV1"},   {"video/mpeg", "MPEG-4"},
        {"image/jpeg", "Motion JPEG"}};
    const auto found = names.find(caps);
    return found != names.end() ? found->second : caps;
}

std::optional<std::string> convertClip(const fs::path& source, Kind kind,
                                       const fs::path& destination,
                                       const std::atomic<bool>* cancel) {
    if (!gst::initialize())
        return std::string("clips can’t be read: the media framework couldn’t start");
    const ClipProbe probe = probeClip(source, cancel);
    if (probe.error && probe.videoCodec.empty())
        return "the clip can’t be read (" + *probe.error + ")";
    if (probe.videoCodec.empty())
        return std::string("the clip has no picture");
    if (probe.videoCodec == "video/x-h264") {
        if (kind == Kind::quickTime) {
            FileOps::copy(source, destination);
            return std::nullopt;
        }
        if (auto failure = rewrap(source, destination, cancel)) {
            std::error_code ignored;
            fs::remove(destination, ignored);
            return "the clip can’t be rewrapped (" + *failure + ")";
        }
        return std::nullopt;
    }
    // Another codec: re-encoded as H.264, frame times and sound kept.
    if (auto failure = VideoRedactor::render({}, destination, source, RedactStyle{}, {}, cancel))
        return "its " + codecName(probe.videoCodec) + " video can’t be converted (" + *failure +
               ")";
    return std::nullopt;
}

std::optional<std::string> kindProblem(std::uintmax_t size) {
    if (size == 0)
        return std::string("the file is empty");
    return "it isn’t a PNG, JPEG or HEIC picture, nor a MOV or MP4 clip";
}

} // namespace

Kind kindOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    char head[32] = {};
    in.read(head, sizeof head);
    const std::string bytes(head,
                            static_cast<std::size_t>(std::max<std::streamsize>(0, in.gcount())));
    if (bytes.starts_with(kPngSignature))
        return Kind::png;
    if (bytes.starts_with("\xFF\xD8\xFF"))
        return Kind::jpeg;
    if (bytes.size() >= 12 && bytes.compare(4, 4, "ftyp") == 0) {
        const std::size_t boxSize = std::min<std::size_t>(bigEndian(bytes, 0), bytes.size());
        static const std::set<std::string> heif = {"heic", "heix", "heim", "heis",
                                                   "hevc", "hevx", "mif1", "msf1"};
        const std::string major = bytes.substr(8, 4);
        if (major == "qt  ")
            return Kind::quickTime;
        if (heif.contains(major))
            return Kind::heic;
        for (std::size_t at = 16; at + 4 <= boxSize; at += 4)
            if (heif.contains(bytes.substr(at, 4)))
                return Kind::heic;
        if (major == "avif" || major == "avis" || major == "crx ")
            return Kind::other;
        return Kind::mpeg4;
    }
    // QuickTime files older than the "ftyp" box start with one of these.
    if (bytes.size() >= 8) {
        const std::string atom = bytes.substr(4, 4);
        if (atom == "moov" || atom == "mdat" || atom == "wide" || atom == "free" ||
            atom == "skip" || atom == "pnot")
            return Kind::quickTime;
    }
    return Kind::other;
}

std::variant<fs::path, std::string> convert(const fs::path& source, const fs::path& folder,
                                            const std::string& stem,
                                            const std::atomic<bool>* cancel) {
    using Result = std::variant<fs::path, std::string>;
    auto skip = [](std::string reason) {
        return Result(std::in_place_index<1>, std::move(reason));
    };
    std::error_code error;
    const auto status = fs::status(source, error);
    if (error)
        return skip(readReason(error));
    if (!fs::is_regular_file(status))
        return skip("it isn’t a file");
    const auto size = fs::file_size(source, error);
    if (error)
        return skip(readReason(error));
    {
        std::ifstream probe(source, std::ios::binary);
        if (!probe)
            return skip(readReason(std::error_code(errno, std::generic_category())));
    }
    const Kind kind = kindOf(source);
    if (kind == Kind::other)
        return skip(*kindProblem(size));
    const bool clip = kind == Kind::quickTime || kind == Kind::mpeg4;
    const fs::path destination = folder / (stem + (clip ? ".mov" : ".png"));
    try {
        if (clip) {
            if (auto problem = convertClip(source, kind, destination, cancel))
                return skip(*problem);
            return destination;
        }
        if (size > kMaxPictureBytes)
            return skip("it is too large: " + Text::byteCount(size) + " for one picture");
        if (kind == Kind::heic) {
            if (auto problem = convertHeic(source, destination))
                return skip(*problem);
            return destination;
        }
        auto read = readAll(source);
        if (read.index() == 1)
            return skip(std::get<1>(read));
        const std::string& bytes = std::get<0>(read);
        if (kind == Kind::png) {
            if (auto problem = pngProblem(bytes, displayName(source)))
                return skip(*problem);
            writeStaged(destination, bytes);
            return destination;
        }
        if (auto problem = convertJpeg(source, bytes, destination))
            return skip(*problem);
        return destination;
    } catch (const std::exception& e) {
        fs::remove(destination, error);
        return skip(std::string("it couldn’t be copied into the library: ") + e.what());
    }
}

bool naturalLess(const std::string& a, const std::string& b) {
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (digit(a[i]) && digit(b[j])) {
            std::size_t ei = i, ej = j;
            while (ei < a.size() && digit(a[ei]))
                ++ei;
            while (ej < b.size() && digit(b[ej]))
                ++ej;
            std::size_t si = i, sj = j;
            while (si + 1 < ei && a[si] == '0')
                ++si;
            while (sj + 1 < ej && b[sj] == '0')
                ++sj;
            if (ei - si != ej - sj)
                return ei - si < ej - sj;
            if (const int c = a.compare(si, ei - si, b, sj, ej - sj); c != 0)
                return c < 0;
            i = ei;
            j = ej;
            continue;
        }
        const char ca = static_cast<char>(std::tolower(static_cast<unsigned char>(a[i])));
        const char cb = static_cast<char>(std::tolower(static_cast<unsigned char>(b[j])));
        if (ca != cb)
            return static_cast<unsigned char>(ca) < static_cast<unsigned char>(cb);
        ++i;
        ++j;
    }
    if ((i < a.size()) != (j < b.size()))
        return i >= a.size();
    return a < b;
}

std::string importedName(Date date) {
    const auto seconds = static_cast<std::time_t>(date.unixSeconds());
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return std::string("Imported ") + text;
}

std::size_t Plan::fileCount() const {
    std::size_t count = 0;
    for (const auto& flow : flows)
        count += flow.files.size();
    return count;
}

namespace {

struct Gathered {
    std::vector<fs::path> files;
    std::vector<fs::path> folders;
};

std::string linkReason(const fs::path& path, const std::error_code& error) {
    if (error == std::errc::too_many_symbolic_link_levels)
        return "it is a link that leads back to itself";
    std::error_code ignored;
    if (error == std::errc::no_such_file_or_directory && fs::is_symlink(path, ignored))
        return "it is a link to something that isn’t there";
    return readReason(error);
}

class Planner {
public:
    explicit Planner(Plan& plan) : plan_(plan) {}

    // A folder's own files and subfolders; hidden entries (".DS_Store") are the system's.
    Gathered gather(const fs::path& folder) {
        Gathered found;
        std::error_code error;
        fs::directory_iterator it(folder, error);
        if (error) {
            plan_.skipped.push_back({folder, "the folder " + readReason(error).substr(3)});
            return found;
        }
        for (; it != fs::directory_iterator(); it.increment(error)) {
            const fs::path path = it->path();
            if (path.filename().string().starts_with("."))
                continue;
            if (auto kind = classify(path); kind == 1)
                found.files.push_back(path);
            else if (kind == 2)
                found.folders.push_back(path);
        }
        if (error)
            plan_.skipped.push_back({folder, "the folder " + readReason(error).substr(3)});
        sortNaturally(found.files);
        sortNaturally(found.folders);
        return found;
    }

    // 1: a file to import, 2: a folder not seen yet, 0: neither (skipped with its reason).
    int classify(const fs::path& path) {
        std::error_code error;
        const auto status = fs::status(path, error);
        if (error) {
            plan_.skipped.push_back({path, linkReason(path, error)});
            return 0;
        }
        if (fs::is_directory(status)) {
            const auto canonical = fs::weakly_canonical(path, error);
            if (!visited_.insert(error ? path : canonical).second) {
                plan_.skipped.push_back({path, "it is a link to a folder already imported"});
                return 0;
            }
            return 2;
        }
        if (!fs::is_regular_file(status)) {
            plan_.skipped.push_back({path, "it isn’t a file"});
            return 0;
        }
        const auto size = fs::file_size(path, error);
        if (error) {
            plan_.skipped.push_back({path, readReason(error)});
            return 0;
        }
        if (!std::ifstream(path, std::ios::binary)) {
            plan_.skipped.push_back(
                {path, readReason(std::error_code(errno, std::generic_category()))});
            return 0;
        }
        if (kindOf(path) == Kind::other) {
            plan_.skipped.push_back({path, *kindProblem(size)});
            return 0;
        }
        return 1;
    }

    // Every file under the folder, its own first, then each subfolder's in name order.
    std::vector<fs::path> everyFile(Gathered found) {
        std::vector<fs::path> files = std::move(found.files);
        for (const auto& sub : found.folders) {
            auto deeper = everyFile(gather(sub));
            files.insert(files.end(), deeper.begin(), deeper.end());
        }
        return files;
    }

    void addFolder(const fs::path& folder) {
        Gathered found = gather(folder);
        if (found.folders.empty()) {
            addFlow(folderName(folder), std::move(found.files), folder);
            return;
        }
        addFlow(folderName(folder), std::move(found.files), folder);
        for (const auto& sub : found.folders)
            addFlow(folderName(sub), everyFile(gather(sub)), sub);
    }

    void addFlow(std::string name, std::vector<fs::path> files, const fs::path& origin) {
        if (files.empty())
            return;
        if (name.empty())
            name = importedName(modified(files.front()));
        plan_.flows.push_back({std::move(name), std::move(files), origin});
    }

    static std::string folderName(const fs::path& folder) {
        fs::path named = folder;
        if (!named.has_filename())
            named = named.parent_path();
        return Text::trimmed(displayable(named.filename().string()));
    }

    static void sortNaturally(std::vector<fs::path>& paths) {
        std::sort(paths.begin(), paths.end(), [](const fs::path& a, const fs::path& b) {
            return naturalLess(a.filename().string(), b.filename().string());
        });
    }

private:
    Plan& plan_;
    std::set<fs::path> visited_;
};

} // namespace

Plan plan(const std::vector<fs::path>& paths) {
    Plan made;
    Planner planner(made);
    std::vector<fs::path> loose;
    for (const auto& path : paths) {
        const int kind = planner.classify(path);
        if (kind == 1)
            loose.push_back(path);
        else if (kind == 2)
            planner.addFolder(path);
    }
    Planner::sortNaturally(loose);
    if (!loose.empty()) {
        const std::string name = importedName(modified(loose.front()));
        made.flows.insert(made.flows.begin(), PlannedFlow{name, std::move(loose), {}});
    }
    return made;
}

std::string Report::summary() const {
    auto count = [](std::size_t n, const char* one, const char* many) {
        return n == 1 ? std::string("1 ") + one : std::to_string(n) + " " + many;
    };
    std::string text;
    const std::size_t added = addedScreens.size();
    if (screens == 0)
        text = "Imported nothing";
    else if (createdFlows.empty() && added == 1)
        text = "Added " + count(screens, "screen", "screens") + " to the flow";
    else
        text = "Imported " + count(screens, "screen", "screens") + " into " +
               count(createdFlows.size() + added, "flow", "flows");
    if (!skipped.empty())
        text += "; " + count(skipped.size(), "file", "files") + " skipped";
    text += ".";
    if (cancelled && !failure)
        text += " The import was stopped; the rest was not imported.";
    if (failure)
        text += " The import stopped: " + *failure;
    return text;
}

std::string describe(const SkippedFile& skipped) {
    return displayName(skipped.file) + ": " + skipped.reason;
}

std::vector<std::string> Report::skippedLines() const {
    std::vector<std::string> lines;
    for (const auto& file : skipped)
        lines.push_back(describe(file));
    return lines;
}

namespace {

struct StagedScreen {
    fs::path file;
    Date capturedAt;
};

struct StagedFlow {
    std::size_t index = 0;
    fs::path folder;
    std::vector<StagedScreen> screens;
};

// What the worker hands over, guarded by `mutex`.
struct Pipeline {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<StagedFlow> ready;
    std::vector<SkippedFile> skipped;
    std::size_t done = 0;
    bool finished = false;
    std::atomic<bool> cancel{false};
};

void stage(const Plan& plan, const fs::path& work, Pipeline& shared) {
    for (std::size_t i = 0; i < plan.flows.size() && !shared.cancel; ++i) {
        StagedFlow staged{i, work / std::to_string(i + 1), {}};
        try {
            FileOps::createDirectory(staged.folder, true);
        } catch (const std::exception& e) {
            std::lock_guard lock(shared.mutex);
            for (const auto& file : plan.flows[i].files)
                shared.skipped.push_back({file, std::string("it couldn’t be staged: ") + e.what()});
            shared.done += plan.flows[i].files.size();
            continue;
        }
        for (const auto& file : plan.flows[i].files) {
            if (shared.cancel)
                break;
            char stem[32];
            std::snprintf(stem, sizeof stem, "%02zu", staged.screens.size() + 1);
            auto result = convert(file, staged.folder, stem, &shared.cancel);
            std::lock_guard lock(shared.mutex);
            ++shared.done;
            if (result.index() == 0)
                staged.screens.push_back({std::get<0>(result), modified(file)});
            else if (!shared.cancel)
                shared.skipped.push_back({file, std::get<1>(result)});
        }
        if (!shared.cancel && !staged.screens.empty())
            flushStaged(staged.folder);
        std::lock_guard lock(shared.mutex);
        if (!shared.cancel)
            shared.ready.push_back(std::move(staged));
        shared.wake.notify_all();
    }
    std::lock_guard lock(shared.mutex);
    shared.finished = true;
    shared.wake.notify_all();
}

} // namespace

Report run(FlowLibrary& library, const Plan& plan, const ProgressCallback& progress) {
    const std::string application = Text::trimmed(plan.application);
    if (!plan.targetFlow && application.empty())
        throw EmptyFlowCreationError(EmptyFlowCreationError::Case::missingApplication);
    Text::requireUtf8(application);
    const auto category = Text::nonBlank(plan.category);
    if (category)
        Text::requireUtf8(*category);

    Report report;
    report.skipped = plan.skipped;
    // Inside the library, so that screens move in by renaming; opening the library removes
    // what an interrupted import left here.
    const fs::path work =
        library.root() / (std::string(LibraryLayout::kExtractionPrefix) + newUUIDString());
    Pipeline shared;
    std::thread worker([&] { stage(plan, work, shared); });

    const std::size_t total = plan.fileCount();
    auto commit = [&](StagedFlow& staged) {
        if (staged.screens.empty())
            return;
        const PlannedFlow& planned = plan.flows[staged.index];
        if (plan.targetFlow) {
            std::vector<FlowStore::NewScreen> screens;
            for (const auto& screen : staged.screens) {
                ScreenRef ref;
                ref.capturedAt = screen.capturedAt;
                screens.push_back({screen.file, std::move(ref)});
            }
            FlowStore::AppendOptions options;
            options.link = true;
            auto added = library.appendScreens(*plan.targetFlow, screens, options);
            auto& into = report.addedScreens[*plan.targetFlow];
            into.insert(into.end(), added.begin(), added.end());
            report.screens += added.size();
            return;
        }
        FlowMeta meta;
        meta.id = newUUIDString();
        meta.application = application;
        const std::string name = Text::trimmed(displayable(planned.name));
        meta.name = name.empty() ? importedName(staged.screens.front().capturedAt) : name;
        meta.categoryL1 = category;
        meta.date = staged.screens.front().capturedAt;
        for (const auto& screen : staged.screens) {
            ScreenRef ref;
            ref.filename = screen.file.filename().string();
            ref.capturedAt = screen.capturedAt;
            meta.date = std::min(meta.date, screen.capturedAt);
            if (meta.width == 0 && !ScreenFiles::isClip(ref.filename)) {
                if (auto size = pngSize(screen.file)) {
                    meta.width = size->first;
                    meta.height = size->second;
                }
            }
            meta.screens.push_back(std::move(ref));
        }
        report.createdFlows.push_back(library.adoptFlow(meta, staged.folder));
        report.screens += meta.screens.size();
    };

    for (;;) {
        std::deque<StagedFlow> ready;
        Progress now;
        bool finished = false;
        {
            std::unique_lock lock(shared.mutex);
            shared.wake.wait_for(lock, std::chrono::milliseconds(40),
                                 [&] { return shared.finished || !shared.ready.empty(); });
            ready.swap(shared.ready);
            finished = shared.finished;
            now.done = shared.done;
        }
        now.total = total;
        for (auto& staged : ready) {
            if (shared.cancel)
                break;
            try {
                commit(staged);
            } catch (const std::exception& e) {
                report.failure =
                    "“" + plan.flows[staged.index].name + "” couldn’t be added: " + e.what();
                shared.cancel = true;
                break;
            }
            // A cancel between two flows stops before the next, however many are ready.
            now.flowsMade = report.createdFlows.size() + report.addedScreens.size();
            if (progress && !progress(now)) {
                shared.cancel = true;
                report.cancelled = true;
            }
        }
        now.flowsMade = report.createdFlows.size() + report.addedScreens.size();
        if (finished && ready.empty())
            break;
        if (progress && !shared.cancel && !progress(now)) {
            shared.cancel = true;
            report.cancelled = true;
        }
    }
    worker.join();
    report.cancelled = report.cancelled || report.failure.has_value();
    report.skipped.insert(report.skipped.end(), shared.skipped.begin(), shared.skipped.end());
    std::error_code ignored;
    fs::remove_all(work, ignored);
    if (progress && !report.cancelled) {
        Progress last{total, total, report.createdFlows.size() + report.addedScreens.size()};
        progress(last);
    }
    return report;
}

} // namespace varnel::ScreenImport
