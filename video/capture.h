#pragma once

#include "video/box.h"

#include <opencv2/videoio.hpp>
#include <optional>
#include <string>

// One opened video: a file, a device or what a URL names. One thread at a time.
class Capture
{
public:
    // Nothing when it cannot be opened.
    static std::optional<Capture> open(const std::string &source);

    // Takes the next frame; false at the end, or when the source is lost.
    bool grab() { return video_.grab(); }
    // Its picture; false when it is damaged.
    bool retrieve(cv::Mat &picture) { return video_.retrieve(picture); }
    // Its time, from the video's beginning.
    VideoTime time() const;

    bool is_live() const { return live_; } // comes when it comes
    double rate() const { return rate_; }  // frames a second
    int frames() const { return frames_; } // in all, as the file says; 0: not known

private:
    Capture(const cv::VideoCapture &video, bool live);

    cv::VideoCapture video_;
    bool live_;
    double rate_;
    int frames_;
};

// Whether a source comes when it comes, as far as its name tells.
bool is_live(const std::string &source);
