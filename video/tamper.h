#pragma once

#include "video/box.h"

#include <deque>
#include <opencv2/core.hpp>
#include <optional>

namespace va::video
{

// Detects that the camera is covered or turned away, or the light switched: it compares the picture
// with the view that it has learnt. One thread at a time.
class TamperDetector
{
public:
    enum class Cause { Covered = 1, Turned = 2, Light = 3 };

    // The size of the pictures.
    static constexpr int width = 160;
    static constexpr int height = 90;

    // How often a check is worth its time.
    static constexpr VideoTime interval = 80;

    // Checks a picture, grey and 32-bit, a little blurred; `time` grows. The result is what has
    // just happened to the camera, if anything. Then, and also when a view returns that was lost
    // before, recovery begins; it ends when the picture is calm, whose view is the one to compare
    // with from then on.
    std::optional<Cause> check(const cv::Mat &now, VideoTime time);

    // The view seems to be lost, for a moment or for longer.
    bool is_doubtful() const { return unfamiliar_ || is_recovering(); }

    // Nothing in the picture can be trusted.
    bool is_recovering() const { return recovering_since_.has_value(); }

    // The view has hardly any texture: a plain wall.
    bool is_plain() const;

    // The view that is compared with; empty before the first check.
    const cv::Mat &view() const { return view_; }

    // Forgets the view, as for another source.
    void reset();

private:
    struct Moment {
        VideoTime time;
        cv::Mat brightness; // of each cell
    };

    bool is_view_lost(const cv::Mat &now) const;
    bool is_found_again(const cv::Mat &now) const;
    bool is_light_switched() const;
    std::optional<Cause> compare(const cv::Mat &now, VideoTime time);
    void recover(const cv::Mat &now, VideoTime time);
    void begin_recovery(VideoTime time);
    void set_view(const cv::Mat &now, VideoTime settled);

    cv::Mat view_; // what should be visible; 32-bit
    cv::Mat lost_; // what should have been before the last recovery
    cv::Mat last_;
    std::deque<Moment> moments_;
    VideoTime settled_ = 0; // until then the view is only learnt
    VideoTime last_time_ = 0;
    VideoTime unfamiliar_since_ = 0;
    VideoTime restless_ = 0; // when the picture was last not calm
    bool unfamiliar_ = false;
    std::optional<VideoTime> recovering_since_;
};

} // namespace va::video
