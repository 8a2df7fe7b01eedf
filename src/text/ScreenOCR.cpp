#include "text/ScreenOCR.h"

#include "media/PngSize.h"

#include "editing/ImageRedactor.h"
#include "library/Text.h"

#include <algorithm>
#include <omp.h>
#include <opencv2/imgproc.hpp>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

namespace varnel {

namespace {

// Phone screenshots are drawn at 3x; at half that their text is as tall as the models were
// trained on, and there is a quarter of the pixels to read.
constexpr int kWideScreen = 900;
// Wider than the strokes of body text, so that the median finds the background; narrower than
// buttons, so that a label's background is its button.
constexpr int kBackgroundReach = 31;
// Grey labels on a light card differ from it by a third of the range; this brings them to ink.
constexpr double kContrastGain = 2.0;

// Screenshots are not pages: light text on dark bars and coloured buttons would vanish in one
// global threshold. Each area is turned dark-on-light by its own background, at the scale given.
// The background is found `reachFactor` times further out than the reach (for large text).
cv::Mat prepared(const cv::Mat& gray, double scale, int reachFactor = 1) {
    cv::Mat scaled = gray;
    if (scale != 1)
        cv::resize(gray, scaled, cv::Size(), scale, scale, cv::INTER_AREA);
    // The background around each pixel is what most pixels near it are (their median); text,
    // dark or light, is what differs from it.
    cv::Mat background;
    if (reachFactor == 1) {
        cv::medianBlur(scaled, background, kBackgroundReach);
    } else {
        // A median over a wider window, found on a smaller copy: as good for a background and
        // no slower.
        cv::Mat small;
        cv::resize(scaled, small, cv::Size(), 1.0 / reachFactor, 1.0 / reachFactor, cv::INTER_AREA);
        cv::medianBlur(small, small, kBackgroundReach);
        cv::resize(small, background, scaled.size(), 0, 0, cv::INTER_LINEAR);
    }
    cv::Mat difference;
    cv::absdiff(scaled, background, difference);
    cv::Mat result;
    difference.convertTo(result, CV_8U, -kContrastGain, 255);
    return result;
}

// Below this a small line read at half scale is read again at full scale: the strokes of 10 pt
// bold text run together at half ("accuell").
constexpr double kSureConfidence = 0.92;
// Lines lower than this (in the half-scale picture) are small text.
constexpr int kSmallLine = 16;

bool kept(const TextObservation& seen) {
    return seen.confidence > ScreenOCR::kMinimumConfidence;
}

// A line as tall as the background reach is text whose strokes can fill the median's window:
// it comes out hollow and misread ("literary"). Such text is read again against a background
// found twice as far out.
bool large(const TextObservation& seen, int rows) {
    return seen.box.height * rows >= kBackgroundReach;
}

// The part of `inner` that lies in `outer`, 0..1.
double insideShare(const NormalizedRect& inner, const NormalizedRect& outer) {
    const double width =
        std::min(inner.maxX(), outer.maxX()) - std::max(inner.minX(), outer.minX());
    const double height =
        std::min(inner.maxY(), outer.maxY()) - std::max(inner.minY(), outer.minY());
    const double area = inner.width * inner.height;
    if (width <= 0 || height <= 0 || area <= 0)
        return 0;
    return width * height / area;
}

// A large line of the coarse pass stands for the fine lines that lie mostly inside it, in the
// place of the first: of its height, they are the same text read hollow. A clearly smaller one
// read more surely is other text inside a shape (a button's label, the button read as a line):
// then the coarse line goes. Fine lines reaching out of it stay; lines read only by the coarse
// pass go where they stand.
std::vector<TextObservation> merged(const std::vector<TextObservation>& fine,
                                    const std::vector<TextObservation>& coarse, int fineRows) {
    // For each fine line, what comes out in its place (itself, a coarse line, or nothing).
    std::vector<std::vector<const TextObservation*>> slots(fine.size());
    std::vector<bool> replaced(fine.size(), false);
    std::vector<const TextObservation*> above; // coarse lines that cover no fine line
    for (const auto& line : coarse) {
        if (!kept(line) || !large(line, fineRows))
            continue;
        std::vector<std::size_t> covered;
        bool surer = true;
        for (std::size_t i = 0; i < fine.size(); ++i)
            if (insideShare(fine[i].box, line.box) > 0.5) {
                covered.push_back(i);
                const bool sameSize = fine[i].box.height * 4 >= line.box.height * 3;
                surer = surer && (sameSize || line.confidence > fine[i].confidence);
            }
        if (!surer)
            continue;
        if (covered.empty()) {
            above.push_back(&line);
            continue;
        }
        for (const std::size_t i : covered)
            replaced[i] = true;
        slots[covered.front()].push_back(&line);
    }
    std::vector<TextObservation> result;
    const auto takeAbove = [&](double maxY) {
        std::erase_if(above, [&](const TextObservation* line) {
            if (line->box.maxY() <= maxY)
                return false;
            result.push_back(*line);
            return true;
        });
    };
    for (std::size_t i = 0; i < fine.size(); ++i) {
        takeAbove(fine[i].box.maxY());
        for (const TextObservation* line : slots[i])
            result.push_back(*line);
        if (!replaced[i])
            result.push_back(fine[i]);
    }
    takeAbove(-1);
    return result;
}

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
    cv::Mat gray;
    cv::cvtColor(bgra, gray, bgra.channels() == 4 ? cv::COLOR_BGRA2GRAY : cv::COLOR_BGR2GRAY);
    const double scale = gray.cols > kWideScreen ? 0.5 : 1.0;
    const cv::Mat fine = prepared(gray, scale);
    std::vector<TextObservation> fineLines = observe(fine);
    rereadSmallLines(fineLines, gray, fine.rows);
    const std::vector<TextObservation> coarseLines = observe(prepared(gray, scale, 2));
    return lines(merged(fineLines, coarseLines, fine.rows));
}

void ScreenOCR::rereadSmallLines(std::vector<TextObservation>& seen, const cv::Mat& gray,
                                 int fineRows) {
    if (fineRows == gray.rows)
        return;
    api_->SetPageSegMode(tesseract::PSM_SINGLE_LINE);
    for (auto& line : seen) {
        if (line.confidence >= kSureConfidence || line.box.height * fineRows >= kSmallLine)
            continue;
        const int height = static_cast<int>(line.box.height * gray.rows);
        const int pad = std::max(8, height / 2);
        const cv::Rect area =
            cv::Rect(static_cast<int>(line.box.x * gray.cols) - pad,
                     static_cast<int>((1 - line.box.maxY()) * gray.rows) - pad,
                     static_cast<int>(line.box.width * gray.cols) + 2 * pad, height + 2 * pad) &
            cv::Rect(0, 0, gray.cols, gray.rows);
        if (area.empty())
            continue;
        const std::vector<TextObservation> again = observe(prepared(gray(area), 1));
        if (again.size() == 1 && again.front().confidence > line.confidence) {
            line.text = again.front().text;
            line.confidence = again.front().confidence;
        }
    }
    api_->SetPageSegMode(tesseract::PSM_SPARSE_TEXT);
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
