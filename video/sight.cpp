#include "video/sight.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace
{

constexpr std::size_t most_boxes = 100;

// How long something must stay until it is background, in seconds; at first less.
constexpr double absorbs = 5;
constexpr double absorbs_at_first = 0.5;

// A share of the picture's pixels.
constexpr double least_area = 0.0004;

// The rate at which a constant pixel is background after `seconds`: then its weight is more than
// 0.1, which is what the model leaves to the foreground.
double rate_of(double passed, double seconds)
{
    constexpr double kept = 0.9;
    return 1 - std::pow(kept, passed / seconds);
}

void clean(cv::Mat &mask)
{
    constexpr int sure = 200; // shadows have 127
    static const cv::Mat small = cv::getStructuringElement(cv::MORPH_ELLIPSE, {3, 3});
    static const cv::Mat large = cv::getStructuringElement(cv::MORPH_ELLIPSE, {5, 7});
    cv::threshold(mask, mask, sure, 255, cv::THRESH_BINARY);
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, small);
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, large);
}

std::vector<Box> boxes_of(const cv::Mat &mask)
{
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(mask, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    const double least = least_area * static_cast<double>(mask.total());
    std::vector<Box> boxes;
    for (const auto &contour : contours) {
        if (cv::contourArea(contour) < least)
            continue;
        const cv::Rect2f rect = cv::boundingRect(contour);
        boxes.push_back({rect.x, rect.y, rect.width, rect.height});
    }
    if (boxes.size() > most_boxes) {
        std::ranges::sort(boxes, std::ranges::greater(), &Box::area);
        boxes.resize(most_boxes);
    }
    return boxes;
}

} // namespace

Sight::Sight() : background_(cv::createBackgroundSubtractorMOG2(500, 16, true)) {}

std::vector<Box> Sight::look(const cv::Mat &picture, VideoTime time)
{
    if (fresh_)
        begin_ = last_ = time;
    const double passed = static_cast<double>(time - last_) / 1000;
    const double age = static_cast<double>(time - begin_) / 1000;
    const double rate = fresh_ ? 1 : rate_of(passed, std::clamp(age, absorbs_at_first, absorbs));
    fresh_ = false;
    last_ = time;
    background_->apply(picture, foreground_, rate);
    clean(foreground_);
    return boxes_of(foreground_);
}

void Sight::learn_anew()
{
    fresh_ = true;
    foreground_.release();
}
