#include "video/tamper.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace va::video
{

namespace
{

constexpr int cell = 10; // pixels, both ways

constexpr VideoTime unfamiliar_limit = 350; // a view that is lost for so long is lost
constexpr VideoTime switching_time = 500;   // of the light, at most
constexpr VideoTime settling = 2000;        // a camera that starts may adjust itself for so long
constexpr VideoTime resettling = 300;       // after recovery
constexpr VideoTime calm_for = 700;         // ends recovery
constexpr VideoTime longest_recovery = 8000;
constexpr double time_constant = 10; // seconds, of the view
constexpr double settling_constant = 0.5;

constexpr double textured = 4;     // grey levels, the deviation within a cell
constexpr int least_cells = 8;     // with texture, to be compared
constexpr double alike = 0.4;      // correlation of a cell
constexpr double lost_share = 0.3; // the view is lost when fewer of the cells are alike
constexpr double found_share = 0.6;
constexpr double little_detail = 0.35; // of the view's: covered
constexpr double calm = 3;             // grey levels, the mean change from check to check

constexpr double light_step = 18;   // grey levels of a cell
constexpr double light_share = 0.7; // of the cells, all in the same direction

const std::vector<cv::Rect> cells = [] {
    std::vector<cv::Rect> all;
    for (int y = 0; y < TamperDetector::height; y += cell) {
        for (int x = 0; x < TamperDetector::width; x += cell)
            all.emplace_back(x, y, cell, cell);
    }
    return all;
}();

struct Statistics {
    double mean;
    double deviation;
};

Statistics statistics_of(const cv::Mat &picture)
{
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(picture, mean, deviation);
    return {mean[0], deviation[0]};
}

// The share of the cells with texture, in either picture, that are alike in both whatever the
// light; 1 when too few have any.
double common_share(const cv::Mat &a, const cv::Mat &b)
{
    int counted = 0;
    int common = 0;
    for (const cv::Rect &place : cells) {
        const cv::Mat first = a(place);
        const cv::Mat second = b(place);
        const Statistics x = statistics_of(first);
        const Statistics y = statistics_of(second);
        if (std::max(x.deviation, y.deviation) < textured)
            continue;
        const double covariance = first.dot(second) / (cell * cell) - x.mean * y.mean;
        ++counted;
        common += covariance > alike * std::max(x.deviation * y.deviation, 1.);
    }
    return counted < least_cells ? 1 : static_cast<double>(common) / counted;
}

double detail_of(const cv::Mat &picture)
{
    cv::Mat edges;
    cv::Laplacian(picture, edges, CV_32F);
    return statistics_of(edges).deviation;
}

} // namespace

void TamperDetector::reset()
{
    view_.release();
    lost_.release();
    moments_.clear();
    recovering_since_.reset();
}

std::optional<TamperDetector::Cause> TamperDetector::check(const cv::Mat &grey, VideoTime time)
{
    cv::Mat now;
    grey.convertTo(now, CV_32F);
    cv::GaussianBlur(now, now, {3, 3}, 0);
    cv::Mat brightness;
    cv::resize(now, brightness, now.size() / cell, 0, 0, cv::INTER_AREA);
    moments_.push_back({time, brightness});
    while (time - moments_.front().time > switching_time)
        moments_.pop_front();
    std::optional<Cause> cause;
    if (view_.empty())
        set_view(now, time + settling);
    else if (is_recovering())
        recover(now, time);
    else
        cause = compare(now, time);
    last_ = now;
    last_time_ = time;
    return cause;
}

std::optional<TamperDetector::Cause> TamperDetector::compare(const cv::Mat &grey, VideoTime time)
{
    const bool unfamiliar = common_share(view_, grey) < lost_share;
    const bool settled = time >= settled_;
    if (!unfamiliar_)
        unfamiliar_since_ = time;
    unfamiliar_ = unfamiliar && settled;
    if (!settled || (!unfamiliar && !is_light_switched())) {
        const double passed = static_cast<double>(time - last_time_) / 1000;
        const double constant = settled ? time_constant : settling_constant;
        cv::accumulateWeighted(grey, view_, 1 - std::exp(-passed / constant));
        return {};
    }
    if (!unfamiliar) {
        begin_recovery(time);
        return Cause::Light;
    }
    if (time - unfamiliar_since_ < unfamiliar_limit)
        return {};
    begin_recovery(time);
    if (!lost_.empty() && common_share(lost_, grey) > found_share) {
        lost_.release();
        return {};
    }
    lost_ = view_.clone();
    return detail_of(grey) < little_detail * detail_of(view_) ? Cause::Covered : Cause::Turned;
}

// Nearly everything has become brighter, or darker, within moments, and stays so in the last two.
bool TamperDetector::is_light_switched() const
{
    if (moments_.size() < 3)
        return false;
    const auto has_changed = [&](const Moment &now, double sign) {
        const cv::Mat change = sign * (now.brightness - moments_.front().brightness);
        return cv::countNonZero(change > light_step) >
               light_share * static_cast<double>(change.total());
    };
    const Moment &now = moments_.back();
    const Moment &before = moments_[moments_.size() - 2];
    return (has_changed(now, 1) && has_changed(before, 1)) ||
           (has_changed(now, -1) && has_changed(before, -1));
}

void TamperDetector::begin_recovery(VideoTime time)
{
    recovering_since_ = time;
    restless_ = time;
    unfamiliar_ = false;
}

void TamperDetector::recover(const cv::Mat &grey, VideoTime time)
{
    cv::Mat change;
    cv::absdiff(grey, last_, change);
    if (cv::mean(change)[0] > calm)
        restless_ = time;
    if (time - restless_ >= calm_for || time - *recovering_since_ >= longest_recovery)
        set_view(grey, time + resettling);
}

void TamperDetector::set_view(const cv::Mat &grey, VideoTime settled)
{
    view_ = grey.clone();
    settled_ = settled;
    unfamiliar_ = false;
    recovering_since_.reset();
    moments_.clear();
}

} // namespace va::video
