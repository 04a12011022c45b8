#pragma once

#include "video/light.h"

#include <deque>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

// Watches whether the camera still sees what it saw. One thread at a time.
class TamperWatch
{
public:
    enum class Cause { covered = 1, turned = 2, light = 3 };

    // The size of the pictures looked at.
    static constexpr int width = Light::width;
    static constexpr int height = Light::height;

    // How often a look is worth its time.
    static constexpr VideoTime interval = 80;

    // Looks at a grey picture; `time` grows. The result is what has just happened to the camera, if
    // anything. Then, and also when a view comes back that was lost before, a rest begins; it ends
    // when the picture is calm, and what is seen then is the view to be kept.
    std::optional<Cause> look(const cv::Mat &grey, VideoTime time);

    // The view seems to be lost, for a moment or for longer.
    bool is_doubtful() const { return strange_ || is_resting(); }

    // Nothing in the picture can be trusted.
    bool is_resting() const { return resting_since_.has_value(); }

    // Forgets the view, as for another source.
    void learn_anew();

private:
    struct Moment {
        VideoTime time;
        std::vector<float> brightness; // of each cell
    };

    bool is_light_switched() const;
    std::optional<Cause> judge(const cv::Mat &grey, VideoTime time);
    void rest(const cv::Mat &grey, VideoTime time);
    void begin_rest(VideoTime time);
    void keep(const cv::Mat &grey, VideoTime settled);

    cv::Mat view_; // what should be seen; 32-bit
    cv::Mat lost_; // what should have been before the last rest
    cv::Mat last_;
    std::deque<Moment> moments_;
    VideoTime settled_ = 0; // until then the view is only learnt
    VideoTime last_time_ = 0;
    VideoTime strange_since_ = 0;
    VideoTime unrest_ = 0; // when the picture was not calm last
    bool strange_ = false;
    std::optional<VideoTime> resting_since_;
};
