#pragma once

#include "mqtt/outbox.h"
#include "util/fd.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace va::mqtt
{

// Events that wait for the broker, in a file: they survive the end of the program and a power cut.
// A line of it is an event as JSON: "topic", "payload", "retained". The first failure to write in
// a row is reported on standard error. Used by one thread; throws std::bad_alloc.
class Spool
{
public:
    static constexpr std::size_t MAX_BYTES = 4 * Outbox::MAX_BYTES; // of the file

    // Opens or creates the file for this process alone. Throws std::system_error, and
    // std::runtime_error when another process has it or it is no file.
    explicit Spool(std::string path);

    // What was left in it, in its order. Lines that cannot be read, such as the one that was
    // written when the power failed, are skipped, and their number is reported. Throws
    // std::system_error, and std::runtime_error when it is too large to be a spool.
    std::vector<Message> load();

    // The storage device has them when these return true.

    bool append(std::span<const Message> events);
    bool replace(std::span<const Message> events); // all that is there, by these

    bool clear();                              // at once when it is empty
    std::size_t size() const { return size_; } // bytes

private:
    bool failed(const std::string &reason);

    std::string path_;
    Fd file_;
    std::size_t size_ = 0;
    bool has_failed_ = false;
};

} // namespace va::mqtt
