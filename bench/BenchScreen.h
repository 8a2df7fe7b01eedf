#pragma once
// A phone-sized screen picture and a scratch folder, shared by the benchmarks.
#include <QImage>

#include <filesystem>

namespace varnel::bench {

constexpr int kWidth = 1179;
constexpr int kHeight = 2556;

struct TempFolder {
    std::filesystem::path path;
    TempFolder();
    ~TempFolder();
};

// A phone screen as apps draw them: bars, text of several sizes, buttons, a photo.
QImage phoneScreen();

} // namespace varnel::bench
