#include "video/light.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

double Light::factor(const cv::Mat &grey, const cv::Mat &foreground, VideoTime time)
{
    constexpr double follows = 30; // seconds, by two thirds
    constexpr double least_share = 0.1;
    constexpr double limit = 2;
    if (usual_.empty())
        grey.convertTo(usual_, CV_32F);
    cv::Mat same(grey.size(), CV_8U, cv::Scalar(255));
    if (!foreground.empty()) {
        cv::resize(foreground, same, grey.size(), 0, 0, cv::INTER_NEAREST);
        same = ~same;
    }
    const double passed = static_cast<double>(time - last_) / 1000;
    last_ = time;
    const double now = cv::mean(grey, same)[0];
    const double usual = cv::mean(usual_, same)[0];
    cv::accumulateWeighted(grey, usual_, 1 - std::exp(-passed / follows), same);
    if (cv::countNonZero(same) < least_share * static_cast<double>(same.total()) || now < 1)
        return 1;
    return std::clamp(usual / now, 1 / limit, limit);
}
