#pragma once

#include "video/match.h"

namespace va::video
{

// One object that is tracked from frame to frame: where it is, how it moves, and the box that is
// reported of it.
class Track
{
public:
    Track(const Box &detected, VideoTime time);

    // Where it should be at `time`, which is not before the last one given.
    Box predicted(VideoTime time) const;

    // How far from there it may turn up, pixels.
    float gate(VideoTime time) const;

    // It is about to leave the picture, or half outside already: less and less of it is visible.
    bool is_leaving(const Box &picture, VideoTime time) const;

    // It was detected as `detected`, in a picture of the extent `picture`. A much smaller box
    // within it is taken for a part of it, one that ends with the picture for cut off there.
    void update(const Box &detected, const Box &picture, VideoTime time);

    // It was detected only as one of several within `group`, `own` of whose edges are its own.
    void update_in_group(const Box &group, Edges own, VideoTime time);

    const Box &box() const { return box_; }
    const Box &first() const { return first_; }
    Point velocity() const { return velocity_; } // pixels a second
    VideoTime first_detected() const { return begin_; }
    VideoTime last_detected() const { return time_; }
    int detections() const { return detections_; } // other than in a group
    float travel() const { return travel_; } // the largest distance from where it began, pixels

    // The box with its centre held back a little, so that an object that stands on a line does not
    // cross it with each tremble. Begins where the track began: whoever compares two of them sees
    // every line crossed since.
    Box steady() const { return box_.centred_at(steady_); }
    void settle(); // once for each frame in which it is reported

private:
    Box box_, first_;
    Point velocity_; // pixels a second
    Point steady_;
    float travel_ = 0;
    VideoTime begin_, time_; // of the first box and of the last
    int detections_ = 1;
};

} // namespace va::video
