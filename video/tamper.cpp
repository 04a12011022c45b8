#include "video/tamper.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace
{

constexpr int cell = 10; // pixels, both ways

constexpr VideoTime strange_limit = 350; // a view that is lost for so long is lost
constexpr VideoTime light_within = 500;  // a switched light needs no longer
constexpr VideoTime settling = 2000;     // a camera that begins may adjust itself for so long
constexpr VideoTime resettling = 300;    // after a rest
constexpr VideoTime calm_for = 700;      // then a rest ends
constexpr VideoTime longest_rest = 8000;
constexpr double learns = 10;        // seconds in which the view follows by two thirds
constexpr double learns_first = 0.5; // until it is settled

constexpr double textured = 4;     // grey levels, the deviation within a cell
constexpr int least_cells = 8;     // with texture, to tell anything
constexpr double alike = 0.4;      // correlation of a cell
constexpr double lost_share = 0.3; // of the cells; fewer are alike: the view is lost
constexpr double found_share = 0.6;
constexpr double little_detail = 0.35; // of the view's: covered
constexpr double calm = 3;             // grey levels, the mean change from look to look

constexpr float light_step = 18;    // grey levels of a cell
constexpr double light_share = 0.7; // of the cells, all the same way

std::vector<cv::Rect> make_cells()
{
    std::vector<cv::Rect> cells;
    for (int y = 0; y < TamperWatch::height; y += cell) {
        for (int x = 0; x < TamperWatch::width; x += cell)
            cells.emplace_back(x, y, cell, cell);
    }
    return cells;
}

const std::vector<cv::Rect> cells = make_cells();

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

// The share of the cells with texture, in either picture, that look alike in both whatever the
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
    cv::Mat slope;
    cv::Laplacian(picture, slope, CV_32F);
    return statistics_of(slope).deviation;
}

std::vector<float> brightness_of(const cv::Mat &picture)
{
    std::vector<float> values;
    values.reserve(cells.size());
    for (const cv::Rect &place : cells)
        values.push_back(static_cast<float>(cv::mean(picture(place))[0]));
    return values;
}

} // namespace

void TamperWatch::learn_anew()
{
    view_.release();
    lost_.release();
    moments_.clear();
    resting_since_.reset();
}

std::optional<TamperWatch::Cause> TamperWatch::look(const cv::Mat &grey, VideoTime time)
{
    cv::Mat now;
    grey.convertTo(now, CV_32F);
    cv::GaussianBlur(now, now, {3, 3}, 0);
    moments_.push_back({time, brightness_of(now)});
    while (time - moments_.front().time > light_within)
        moments_.pop_front();
    std::optional<Cause> cause;
    if (view_.empty())
        keep(now, time + settling);
    else if (is_resting())
        rest(now, time);
    else
        cause = judge(now, time);
    last_ = now;
    last_time_ = time;
    return cause;
}

std::optional<TamperWatch::Cause> TamperWatch::judge(const cv::Mat &grey, VideoTime time)
{
    const bool strange = common_share(view_, grey) < lost_share;
    if (!strange_)
        strange_since_ = time;
    strange_ = strange && time >= settled_;
    if (time < settled_ || (!strange && !is_light_switched())) {
        const double passed = static_cast<double>(time - last_time_) / 1000;
        const double follows = time < settled_ ? learns_first : learns;
        cv::accumulateWeighted(grey, view_, 1 - std::exp(-passed / follows));
        return {};
    }
    if (!strange) {
        begin_rest(time);
        return Cause::light;
    }
    if (time - strange_since_ < strange_limit)
        return {};
    const bool returned = !lost_.empty() && common_share(lost_, grey) > found_share;
    const bool flat = detail_of(grey) < little_detail * detail_of(view_);
    if (returned)
        lost_.release();
    else
        lost_ = view_.clone();
    begin_rest(time);
    if (returned)
        return {};
    return flat ? Cause::covered : Cause::turned;
}

// Nearly everything has become brighter, or darker, within moments, and stays so in the last two.
bool TamperWatch::is_light_switched() const
{
    if (moments_.size() < 3)
        return false;
    const auto changed = [&](const Moment &now, float sign) {
        std::size_t count = 0;
        for (std::size_t i = 0; i < cells.size(); ++i)
            count += sign * (now.brightness[i] - moments_.front().brightness[i]) > light_step;
        return static_cast<double>(count) > light_share * static_cast<double>(cells.size());
    };
    const Moment &now = moments_.back();
    const Moment &before = moments_[moments_.size() - 2];
    return (changed(now, 1) && changed(before, 1)) || (changed(now, -1) && changed(before, -1));
}

void TamperWatch::begin_rest(VideoTime time)
{
    resting_since_ = time;
    unrest_ = time;
    strange_ = false;
}

void TamperWatch::rest(const cv::Mat &grey, VideoTime time)
{
    cv::Mat change;
    cv::absdiff(grey, last_, change);
    if (cv::mean(change)[0] > calm)
        unrest_ = time;
    if (time - unrest_ >= calm_for || time - *resting_since_ >= longest_rest)
        keep(grey, time + resettling);
}

void TamperWatch::keep(const cv::Mat &grey, VideoTime settled)
{
    view_ = grey.clone();
    settled_ = settled;
    strange_ = false;
    resting_since_.reset();
    moments_.clear();
}
