#pragma once

#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace varnel::test {

namespace fs = std::filesystem;

// A scratch folder removed at the end of the test.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const fs::path& path() const { return path_; }
    fs::path operator/(const std::string& name) const { return path_ / name; }

private:
    fs::path path_;
};

// Bytes that start like a PNG of the given size, followed by `payload` so every screen file is
// recognizable by content.
std::string pngBytes(int width, int height, const std::string& payload);

void writeFile(const fs::path& file, const std::string& bytes);
// A real PNG of one colour (the parent folders are made).
void writePicture(const fs::path& file, int width, int height, unsigned argb = 0xff3366ccu);
// A real H.264 QuickTime clip of a few red frames, made with the media framework.
void writeClip(const fs::path& file, int width, int height);
std::string readFile(const fs::path& file);

// Every file (path relative to the root -> content) and every folder (-> "<dir>").
std::map<std::string, std::string> treeSnapshot(const fs::path& root);

// Contents of all files below root, for checking that no screen's bytes were lost.
std::multiset<std::string> contents(const fs::path& root);

// Fails the n-th call (from 1) of one of the four store operations with an I/O error.
class FaultInjector {
public:
    enum class Kind { writer, mover, remover, creator };

    FaultInjector() = default;
    FaultInjector(Kind kind, int failingCall) : kind_(kind), failingCall_(failingCall) {}

    FileOperations operations();
    // The next call of `kind` fails (and only that one).
    void failNext(Kind kind);
    int calls(Kind kind) const { return counts_.count(kind) ? counts_.at(kind) : 0; }
    bool fired() const { return fired_; }

private:
    void tick(Kind kind, const fs::path& path);

    std::optional<Kind> kind_;
    int failingCall_ = 0;
    std::map<Kind, int> counts_;
    bool fired_ = false;
};

const char* name(FaultInjector::Kind kind);

} // namespace varnel::test

namespace varnel::test {

// A small library that exercises every kind of file a flow can hold:
//  acme/onboarding/sign-up   01.png (two pins, one published), 02.png (edited: original copy,
//                            a patch file, a zone), 03.mov; ocr.json for the stills
//  acme/onboarding/log-in    01.png, 02.png
//  bank/uncategorized/transfer 01.png
struct SampleLibrary {
    static constexpr const char* signUp = "acme/onboarding/sign-up";
    static constexpr const char* logIn = "acme/onboarding/log-in";
    static constexpr const char* transfer = "bank/uncategorized/transfer";

    explicit SampleLibrary(const fs::path& root);

    // Renames log-in's 02.png to 03.png, as a screen deleted by hand would leave it.
    void leaveGapInLogIn();

    fs::path root;
    FlowStore store;
};

// Runs a test program's tests in an event loop, with a settings folder of its own: the
// command line reads the app's settings.
int runWithOwnSettings(int argc, char** argv);

} // namespace varnel::test
