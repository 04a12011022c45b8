#pragma once

#include "video/box.h"

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

namespace va::video
{

// Keeps a JPEG of the analysed picture up to date, for whoever shows it behind the boxes. A reader
// of the file always finds a complete one.
class StillFile
{
public:
    // The image has the shape of `frame`.
    StillFile(std::string path, FrameSize frame) : path_(std::move(path)), frame_(frame) {}

    // `number` is in the file, as a comment "picture NUMBER".
    void write(const cv::Mat &picture, std::uint32_t number);

private:
    std::string path_;
    FrameSize frame_;
    cv::Mat canvas_;
    bool failed_ = false;
};

} // namespace va::video
