#pragma once

#include "video/track.h"

#include <cstdint>
#include <span>
#include <vector>

namespace va::video
{

// A stationary object, with the key by which its detector knows it.
struct StationaryBox {
    std::uint32_t key;
    Box box;
};

struct TrackedObject {
    std::uint32_t id; // from 1, of this object alone for as long as the process runs
    bool stationary;  // else it moves
    Box box;
};

// When a track is confirmed, and how long it is kept.
struct TrackerSettings {
    int detections;    // at least
    VideoTime age;     // at least
    float travel;      // at least, as a share of its smaller side and half the other
    float travel_px;   // and in pixels
    VideoTime missing; // how long it is still reported where it was lost
    bool in_parts;     // a box may be a part of an object
};

inline constexpr TrackerSettings TRACK_OBJECTS{4, 150, 0.4F, 9, 600, true};
inline constexpr TrackerSettings TRACK_FACES{2, 0, 0, 0, 1200, false};

// Tracks objects from frame to frame, whatever detected them: boxes in, numbered objects out.
// Knows nothing of images. One thread at a time.
class Tracker
{
public:
    explicit Tracker(const TrackerSettings &settings) : settings_(settings) {}

    // What was detected at `time`, which is greater each time, in a picture of the extent
    // `picture`: moving boxes, perhaps parts of an object or several objects in one, and stationary
    // ones.
    //
    // An object is reported once its track is confirmed; at first where it was detected first, so
    // that a line that it crossed meanwhile is crossed from one result to the next. A moving object
    // that becomes stationary keeps its number, also when it goes on.
    std::vector<TrackedObject> update(std::span<const Box> moving,
                                      std::span<const StationaryBox> stationary, const Box &picture,
                                      VideoTime time);

    // Drops all tracks; numbers continue.
    void reset();

private:
    struct MovingObject {
        Track track;
        std::uint32_t id = 0; // 0: not confirmed
        VideoTime alone = 0;  // when it was last detected by itself
        int missed = 0;       // frames in which it was not detected
    };
    // One that rests: at a box of its detector, or where it was lost (key 0).
    struct RestingObject {
        std::uint32_t key;
        std::uint32_t id;
        Box box;
        bool has_moved;
        VideoTime seen; // when last
    };

    void associate(std::span<const Box> boxes, const Box &picture, VideoTime time);
    void drop_lost(const Box &picture, VideoTime time);
    void drop_duplicates(VideoTime time);
    void update_resting(std::span<const StationaryBox> boxes, VideoTime time);
    RestingObject rest(const StationaryBox &stationary, VideoTime time);
    std::uint32_t number_of(const Track &track);
    MovingObject *moving_with(std::uint32_t id);
    bool is_confirmed(const MovingObject &object) const;
    bool is_part(const MovingObject &object) const;
    std::vector<TrackedObject> report(const Box &picture, VideoTime time);

    TrackerSettings settings_;
    std::vector<MovingObject> moving_;
    std::vector<RestingObject> resting_;
    std::uint32_t last_id_ = 0;
};

} // namespace va::video
