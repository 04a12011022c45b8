#pragma once

#include "video/box.h"

#include <opencv2/core.hpp>
#include <opencv2/video/background_segm.hpp>
#include <vector>

// What moves in a picture: boxes around all that differs from a background that is learnt from the
// pictures themselves. One thread at a time.
class Sight
{
public:
    Sight();

    // The boxes of a picture, the largest ones when there are very many. `picture` has always the
    // same size, `time` grows.
    std::vector<Box> look(const cv::Mat &picture, VideoTime time);

    // Begins with the next picture as the background.
    void learn_anew();

    // Where the last picture differs: 255, else 0. Empty before the first one.
    const cv::Mat &foreground() const { return foreground_; }

private:
    cv::Ptr<cv::BackgroundSubtractorMOG2> background_;
    cv::Mat foreground_;
    VideoTime begin_ = 0;
    VideoTime last_ = 0;
    bool fresh_ = true;
};
