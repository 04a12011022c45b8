#pragma once

#include "video/match.h"

// One thing that is followed from look to look: where it is, how it moves, and what of it is told.

class Track
{
public:
    Track(const Box &seen, VideoTime time);

    // Where it should be at `time`, which is not before the last one given.
    Box expected_at(VideoTime time) const;

    // It goes out of the picture, or is half out already: what is seen of it only becomes less.
    bool is_leaving(const Box &picture, VideoTime time) const;

    // How far from there it may turn up, pixels.
    float reach_at(VideoTime time) const;

    // It was seen as `seen`, in a picture that reaches as far as `picture`. What is much smaller
    // than it and within it is taken for a part of it, what ends with the picture for cut off
    // there.
    void see(const Box &seen, const Box &picture, VideoTime time);

    // It was seen only as one of several within `group`, `own` of whose edges are its own.
    void see_within(const Box &group, Edges own, VideoTime time);

    const Box &box() const { return box_; }
    Place velocity() const { return velocity_; } // pixels a second
    VideoTime born() const { return born_; }
    VideoTime seen() const { return seen_; } // when last
    int looks() const { return looks_; }     // in how many
    float way() const
    {
        return way_;
    } // how far all of it was from where it was seen first, at most

    // The box with its centre held back a little, so that a thing that stands on a line does not
    // pass it with each tremble. Begins where the track began: who looks at two of them sees every
    // line passed since.
    Box steady() const { return box_.around(steady_); }
    void settle(); // once a look that is told

private:
    Box box_;
    Place velocity_; // pixels a second
    Box first_;
    Place steady_;
    float way_ = 0;
    VideoTime born_;
    VideoTime time_; // of the box
    VideoTime seen_;
    int looks_ = 1;
};
