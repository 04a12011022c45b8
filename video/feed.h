#pragma once

#include "util/fd.h"

#include <functional>
#include <string>

// The way to the stand-in: a FIFO that it reads, or standard output. One thread at a time.
class Feed
{
public:
    // `path`: "-" is standard output. `is_stopped` ends what waits.
    Feed(std::string path, std::function<bool()> is_stopped);

    // Tries once, unless connected; true when it is. What is in the way is said whenever it
    // changes.
    bool connect();

    // Sends `text` whole, however long the reader takes; false, and no longer connected, when it
    // has gone, or when stopped.
    bool send(const std::string &text);

    bool is_connected() const { return static_cast<bool>(fd_); }

    // It will never be connected: what is at the path is of no use.
    bool is_hopeless() const { return hopeless_; }

private:
    bool wait_for_room() const;
    bool open();
    void say_once(const std::string &text);

    std::string path_;
    std::function<bool()> is_stopped_;
    Fd fd_;
    std::string said_;
    bool hopeless_ = false;
};
