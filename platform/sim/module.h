#pragma once

#include "platform/ne3_val.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

// What the four analytics modules have in common.

// Makes `error` the outcome of a library call.
inline int refuse(int error)
{
    errno = error;
    return -1;
}

// Fails with EPERM unless `state` lies between `first` and `last`.
template <class State>
int step(State &state, State first, State last, State to)
{
    if (state < first || state > last)
        return refuse(EPERM);
    state = to;
    return 0;
}

template <class State>
int step(State &state, State from, State to)
{
    return step(state, from, from, to);
}

// A get_data that waits; lives in its caller's frame.
struct PendingRead {
    bool cancelled = false;
};

// Where a module stands. Each step fails with EPERM unless the module stands where it begins.
class Module
{
public:
    explicit Module(const char *name) : name_(name) {}

    bool is_open() const { return state_ != State::closed; }
    bool is_started() const { return state_ == State::started; }

    int open(bool library_is_open);
    int start() { return step(State::open, State::started, "started"); }
    int stop() { return step(State::started, State::open, "stopped"); }
    int close() { return step(State::open, State::closed, "closed"); }
    void force_close(); // whatever the state

    // Ends the pending read; EAGAIN when none is.
    int cancel_data();

    PendingRead *pending = nullptr;

private:
    enum class State { closed, open, started };

    int step(State from, State to, const char *what);

    const char *name_;
    State state_ = State::closed;
};

// A module and its control record. `Accepted` is what is kept of an accepted record: the record
// itself, or a struct with the record as `ctrl` and copies of its blocks.
template <class Record, class Accepted = Record>
class ControlledModule : public Module
{
public:
    using Module::Module;

    int open(bool library_is_open)
    {
        if (Module::open(library_is_open) == -1)
            return -1;
        accepted.reset();
        return 0;
    }

    int get_ctrl(Record *ctrl) const
    {
        if (!is_open())
            return refuse(EPERM);
        *ctrl = defaults;
        if constexpr (std::is_same_v<Accepted, Record>)
            *ctrl = accepted.value_or(defaults);
        else if (accepted)
            *ctrl = accepted->ctrl;
        return 0;
    }

    Record defaults{};
    std::optional<Accepted> accepted; // since the module was opened last
};

// Says on standard error that a control record points at memory that is not the area of `block`.
void report_foreign_pointer(const char *block);

// One memory area lent to the daemon: an allocation of its own, so that address checkers see a
// write beyond its end.
template <class Block>
class Area
{
public:
    explicit Area(const char *name) : name_(name) {}

    ne3_val_area_mem lend() const { return {memory_.get(), 0}; }

    // Copies the block a control record points at; false when the pointer is neither null nor this
    // area's.
    bool copy_attached(const Block *attached, std::optional<Block> &copy) const
    {
        copy.reset();
        if (!attached)
            return true;
        if (attached != memory_.get()) {
            report_foreign_pointer(name_);
            return false;
        }
        copy = *attached;
        return true;
    }

private:
    const char *name_;
    std::unique_ptr<Block> memory_ = std::make_unique<Block>();
};

// The oldest result that was pushed, else what `observe` makes of the source, if anything.
template <class Result, class Observe>
std::optional<Result> next_result(std::deque<Result> &pushed, Observe observe)
{
    if (pushed.empty())
        return observe();
    std::optional<Result> result(std::move(pushed.front()));
    pushed.pop_front();
    return result;
}

// Arrays of result entries as the library hands them out.

template <class Entry>
std::vector<unsigned char> bytes_of(const std::vector<Entry> &entries)
{
    std::vector<unsigned char> bytes(entries.size() * sizeof(Entry));
    if (!bytes.empty())
        std::memcpy(bytes.data(), entries.data(), bytes.size());
    return bytes;
}

// Null for no entries.
inline const void *address_of(const std::vector<unsigned char> &bytes)
{
    return bytes.empty() ? nullptr : bytes.data();
}
