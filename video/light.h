#pragma once

#include "video/box.h"

#include <opencv2/core.hpp>

// How much brighter the pictures are than they used to be: clouds, and a camera that adjusts
// itself. One thread at a time.
class Light
{
public:
    // The size of the pictures looked at.
    static constexpr int width = 160;
    static constexpr int height = 90;

    // What the picture must be multiplied with to be as bright as those before, in the mean of the
    // last half minute. `grey` is a picture of that size, `foreground` of any size: 255 where it is
    // not to be compared, else 0; may be empty. `time` grows.
    double factor(const cv::Mat &grey, const cv::Mat &foreground, VideoTime time);

    // Begins with the next picture.
    void learn_anew() { usual_.release(); }

private:
    cv::Mat usual_; // 32-bit
    VideoTime last_ = 0;
};
