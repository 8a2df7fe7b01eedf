#include "text/ScreenOCR.h"

#include "media/PngSize.h"

#include "editing/ImageRedactor.h"
#include "library/Text.h"

#include <omp.h>
#include <opencv2/imgproc.hpp>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

namespace varnel {

namespace {

// Phone screenshots are drawn at 3x; at half that their text is as tall as the models were
// trained on, and there is a quarter of the pixels to read.
constexpr int kWideScreen = 900;
// Wider than the strokes of the tallest text, so that the median finds the background.
constexpr int kBackgroundReach = 31;
// Grey labels on a light card differ from it by a third of the range; this brings them to ink.
constexpr double kContrastGain = 2.0;

} // namespace

ScreenOCR::ScreenOCR() : api_(std::make_unique<tesseract::TessBaseAPI>()) {
    if (api_->Init(nullptr, kLanguages, tesseract::OEM_LSTM_ONLY) != 0)
        throw OCRError("The text recognition models (" + std::string(kLanguages) +
                       ") could not be loaded.");
    api_->SetPageSegMode(tesseract::PSM_SPARSE_TEXT);
    api_->SetVariable("debug_file", "/dev/null");
}

ScreenOCR::~ScreenOCR() {
    if (api_)
        api_->End();
}

std::optional<std::vector<TextLine>> ScreenOCR::recognize(const std::filesystem::path& file) {
    if (oversizeProblem(file))
        return std::nullopt;
    const cv::Mat picture = ImageRedactor::load(file);
    if (picture.empty())
        return std::nullopt;
    return recognize(picture);
}

std::vector<TextLine> ScreenOCR::recognize(const cv::Mat& bgra) {
    if (bgra.empty())
        return {};
    // Tesseract's parallel loops (which ask for their own thread counts) cost more than they
    // win on a small machine: a screen reads faster on one thread, and the window keeps a core.
    // No other part of the app uses OpenMP (OpenCV runs on TBB).
    omp_set_max_active_levels(0);
    return lines(observe(prepared(bgra)));
}

cv::Mat ScreenOCR::prepared(const cv::Mat& bgra) {
    cv::Mat gray;
    cv::cvtColor(bgra, gray, bgra.channels() == 4 ? cv::COLOR_BGRA2GRAY : cv::COLOR_BGR2GRAY);
    if (gray.cols > kWideScreen)
        cv::resize(gray, gray, cv::Size(), 0.5, 0.5, cv::INTER_AREA);
    // The background around each pixel is what most pixels near it are (their median); text,
    // dark or light, is what differs from it. Drawn as dark on white, every area reads alike.
    cv::Mat background;
    cv::medianBlur(gray, background, kBackgroundReach);
    cv::Mat difference;
    cv::absdiff(gray, background, difference);
    difference.convertTo(gray, CV_8U, -kContrastGain, 255);
    return gray;
}

std::vector<TextObservation> ScreenOCR::observe(const cv::Mat& gray) {
    api_->SetImage(gray.data, gray.cols, gray.rows, 1, static_cast<int>(gray.step));
    api_->SetSourceResolution(300);
    if (api_->Recognize(nullptr) != 0)
        throw OCRError("Text recognition failed.");
    std::vector<TextObservation> found;
    std::unique_ptr<tesseract::ResultIterator> it(api_->GetIterator());
    if (!it)
        return found;
    const auto level = tesseract::RIL_TEXTLINE;
    const double width = gray.cols;
    const double height = gray.rows;
    do {
        const std::unique_ptr<char[]> text(it->GetUTF8Text(level));
        if (!text)
            continue;
        int left = 0, top = 0, right = 0, bottom = 0;
        if (!it->BoundingBox(level, &left, &top, &right, &bottom))
            continue;
        const std::string trimmed = Text::trimmed(text.get());
        if (trimmed.empty())
            continue;
        found.push_back(
            {trimmed,
             it->Confidence(level) / 100.0,
             {left / width, 1 - bottom / height, (right - left) / width, (bottom - top) / height}});
    } while (it->Next(level));
    api_->Clear();
    return found;
}

std::vector<TextLine> ScreenOCR::lines(const std::vector<TextObservation>& observations) {
    std::vector<TextLine> result;
    for (const auto& seen : observations) {
        if (!(seen.confidence > kMinimumConfidence))
            continue;
        const NormalizedRect& box = seen.box;
        result.push_back({seen.text, {box.x, 1 - box.maxY(), box.width, box.height}, std::nullopt});
    }
    return result;
}

std::string ScreenOCR::searchBlob(const std::vector<TextLine>& lines) {
    std::string joined;
    for (const auto& line : lines) {
        if (!joined.empty())
            joined += ' ';
        joined += line.text;
    }
    return Text::lowercased(joined);
}

} // namespace varnel
