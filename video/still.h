#pragma once

#include "video/box.h"

#include <opencv2/core.hpp>
#include <optional>
#include <string>

namespace va::video
{

// Keeps a JPEG of the analysed picture up to date, for whoever shows it behind the boxes. A reader
// of the file always finds a complete one.
class StillFile
{
public:
    static constexpr VideoTime interval = 60; // at least, between two of them

    // Without a path there is none. The image has the shape of `frame`.
    StillFile(std::optional<std::string> path, FrameSize frame)
        : path_(std::move(path)), frame_(frame)
    {
    }

    // Writes the picture, when one is due. Its number is in the file, as a comment "picture
    // NUMBER".
    void update(const cv::Mat &picture, VideoTime time);

private:
    std::optional<std::string> path_;
    FrameSize frame_;
    VideoTime due_ = 0;
    bool failed_ = false;
};

} // namespace va::video
