#pragma once

#include "util/fd.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>

// The FIFO or Unix socket from which a feed is read; docs/scene.md tells which. One thread reads.
class FeedInput
{
public:
    enum class Event { Bytes, WriterGone, Stopped };

    // Throws std::system_error.
    explicit FeedInput(std::string path);

    // Waits as long as it takes, for a writer too. Of bytes, `count` is how many have come. Says on
    // standard error when nobody writes or nobody can, and when somebody does again.
    Event read(std::span<char> buffer, std::size_t &count);

    // Any thread: read() returns `Stopped` from now on.
    void stop();

private:
    enum class Ready { Nothing, Input, Stop };

    void open();
    Ready wait() const;
    std::optional<Event> read_input(std::span<char> buffer, std::size_t &count);
    void say_once(const std::string &state);

    std::string path_;
    Fd stop_;
    Fd fd_; // empty while there is nothing to read from
    bool is_fifo_ = false;
    bool written_ = false; // something has come from `fd_`
    bool to_be_opened_ = true;
    std::string said_;
};
