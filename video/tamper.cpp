#include "video/tamper.h"

#include "video/view.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

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

constexpr double textured = 4;      // grey levels, the deviation within a cell
constexpr double noise_factor = 3;  // what deviates by less than so much of the noise is flat, too
constexpr int least_textured = 8;   // cells, to be compared
constexpr double alike = 0.4;       // correlation of a cell
constexpr double lost_share = 0.3;  // the view is lost when fewer of its textured cells are alike
constexpr double found_share = 0.6; // and is there again when more are
constexpr double changed_share = 0.4;      // of all cells, in a view that is lost: a person is less
constexpr double flat_changed_share = 0.5; // the same, where nothing has texture
constexpr double proportional = 0.8;       // correlation of the cells' means in another light
constexpr double as_shaded = 2;            // their contrast there, at most so many times another
constexpr double least_shading = 0.5;      // grey levels, their deviation
constexpr double plain_share =
    0.15;                  // of the cells; where fewer have texture, there is a wall, or a hand
constexpr double calm = 3; // grey levels, the mean change from check to check

constexpr double light_step = 18;   // grey levels of a cell
constexpr double light_share = 0.7; // of the cells, all in the same direction

// The mean of each cell.
cv::Mat means_of(const cv::Mat &picture)
{
    cv::Mat means;
    cv::resize(picture, means, picture.size() / cell, 0, 0, cv::INTER_AREA);
    return means;
}

// The covariance of two pictures in each cell.
cv::Mat covariances_of(const cv::Mat &a, const cv::Mat &b)
{
    return means_of(a.mul(b)) - means_of(a).mul(means_of(b));
}

double share_of(const cv::Mat &mask)
{
    return cv::countNonZero(mask) / static_cast<double>(mask.total());
}

double mean_change(const cv::Mat &a, const cv::Mat &b)
{
    return cv::norm(a, b, cv::NORM_L1) / static_cast<double>(a.total());
}

// The variance of the noise: of what changes from one picture to the next in half of the cells.
double noise_variance(const cv::Mat &now, const cv::Mat &last)
{
    const cv::Mat change = now - last;
    cv::Mat variances = covariances_of(change, change) / 2;
    auto *const begin = variances.ptr<float>();
    auto *const median = begin + variances.total() / 2;
    std::nth_element(begin, median, begin + variances.total());
    return *median;
}

// The cells with texture.
cv::Mat has_texture(const cv::Mat &picture)
{
    return covariances_of(picture, picture) > textured * textured;
}

// What is left of a view.
struct Remains {
    bool has_texture; // of the view: in enough cells
    double alike;     // share of those that are alike whatever the light
    double changed;   // share of all cells that neither are, nor were flat and as bright as now
};

// `noise`: its variance. `brightness`: the mean that each cell should have.
Remains remains_of(const cv::Mat &view, const cv::Mat &now, const cv::Mat &brightness, double noise)
{
    const cv::Mat variances = covariances_of(view, view);
    const cv::Mat variances_now = covariances_of(now, now);
    cv::Mat deviations = cv::max(variances.mul(variances_now), 1);
    cv::sqrt(deviations, deviations);
    const cv::Mat has_texture = variances > textured * textured;
    const cv::Mat is_alike = has_texture & (covariances_of(view, now) > alike * deviations);
    const double flat = std::max(textured * textured, noise_factor * noise_factor * noise);
    const cv::Mat stays_flat =
        ~has_texture & (variances_now < flat) & (cv::abs(means_of(now) - brightness) < light_step);
    const int count = cv::countNonZero(has_texture);
    return {count >= least_textured, cv::countNonZero(is_alike) / std::max<double>(count, 1),
            1 - share_of(is_alike | stays_flat)};
}

// In another light what is brighter stays brighter, by as much in proportion.
bool is_in_another_light(const cv::Mat &view, const cv::Mat &now)
{
    cv::Scalar mean, deviation, mean_now, deviation_now;
    const cv::Mat means = means_of(view);
    const cv::Mat means_now = means_of(now);
    cv::meanStdDev(means, mean, deviation);
    cv::meanStdDev(means_now, mean_now, deviation_now);
    const double covariance = cv::mean(means.mul(means_now))[0] - mean[0] * mean_now[0];
    const double contrast = deviation_now[0] * mean[0] / (deviation[0] * mean_now[0]);
    return deviation_now[0] > least_shading && contrast > 1 / as_shaded && contrast < as_shaded &&
           covariance > proportional * deviation[0] * deviation_now[0];
}

} // namespace

void TamperDetector::reset()
{
    view_.release();
    lost_.release();
    moments_.clear();
    recovering_since_.reset();
}

std::optional<TamperDetector::Cause> TamperDetector::check(const cv::Mat &now, VideoTime time)
{
    moments_.push_back({time, means_of(now)});
    while (!unfamiliar_ && time - moments_.front().time > switching_time)
        moments_.pop_front();
    std::optional<Cause> cause;
    if (view_.empty())
        set_view(now, time + settling);
    else if (is_recovering())
        recover(now, time);
    else
        cause = compare(now, time);
    now.copyTo(last_);
    last_time_ = time;
    return cause;
}

// Is the view gone, but for what a person hides, who is never all of it?
bool TamperDetector::is_view_lost(const cv::Mat &now) const
{
    const auto [has_texture, alike_share, changed] =
        remains_of(view_, now, moments_.front().brightness, noise_variance(now, last_));
    if (has_texture)
        return alike_share < lost_share && changed > changed_share;
    return changed > flat_changed_share && !is_in_another_light(view_, now);
}

bool TamperDetector::is_plain() const
{
    return share_of(has_texture(view_)) < plain_share;
}

// Is it the view that was lost before?
bool TamperDetector::is_found_again(const cv::Mat &now) const
{
    if (lost_.empty())
        return false;
    const auto [has_texture, alike_share, changed] =
        remains_of(lost_, now, means_of(lost_), noise_variance(now, last_));
    if (has_texture)
        return alike_share > found_share;
    return changed < flat_changed_share || is_in_another_light(lost_, now);
}

std::optional<TamperDetector::Cause> TamperDetector::compare(const cv::Mat &now, VideoTime time)
{
    const bool settled = time >= settled_;
    const bool lost = is_view_lost(now);
    const bool switched = !lost && is_light_switched();
    if (!unfamiliar_)
        unfamiliar_since_ = time;
    unfamiliar_ = lost && settled;
    if (!settled || (!lost && !switched)) {
        const double passed = static_cast<double>(time - last_time_) / 1000;
        const double constant = settled ? time_constant : settling_constant;
        cv::accumulateWeighted(now, view_, 1 - std::exp(-passed / constant));
        return {};
    }
    if (!switched && time - unfamiliar_since_ < unfamiliar_limit)
        return {};
    begin_recovery(time);
    if (is_found_again(now)) {
        lost_.release();
        return {};
    }
    if (switched)
        return Cause::Light;
    lost_ = view_.clone();
    return share_of(has_texture(now)) < plain_share ? Cause::Covered : Cause::Turned;
}

// Nearly everything has become brighter, or darker, within moments, and stays so.
bool TamperDetector::is_light_switched() const
{
    if (moments_.size() < 3)
        return false;
    const cv::Mat &now = moments_.back().brightness;
    const cv::Mat change = now - moments_.front().brightness;
    return std::max(share_of(change > light_step), share_of(change < -light_step)) > light_share &&
           mean_change(now, moments_[moments_.size() - 2].brightness) < calm;
}

void TamperDetector::begin_recovery(VideoTime time)
{
    recovering_since_ = time;
    restless_ = time;
    unfamiliar_ = false;
}

void TamperDetector::recover(const cv::Mat &now, VideoTime time)
{
    cv::Mat steady = now.clone(); // on a pole in the wind nothing else is calm
    shift_back(now, shift_between(last_, now), steady);
    if (mean_change(steady, last_) > calm)
        restless_ = time;
    if (time - restless_ >= calm_for || time - *recovering_since_ >= longest_recovery)
        set_view(now, time + resettling);
}

void TamperDetector::set_view(const cv::Mat &now, VideoTime settled)
{
    view_ = now.clone();
    settled_ = settled;
    unfamiliar_ = false;
    recovering_since_.reset();
    moments_.clear();
}

} // namespace va::video
