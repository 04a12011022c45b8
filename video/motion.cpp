#include "video/motion.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace va::video
{

namespace
{

constexpr std::size_t most_boxes = 100;

// How long something must stay until it is background, in seconds; less at the beginning.
constexpr double absorbed_after = 5;
constexpr double absorbed_after_first = 0.5;

// What is darker than so much of the background is no shadow, but a grey coat.
constexpr double shadow_threshold = 0.7;

// More is no object, but the camera or its light.
constexpr double most_foreground = 0.5; // of the picture

// Of the picture; more when there are more fragments than objects make, as of a cloud's edge.
constexpr double least_area = 0.0004;
constexpr double usual_fragments = 8;

// The learning rate at which a constant pixel is background after `seconds`: then its weight is
// more than 0.1, which is what the model leaves to the foreground.
double learning_rate(double passed, double seconds)
{
    constexpr double kept = 0.9;
    return 1 - std::pow(kept, passed / seconds);
}

void clean(cv::Mat &mask)
{
    constexpr int certain = 200; // shadows have 127
    static const cv::Mat small = cv::getStructuringElement(cv::MORPH_ELLIPSE, {3, 3});
    static const cv::Mat large = cv::getStructuringElement(cv::MORPH_ELLIPSE, {5, 7});
    cv::threshold(mask, mask, certain, 255, cv::THRESH_BINARY);
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, small);
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, large);
}

std::vector<Box> boxes_of(const cv::Mat &mask)
{
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(mask, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    const double excess = std::max(1., static_cast<double>(contours.size()) / usual_fragments);
    const double least = excess * least_area * static_cast<double>(mask.total());
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

std::vector<Box> MotionDetector::detect(const cv::Mat &picture, const cv::Mat &ignored,
                                        VideoTime time)
{
    if (fresh_)
        begin_ = last_ = time;
    const double passed = static_cast<double>(time - last_) / 1000;
    const double age = static_cast<double>(time - begin_) / 1000;
    const double rate =
        fresh_ ? 1 : learning_rate(passed, std::clamp(age, absorbed_after_first, absorbed_after));
    fresh_ = false;
    last_ = time;
    background_->apply(picture, foreground_, rate);
    if (!ignored.empty()) {
        cv::Mat mask;
        cv::resize(ignored, mask, foreground_.size(), 0, 0, cv::INTER_NEAREST);
        foreground_.setTo(0, mask);
    }
    clean(foreground_);
    if (cv::countNonZero(foreground_) > most_foreground * static_cast<double>(foreground_.total()))
        return {};
    return boxes_of(foreground_);
}

MotionDetector::MotionDetector()
{
    background_->setShadowThreshold(shadow_threshold);
}

void MotionDetector::reset()
{
    fresh_ = true;
    foreground_.release();
}

} // namespace va::video
