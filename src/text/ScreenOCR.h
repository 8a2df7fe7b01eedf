#pragma once

#include "library/NormalizedRect.h"
#include "text/TextLine.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tesseract {
class TessBaseAPI;
}

namespace varnel {

class OCRError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What the recognizer reports of one line: its text, a confidence 0..1, and its box normalized
// with the origin at the bottom-left of the picture.
struct TextObservation {
    std::string text;
    double confidence = 0;
    NormalizedRect box;
};

// Text recognition of still screens with Tesseract (LSTM; English, French and Korean). One
// instance holds one engine: use it from one thread at a time.
class ScreenOCR {
public:
    static constexpr const char* kLanguages = "eng+fra+kor";
    // Lines at or below this confidence are not kept.
    static constexpr double kMinimumConfidence = 0.4;

    // Throws OCRError when the engine or its language models can't be loaded.
    ScreenOCR();
    ~ScreenOCR();
    ScreenOCR(const ScreenOCR&) = delete;
    ScreenOCR& operator=(const ScreenOCR&) = delete;

    // The lines of the picture in a file; none when it can't be read. Throws OCRError when
    // recognition fails.
    std::optional<std::vector<TextLine>> recognize(const std::filesystem::path& file);
    std::vector<TextLine> recognize(const cv::Mat& bgra);

    // Observations to lines: only those above the minimum confidence, boxes flipped to a
    // top-left origin.
    static std::vector<TextLine> lines(const std::vector<TextObservation>& observations);
    // The line texts joined by one space, lower-cased.
    static std::string searchBlob(const std::vector<TextLine>& lines);

private:
    std::vector<TextObservation> observe(const cv::Mat& prepared);
    // Small lines read unsurely in the fine picture (`fineRows` high) are read again from the
    // full picture, one by one; the surer reading is kept.
    void rereadSmallLines(std::vector<TextObservation>& lines, const cv::Mat& gray, int fineRows);

    std::unique_ptr<tesseract::TessBaseAPI> api_;
};

} // namespace varnel
