#pragma once

#include "video/frame.h"

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

// Keeps a JPEG of what is looked at up to date, for whoever shows it behind the boxes. A reader of
// the file always finds a whole one.
class Still
{
public:
    // The picture has the shape of `frame`.
    Still(std::string path, FrameSize frame);

    // `number` stands in the file, as a comment "picture NUMBER".
    void show(const cv::Mat &picture, std::uint32_t number);

private:
    std::string path_;
    FrameSize frame_;
    cv::Mat canvas_;
    bool failed_ = false;
};
