#include "video/still_objects.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace va::video
{

namespace
{

constexpr VideoTime still_after = 3000;
constexpr VideoTime count_ms = 20; // that is counted in these, at most 255 of them
constexpr int least_count = still_after / count_ms;
// What an update counts for, at most: the source may have been away.
constexpr VideoTime longest_gap = 500;
constexpr VideoTime hidden_limit = 10'000;
constexpr VideoTime background_after = 300'000;

constexpr VideoTime settling = 2000; // at first the background is learnt fast
constexpr double settling_constant = 0.5, time_constant = 20; // of the background, seconds

constexpr double changed_by = 22, same_within = 16;    // grey levels
constexpr double least_area = 0.0006, most_area = 0.3; // of the picture; more is another view
constexpr double present_share = 0.5;                  // of an object's pixels

const cv::Mat small_ellipse = cv::getStructuringElement(cv::MORPH_ELLIPSE, {3, 3});
const cv::Mat large_ellipse = cv::getStructuringElement(cv::MORPH_ELLIPSE, {5, 5});

// 255 where it is.
cv::Mat difference_over(const cv::Mat &a, const cv::Mat &b, double limit)
{
    return cv::abs(a - b) > limit;
}

// The mean gradient of the picture along the edge of `mask`.
double edge_strength(const cv::Mat &picture, const cv::Mat &mask)
{
    cv::Mat edge, across, down;
    cv::morphologyEx(mask, edge, cv::MORPH_GRADIENT, small_ellipse);
    cv::Sobel(picture, across, CV_16S, 1, 0);
    cv::Sobel(picture, down, CV_16S, 0, 1);
    return cv::mean(cv::abs(across) + cv::abs(down), edge)[0];
}

// Whether two pictures are the same in enough of the pixels that `mask` shows.
bool are_alike(const cv::Mat &a, const cv::Mat &b, const cv::Mat &mask)
{
    const cv::Mat same = mask & ~difference_over(a, b, same_within);
    return cv::countNonZero(same) >= present_share * std::max(cv::countNonZero(mask), 1);
}

} // namespace

void StillObjects::reset()
{
    background_.release();
    objects_.clear();
}

std::vector<StationaryBox> StillObjects::update(const cv::Mat &picture, VideoTime time)
{
    cv::Mat grey;
    cv::GaussianBlur(picture, grey, {5, 5}, 0);
    if (background_.empty()) {
        grey.convertTo(background_, CV_32F);
        grey.copyTo(expected_);
        grey.copyTo(reference_);
        unchanged_ = cv::Mat::zeros(grey.size(), CV_8U);
        begin_ = last_ = time;
    }
    cv::Mat changed = difference_over(grey, expected_, changed_by);
    cv::morphologyEx(changed, changed, cv::MORPH_OPEN, small_ellipse);
    drop_gone(grey, time);
    find(grey, long_unchanged(grey, changed, time), time);
    learn(grey, changed, time);
    last_ = time;
    std::vector<StationaryBox> boxes;
    for (const Object &object : objects_) {
        const cv::Rect2f box = object.box;
        boxes.push_back({object.key, {box.x, box.y, box.width, box.height}});
    }
    return boxes;
}

// Only what does not differ is learnt.
void StillObjects::learn(const cv::Mat &grey, const cv::Mat &changed, VideoTime time)
{
    const double passed = static_cast<double>(time - last_) / 1000;
    const double constant = time - begin_ < settling ? settling_constant : time_constant;
    cv::accumulateWeighted(grey, background_, 1 - std::exp(-passed / constant), ~changed);
    background_.convertTo(expected_, CV_8U);
}

// Where the picture has differed from the background and been the same long enough.
cv::Mat StillObjects::long_unchanged(const cv::Mat &grey, const cv::Mat &changed, VideoTime time)
{
    const cv::Mat moved = difference_over(grey, reference_, same_within);
    grey.copyTo(reference_, moved);
    uncounted_ += std::min(time - last_, longest_gap);
    unchanged_ += static_cast<int>(uncounted_ / count_ms);
    uncounted_ %= count_ms; // updates may follow each other faster
    unchanged_.setTo(0, moved | ~changed);
    cv::Mat unchanged = unchanged_ > least_count;
    cv::morphologyEx(unchanged, unchanged, cv::MORPH_CLOSE, large_ellipse);
    return unchanged;
}

void StillObjects::drop_gone(const cv::Mat &grey, VideoTime time)
{
    std::erase_if(objects_, [&](Object &object) {
        const cv::Mat now = grey(object.box);
        const bool visible = are_alike(now, object.image, object.mask);
        const bool background = are_alike(now, expected_(object.box), object.mask);
        if (visible) {
            cv::addWeighted(object.image, 0.9, now, 0.1, 0, object.image);
            object.visible = time;
        }
        if ((visible || !background) && time - object.visible < hidden_limit &&
            time - object.found < background_after)
            return false;
        if (!background)
            absorb(grey, object.box);
        return true;
    });
}

void StillObjects::find(const cv::Mat &grey, const cv::Mat &unchanged, VideoTime time)
{
    std::vector<std::vector<cv::Point>> contours;
    const cv::Point margin(3, 3);
    const cv::Rect whole({0, 0}, grey.size());
    cv::findContours(unchanged, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    for (const auto &contour : contours) {
        const cv::Rect box = cv::boundingRect(contour);
        const bool known = std::ranges::any_of(
            objects_, [&](const Object &object) { return (object.box & box).area() > 0; });
        if (known || cv::contourArea(contour) < least_area * static_cast<double>(grey.total()))
            continue;
        const cv::Rect wide = cv::Rect(box.tl() - margin, box.br() + margin) & whole;
        if (box.area() > most_area * static_cast<double>(grey.total()) ||
            edge_strength(grey(wide), unchanged(wide)) <
                edge_strength(expected_(wide), unchanged(wide)))
            absorb(grey, box);
        else
            objects_.push_back(
                {++last_key_, box, unchanged(box).clone(), grey(box).clone(), time, time});
    }
}

void StillObjects::absorb(const cv::Mat &grey, const cv::Rect &box)
{
    grey(box).convertTo(background_(box), CV_32F);
    grey(box).copyTo(expected_(box));
    unchanged_(box).setTo(0);
}

} // namespace va::video
