#pragma once

#include "video/track.h"

#include <cstdint>
#include <span>
#include <vector>

// Follows things from look to look, whoever saw them: boxes in, numbered things out. Knows nothing
// of pictures. One thread at a time.

// A thing that stands where it was not before, with a number of the one who watches it.
struct StandingBox {
    std::uint32_t key;
    Box box;
};

struct Tracked {
    std::uint32_t id; // from 1, of this thing alone for as long as the process runs
    bool standing;    // else it moves
    Box box;
};

struct TrackerSettings {
    int looks;     // in which a thing is seen, at least, before it is told
    VideoTime age; // that it has by then
    float way;     // that it has come by then, as a share of its smaller side and half the other
    float way_px;  // and in pixels
    VideoTime missing; // how long it is still told where it was lost
    bool in_parts;     // a box may be a part of it
};

inline constexpr TrackerSettings FOLLOW_OBJECTS{4, 150, 0.4F, 9, 600, true};
inline constexpr TrackerSettings FOLLOW_FACES{2, 0, 0, 0, 1200, false};

class Tracker
{
public:
    explicit Tracker(const TrackerSettings &settings) : settings_(settings) {}

    // What was seen at `time`, which is greater each time, in a picture that reaches as far as
    // `picture`: moving boxes, in parts perhaps or several as one, and standing ones.
    //
    // A thing is told when it has been seen and has come far enough to be no noise; at first where
    // it was seen first, so that a line that it passed meanwhile is passed from one result to the
    // next. A moving thing that comes to stand keeps its number.
    std::vector<Tracked> look(std::span<const Box> moving, std::span<const StandingBox> standing,
                              const Box &picture, VideoTime time);

    // All that was followed is gone; numbers go on.
    void forget();

private:
    struct Follow {
        Track track;
        std::uint32_t id = 0; // 0: not told yet
        VideoTime alone = 0;  // when it was last seen by itself
        int missed = 0;       // looks in which it was not seen
    };
    struct Standing {
        std::uint32_t key;
        std::uint32_t id;
        Box box;
    };

    void match(std::span<const Box> boxes, const Box &picture, VideoTime time);
    void drop_lost(const Box &picture, VideoTime time);
    void drop_doubles(VideoTime time);
    void take_standing(std::span<const StandingBox> boxes);
    std::uint32_t number_at(const Box &box);
    bool is_worth_telling(const Follow &follow) const;
    std::vector<Tracked> tell();

    TrackerSettings settings_;
    std::vector<Follow> follows_;
    std::vector<Standing> standing_;
    std::uint32_t last_id_ = 0;
};
