#pragma once

#include "tools/common/stop.h"
#include "util/fd.h"
#include "video/analysis.h"

#include <string>

// What the stand-in of the chip reads: lines for each picture, through a FIFO.
namespace va::video
{

// The number of a picture: its time in 32 bits, from 0 again after seven weeks.
constexpr std::uint32_t picture_number(VideoTime time)
{
    return static_cast<std::uint32_t>(time);
}

// The lines of one picture, all of them whole.
std::string lines_of(const Observations &observations);

// The FIFO, or standard output. One thread at a time.
class Feed
{
public:
    // `path`: "-" is standard output. `frame`: what the boxes of all pictures are in.
    Feed(std::string path, FrameSize frame) : path_(std::move(path)), frame_(frame) {}

    // Tries every 200 ms, unless connected; true when it is. Prints why not, whenever the reason
    // changes. Throws std::runtime_error when what is at the path is of no use.
    bool connect();

    // Sends `text` whole, however long the reader takes; false, and no longer connected, when the
    // reader has gone, or must_stop(). Throws std::runtime_error when standard output has.
    bool send(const std::string &text);

private:
    void report(const std::string &fault);

    std::string path_;
    FrameSize frame_;
    Clock::time_point tried_; // to connect
    Fd fd_;
    std::string reported_; // what is wrong with it
};

} // namespace va::video
