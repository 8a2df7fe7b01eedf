#include "support/TestLibrary.h"

#include <cstdlib>

#include <QColor>
#include <QCoreApplication>
#include <QImage>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include "library/Uuid.h"

#include <fstream>

namespace varnel::test {

namespace {

// Tests never reach, nor start, the machine's own adb server: those that want one start theirs.
const bool noRealAdbServer = [] {
    setenv("ADB_SERVER_SOCKET", "tcp:127.0.0.1:9", 0);
    return true;
}();

} // namespace

TempDir::TempDir() {
    path_ = fs::temp_directory_path() / ("varnel-test-" + newUUIDString());
    fs::create_directories(path_);
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path_, ec);
}

std::string pngBytes(int width, int height, const std::string& payload) {
    std::string bytes("\x89PNG\r\n\x1a\n", 8);
    bytes += std::string("\0\0\0\x0d", 4) + "IHDR";
    for (int value : {width, height}) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<char>((value >> shift) & 0xFF));
    }
    bytes += std::string("\x08\x06\0\0\0", 5);
    bytes += std::string("\0\0\0\0", 4); // CRC, unchecked
    return bytes + payload;
}

void writeFile(const fs::path& file, const std::string& bytes) {
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << bytes;
}

std::string readFile(const fs::path& file) {
    return FileOps::read(file);
}

std::map<std::string, std::string> treeSnapshot(const fs::path& root) {
    std::map<std::string, std::string> tree;
    if (!fs::exists(root))
        return tree;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string rel = fs::relative(entry.path(), root).string();
        tree[rel] = entry.is_directory() ? "<dir>" : readFile(entry.path());
    }
    return tree;
}

std::multiset<std::string> contents(const fs::path& root) {
    std::multiset<std::string> all;
    for (const auto& [path, content] : treeSnapshot(root)) {
        if (content != "<dir>")
            all.insert(content);
    }
    return all;
}

const char* name(FaultInjector::Kind kind) {
    switch (kind) {
    case FaultInjector::Kind::writer:
        return "writer";
    case FaultInjector::Kind::mover:
        return "mover";
    case FaultInjector::Kind::remover:
        return "remover";
    case FaultInjector::Kind::creator:
        return "creator";
    }
    return "?";
}

void FaultInjector::tick(Kind kind, const fs::path& path) {
    const int n = ++counts_[kind];
    if (kind_ == kind && n == failingCall_) {
        fired_ = true;
        throw FileError(std::string("(injected ") + name(kind) + " failure)", path,
                        std::make_error_code(std::errc::io_error));
    }
}

void FaultInjector::failNext(Kind kind) {
    kind_ = kind;
    failingCall_ = calls(kind) + 1;
}

FileOperations FaultInjector::operations() {
    const FileOperations standard = FileOperations::standard();
    return {
        [this, standard](const fs::path& file, std::string_view bytes) {
            tick(Kind::writer, file);
            standard.indexWriter(file, bytes);
        },
        [this, standard](const fs::path& from, const fs::path& to) {
            tick(Kind::mover, from);
            standard.folderMover(from, to);
        },
        [this, standard](const fs::path& folder) {
            tick(Kind::remover, folder);
            standard.folderRemover(folder);
        },
        [this, standard](const fs::path& folder, bool intermediates) {
            tick(Kind::creator, folder);
            standard.directoryCreator(folder, intermediates);
        },
    };
}

} // namespace varnel::test

#include "library/FlowMeta.h"

namespace varnel::test {

namespace {

void addScreenFiles(FlowStore& store, const fs::path& scratch, const std::string& folder,
                    const std::vector<std::pair<std::string, std::string>>& files) {
    std::vector<fs::path> paths;
    for (const auto& [name, content] : files) {
        const fs::path file = scratch / name;
        writeFile(file, name.ends_with(".png") ? pngBytes(1179, 2556, content) : content);
        paths.push_back(file);
    }
    store.addScreens(folder, paths, Date{700000000});
}

} // namespace

SampleLibrary::SampleLibrary(const fs::path& libraryRoot) : root(libraryRoot), store(libraryRoot) {
    const fs::path scratch = root.parent_path() / (root.filename().string() + "-incoming");
    store.createEmptyFlow("Acme", "Sign up", "Onboarding", Date{700000000});
    store.createEmptyFlow("Acme", "Log in", "Onboarding", Date{700000100});
    store.createEmptyFlow("Bank", "Transfer", std::nullopt, Date{700000200});
    addScreenFiles(store, scratch, signUp,
                   {{"a.png", "sign-up-1"}, {"b.png", "sign-up-2"}, {"c.mov", "sign-up-3"}});
    addScreenFiles(store, scratch, logIn, {{"d.png", "log-in-1"}, {"e.png", "log-in-2"}});
    addScreenFiles(store, scratch, transfer, {{"f.png", "transfer-1"}});
    fs::remove_all(scratch);

    const fs::path signUpDir = root / signUp;
    writeFile(signUpDir / "02.orig.png", pngBytes(1179, 2556, "sign-up-2-original"));
    writeFile(signUpDir / "02.patch-AAAAAAAA-0000-4000-8000-000000000001.png", "sign-up-2-patch");
    writeFile(signUpDir / "ocr.json", R"({"screens": {
        "01.png": {"mtime": 1.0, "text": "welcome", "lines": []},
        "02.png": {"mtime": 2.0, "text": "password", "lines": []}}, "version": 2})");
    FlowMeta meta = store.meta(signUp);
    meta.preservesWhenEmpty.reset();
    meta.screens[0].comments =
        std::vector<ScreenComment>{{"PIN-1", 0.25, 0.5, "Published pin", Date{700000300}, "P1",
                                    "0.25,0.5|Published pin", std::nullopt},
                                   {"PIN-2", 0.75, 0.5, "Local pin", Date{700000400}, std::nullopt,
                                    std::nullopt, std::nullopt}};
    meta.screens[1].patches = std::vector<RedactPatch>{
        {"", "02.patch-AAAAAAAA-0000-4000-8000-000000000001.png", {0.1, 0.1, 0.2, 0.2}}};
    meta.screens[1].redactions =
        std::vector<RedactShape>{{"", RedactShape::Kind::rect, {0, 0, 0.5, 0.5}}};
    store.writeMeta(signUp, meta);

    FlowMeta logInMeta = store.meta(logIn);
    logInMeta.preservesWhenEmpty.reset();
    store.writeMeta(logIn, logInMeta);
}

void SampleLibrary::leaveGapInLogIn() {
    const fs::path logInDir = root / logIn;
    fs::rename(logInDir / "02.png", logInDir / "03.png");
    FlowMeta meta = store.meta(logIn);
    meta.screens[1].filename = "03.png";
    store.writeMeta(logIn, meta);
}

void writePicture(const fs::path& file, int width, int height, unsigned argb) {
    fs::create_directories(file.parent_path());
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(QColor::fromRgba(argb));
    ASSERT_TRUE(image.save(QString::fromStdString(file.string()), "PNG"));
}

// A short H.264 QuickTime clip made with the media framework, as a capture would write it.
void writeClip(const fs::path& file, int width, int height) {
    gst_init(nullptr, nullptr);
    fs::create_directories(file.parent_path());
    const std::string description =
        "videotestsrc num-buffers=5 pattern=red ! video/x-raw,width=" + std::to_string(width) +
        ",height=" + std::to_string(height) +
        " ! videoconvert ! x264enc ! qtmux ! filesink name=out";
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    ASSERT_TRUE(pipeline) << (error ? error->message : "");
    if (error)
        g_error_free(error);
    GstElement* out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    g_object_set(out, "location", file.c_str(), nullptr);
    gst_object_unref(out);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* end = gst_bus_timed_pop_filtered(
        bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    EXPECT_EQ(GST_MESSAGE_TYPE(end), GST_MESSAGE_EOS);
    gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
}

int runWithOwnSettings(int argc, char** argv) {
    TempDir config;
    setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

} // namespace varnel::test
