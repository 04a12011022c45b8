#pragma once

#include "video/box.h"

#include <opencv2/core.hpp>
#include <opencv2/video/background_segm.hpp>
#include <vector>

namespace va::video
{

// Finds moving objects by background subtraction; the background is learnt from the pictures
// themselves. One thread at a time.
class MotionDetector
{
public:
    MotionDetector();

    // Whether what is darker than the background, but of its colour, is taken for a shadow.
    void ignore_shadows(bool ignores) { background_->setDetectShadows(ignores); }

    // The boxes around what differs from the background, the largest ones when there are very many.
    // `picture` always has the same size, `time` grows. `ignored`, of any size, is 255 where
    // nothing is to be found, else 0, and may be empty.
    std::vector<Box> detect(const cv::Mat &picture, const cv::Mat &ignored, VideoTime time);

    // Takes the next picture as the background.
    void reset();

private:
    cv::Ptr<cv::BackgroundSubtractorMOG2> background_ =
        cv::createBackgroundSubtractorMOG2(500, 16, true);
    cv::Mat foreground_;
    VideoTime begin_ = 0;
    VideoTime last_ = 0;
    bool fresh_ = true;
};

} // namespace va::video
