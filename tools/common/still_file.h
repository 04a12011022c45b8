#pragma once

#include "client/record.h"

#include <cstdint>
#include <optional>
#include <string>

#include <sys/stat.h>

// A still of the video: a JPEG that whoever looks at the video puts anew into the place of a file.
namespace va
{

struct Still {
    std::string jpeg; // empty: there is none any more
    // Of which picture it is, by a comment at its beginning, "picture NUMBER".
    std::optional<std::uint32_t> picture = {};
};

class StillFile
{
public:
    static constexpr int LARGEST = 4'000'000;

    struct Limits {
        Elapsed poll;          // between two looks at the file
        Elapsed interval;      // between two stills
        Elapsed kept;          // a still without another
        int largest = LARGEST; // bytes
    };

    // What lies there already is no new one.
    StillFile(std::string path, Limits limits);

    // A new still, at most one in the interval; once, when there was none for long, that there is
    // none any more; else nothing. One that is too large or not whole is reported on standard
    // error, once, and counts for nothing.
    std::optional<Still> look(Elapsed now);

    // When to look next.
    Elapsed due() const { return due_; }

private:
    std::string read_new();

    std::string path_;
    Limits limits_;
    struct stat file_ = {}; // the last one looked at
    std::string said_;      // what is wrong with it
    Elapsed due_{};
    std::optional<Elapsed> seen_; // when the last one was, while there is one
};

} // namespace va
