#include "video/view.h"

#include <opencv2/imgproc.hpp>

namespace va::video
{

namespace
{

constexpr int most_steps = 5;
constexpr float small_step = 0.04F; // pixels
constexpr int row_step = 3;         // the rows between are left out to save time
constexpr int border = 4;           // pixels, which may be invalid

// The difference at which a pixel counts half: less than an object's, more than the noise's.
constexpr float outlier = 25; // grey levels

// With a larger standard error the shift is not worth having.
constexpr float largest_error = 0.1F; // pixels

constexpr int window = 7;                // pixels, both ways, in which structure is compared
constexpr double different_share = 0.25; // of the view's variance there
constexpr double different_variance = 6; // and in any case: noise

// The sums of a least-squares fit of the shift, weighted.
struct Sums {
    float xx = 0, xy = 0, yy = 0;
    float xe = 0, ye = 0;
    float e = 0, ee = 0, weight = 0;
};

Sums sums_of(const cv::Mat &error, const cv::Mat &across, const cv::Mat &down, float offset)
{
    Sums sums;
    for (int y = border; y < error.rows - border; y += row_step) {
        const auto *const errors = error.ptr<float>(y);
        const auto *const gradients_x = across.ptr<float>(y);
        const auto *const gradients_y = down.ptr<float>(y);
        for (int x = border; x < error.cols - border; ++x) {
            const float e = errors[x] - offset;
            const float gx = gradients_x[x];
            const float gy = gradients_y[x];
            const float weight = 1 / (1 + e * e / (outlier * outlier));
            sums.xx += weight * gx * gx;
            sums.xy += weight * gx * gy;
            sums.yy += weight * gy * gy;
            sums.xe += weight * gx * e;
            sums.ye += weight * gy * e;
            sums.e += weight * e;
            sums.ee += weight * e * e;
            sums.weight += weight;
        }
    }
    return sums;
}

// The standard error of the fit in its worse direction.
float standard_error(const Sums &sums)
{
    const float half = (sums.xx + sums.yy) / 2;
    const float least = half - std::hypot((sums.xx - sums.yy) / 2, sums.xy);
    return least > 0 ? std::sqrt(sums.ee / sums.weight / least) : 2 * largest_error;
}

cv::Mat local_mean(const cv::Mat &picture)
{
    cv::Mat mean;
    cv::blur(picture, mean, {window, window});
    return mean;
}

} // namespace

void shift_back(const cv::Mat &picture, Point shift, cv::Mat &steady)
{
    if (steady.size() != picture.size())
        picture.copyTo(steady);
    const cv::Matx23f forth(1, 0, shift.x, 0, 1, shift.y);
    cv::warpAffine(picture, steady, forth, picture.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                   cv::BORDER_TRANSPARENT);
}

Point shift_between(const cv::Mat &view, const cv::Mat &now)
{
    cv::Mat across;
    cv::Mat down;
    constexpr double sobel_scale = 1. / 8;
    cv::Sobel(view, across, CV_32F, 1, 0, 3, sobel_scale);
    cv::Sobel(view, down, CV_32F, 0, 1, 3, sobel_scale);
    auto offset = static_cast<float>(cv::mean(now)[0] - cv::mean(view)[0]);
    Point shift;
    cv::Mat steady = now.clone();
    for (int i = 0; i < most_steps; ++i) {
        const Sums sums = sums_of(steady - view, across, down, offset);
        if (standard_error(sums) > largest_error)
            return {};
        const float determinant = sums.xx * sums.yy - sums.xy * sums.xy;
        const Point step = {(sums.xe * sums.yy - sums.ye * sums.xy) / determinant,
                            (sums.ye * sums.xx - sums.xe * sums.xy) / determinant};
        shift = shift - step;
        offset += sums.e / sums.weight;
        if (length(step) < small_step)
            break;
        shift_back(now, shift, steady);
    }
    return shift;
}

cv::Mat lit_otherwise(const cv::Mat &view, const cv::Mat &now)
{
    const cv::Mat mean = local_mean(view);
    cv::Mat relit; // as bright as the view everywhere
    cv::divide(mean, cv::max(local_mean(now), 1), relit);
    cv::multiply(relit, now, relit);
    const cv::Mat difference = relit - view;
    const cv::Mat variance = local_mean(view.mul(view)) - mean.mul(mean);
    return local_mean(difference.mul(difference)) <
           cv::max(different_share * variance, different_variance);
}

} // namespace va::video
