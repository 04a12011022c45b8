#include "video/standing.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace
{

constexpr VideoTime stands_after = 3000;
constexpr VideoTime unit = 20; // in which that is counted, up to 255 of them
// What a look counts for, at most: a source may have been away.
constexpr VideoTime longest_gap = 500;
constexpr VideoTime hidden_limit = 10'000;
constexpr VideoTime background_after = 300'000;

constexpr VideoTime settling = 2000; // at first the background is learnt fast
constexpr double learns_fast = 0.5;  // seconds in which it follows by two thirds
constexpr double learns = 20;

constexpr double changed_by = 22; // grey levels
constexpr double same_within = 16;
constexpr double least_area = 0.0006; // of the picture
constexpr double present_share = 0.5; // of a thing's pixels

cv::Mat difference_over(const cv::Mat &a, const cv::Mat &b, double limit)
{
    cv::Mat mask;
    cv::absdiff(a, b, mask);
    cv::threshold(mask, mask, limit, 255, cv::THRESH_BINARY);
    return mask;
}

const cv::Mat &round_element(int size)
{
    static const cv::Mat three = cv::getStructuringElement(cv::MORPH_ELLIPSE, {3, 3});
    static const cv::Mat five = cv::getStructuringElement(cv::MORPH_ELLIPSE, {5, 5});
    return size == 3 ? three : five;
}

// The mean slope of the picture's brightness along the edge of what `mask` shows.
double edge_strength(const cv::Mat &picture, const cv::Mat &mask)
{
    cv::Mat outer;
    cv::Mat inner;
    cv::dilate(mask, outer, round_element(3));
    cv::erode(mask, inner, round_element(3));
    cv::Mat across;
    cv::Mat down;
    cv::Sobel(picture, across, CV_16S, 1, 0);
    cv::Sobel(picture, down, CV_16S, 0, 1);
    const cv::Mat slope = cv::abs(across) + cv::abs(down);
    return cv::mean(slope, outer - inner)[0];
}

float share_of(const cv::Mat &part, const cv::Mat &whole)
{
    cv::Mat both;
    cv::bitwise_and(part, whole, both);
    return static_cast<float>(cv::countNonZero(both)) /
           static_cast<float>(std::max(cv::countNonZero(whole), 1));
}

} // namespace

void StandingWatch::begin(const cv::Mat &grey, VideoTime time)
{
    grey.convertTo(background_, CV_32F);
    grey.copyTo(expected_);
    grey.copyTo(reference_);
    unchanged_ = cv::Mat::zeros(grey.size(), CV_8U);
    things_.clear();
    begin_ = last_ = time;
}

void StandingWatch::learn_anew()
{
    background_.release();
    things_.clear();
}

std::vector<StandingBox> StandingWatch::look(const cv::Mat &grey, VideoTime time)
{
    cv::Mat smooth;
    cv::GaussianBlur(grey, smooth, {5, 5}, 0);
    if (background_.empty())
        begin(smooth, time);
    cv::Mat changed = difference_over(smooth, expected_, changed_by);
    cv::morphologyEx(changed, changed, cv::MORPH_OPEN, round_element(3));
    follow(smooth, time);
    find(smooth, long_unchanged(smooth, changed, time), time);
    learn(smooth, changed, time);
    last_ = time;
    std::vector<StandingBox> boxes;
    boxes.reserve(things_.size());
    for (const Thing &thing : things_) {
        const cv::Rect2f box = thing.box;
        boxes.push_back({thing.key, {box.x, box.y, box.width, box.height}});
    }
    return boxes;
}

// Only what does not differ is learnt.
void StandingWatch::learn(const cv::Mat &grey, const cv::Mat &changed, VideoTime time)
{
    const double passed = static_cast<double>(time - last_) / 1000;
    const double follows = time - begin_ < settling ? learns_fast : learns;
    cv::accumulateWeighted(grey, background_, 1 - std::exp(-passed / follows), ~changed);
    background_.convertTo(expected_, CV_8U);
}

// Where the picture has differed from the background and been the same long enough.
cv::Mat StandingWatch::long_unchanged(const cv::Mat &grey, const cv::Mat &changed, VideoTime time)
{
    const cv::Mat moved = difference_over(grey, reference_, same_within);
    grey.copyTo(reference_, moved);
    constexpr int long_enough = stands_after / unit;
    uncounted_ += std::min(time - last_, longest_gap);
    unchanged_ += static_cast<int>(uncounted_ / unit);
    uncounted_ %= unit; // a look may be shorter
    unchanged_.setTo(0, moved | ~changed);
    cv::Mat unchanged;
    cv::threshold(unchanged_, unchanged, long_enough, 255, cv::THRESH_BINARY);
    cv::morphologyEx(unchanged, unchanged, cv::MORPH_CLOSE, round_element(5));
    return unchanged;
}

bool StandingWatch::is_there(Thing &thing, const cv::Mat &grey, VideoTime time) const
{
    const cv::Mat now = grey(thing.box);
    if (share_of(~difference_over(now, thing.image, same_within), thing.mask) >= present_share) {
        cv::addWeighted(thing.image, 0.9, now, 0.1, 0, thing.image);
        thing.seen = time;
        return true;
    }
    const cv::Mat background = expected_(thing.box);
    const bool gone =
        share_of(~difference_over(now, background, same_within), thing.mask) >= present_share;
    return !gone && time - thing.seen < hidden_limit;
}

void StandingWatch::follow(const cv::Mat &grey, VideoTime time)
{
    std::erase_if(things_, [&](Thing &thing) {
        if (is_there(thing, grey, time) && time - thing.since < background_after)
            return false;
        if (share_of(~difference_over(grey(thing.box), expected_(thing.box), same_within),
                     thing.mask) < present_share)
            absorb(grey, thing.box);
        return true;
    });
}

void StandingWatch::find(const cv::Mat &grey, const cv::Mat &unchanged, VideoTime time)
{
    std::vector<std::vector<cv::Point>> contours;
    const cv::Point margin(3, 3);
    const cv::Rect whole({0, 0}, grey.size());
    cv::findContours(unchanged, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    for (const auto &contour : contours) {
        const cv::Rect box = cv::boundingRect(contour);
        const bool known = std::ranges::any_of(
            things_, [&](const Thing &thing) { return (thing.box & box).area() > 0; });
        if (known || cv::contourArea(contour) < least_area * static_cast<double>(grey.total()))
            continue;
        const cv::Rect wide = cv::Rect(box.tl() - margin, box.br() + margin) & whole;
        if (edge_strength(grey(wide), unchanged(wide)) <
            edge_strength(expected_(wide), unchanged(wide)))
            absorb(grey, box);
        else
            things_.push_back(
                {++last_key_, box, unchanged(box).clone(), grey(box).clone(), time, time});
    }
}

void StandingWatch::absorb(const cv::Mat &grey, const cv::Rect &box)
{
    grey(box).convertTo(background_(box), CV_32F);
    grey(box).copyTo(expected_(box));
    unchanged_(box).setTo(0);
}
