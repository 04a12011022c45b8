#pragma once

#include "client/entries.h"
#include "client/record.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace va::picture
{

// What a result tells of.
struct Seen {
    static constexpr Elapsed never{-3'600'000'000};

    std::vector<Detection> detections;
    Elapsed at = never;
    std::optional<std::uint32_t> picture = {}; // in which it was seen, where that is known
};

// The still behind the boxes: a JPEG that whoever looks at the video puts anew into the place of a
// file. It says in a comment at its beginning, "picture NUMBER", of which picture it is; it is
// shown with the objects of that one, and so as late as they are.
class Backdrop
{
public:
    // What lies there already is not shown.
    explicit Backdrop(std::string path);

    // A result of object detection.
    void take(const Seen &objects);

    // Looks for a new still; true when there is another to show, or none any more.
    bool look(Elapsed now);

    // When to look next.
    Elapsed due() const;

    // The JPEG to be shown, empty: none.
    const std::string &still() const { return shown_.jpeg; }

    // What was seen in it; `newest` where that is not known, and without a still.
    const Seen &objects(const Seen &newest) const;

private:
    struct Still {
        std::string jpeg;
        std::optional<std::uint32_t> picture;
        Elapsed at{};
    };

    void read_file(Elapsed now);
    bool may_be_shown(const Still &still, Elapsed now) const;

    std::string path_;
    struct stat file_ = {}; // the last one looked at
    bool said_ = false;     // what is wrong with it
    Elapsed looked_{};
    std::deque<Still> waiting_; // for their objects
    Still shown_;
    std::deque<Seen> results_; // the newest last
    Seen nothing_;
};

} // namespace va::picture
