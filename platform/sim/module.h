#pragma once

#include "platform/ne3_val.h"
#include "platform/sim/detection.h"
#include "platform/sim/observations.h"
#include "platform/sim/sim.h"
#include "platform/sim/text.h"

#include <cerrno>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

// The four analytics modules: what they have in common, and what each of them remembers.

namespace va::sim
{

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

// The state of a module. Each step fails with EPERM unless the module is in the state before it.
class Module
{
public:
    // `handle` is what its open returns; `due_time` selects its results, null for a module without
    // any.
    Module(const char *name, int handle, Moment DueTimes::*due_time)
        : due(due_time), name_(name), handle_(handle)
    {
    }

    bool is_open() const { return state_ != State::Closed; }
    bool is_started() const { return state_ == State::Started; }

    int open(bool library_is_open)
    {
        if (!library_is_open || step(State::Closed, State::Open, "opened") == -1)
            return refuse(EPERM);
        return handle_;
    }

    int start(int handle)
    {
        if (state_ == State::Open && handle != handle_)
            return refuse(EINVAL);
        return step(State::Open, State::Started, "started");
    }
    int start() { return start(handle_); }
    int stop() { return step(State::Started, State::Open, "stopped"); }
    int close() { return step(State::Open, State::Closed, "closed"); }
    void force_close() { step(state_, State::Closed, "closed"); } // whatever the state

    // Ends the pending read; EAGAIN when there is none.
    int cancel_data()
    {
        if (!is_open())
            return refuse(EPERM);
        if (!pending)
            return refuse(EAGAIN);
        *std::exchange(pending, nullptr) = true;
        return 0;
    }

    Moment DueTimes::*due;
    bool *pending = nullptr; // of a get_data that waits: whether it was cancelled

private:
    enum class State { Closed, Open, Started };

    int step(State from, State to, const char *what)
    {
        if (sim::step(state_, from, to) == -1)
            return -1;
        if (from != to)
            say("%s %s", name_, what);
        return 0;
    }

    const char *name_;
    int handle_;
    State state_ = State::Closed;
};

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
        if (attached && attached != memory_.get()) {
            say("%s refused: the pointer is not the library's", name_);
            return false;
        }
        copy = attached ? std::optional(*attached) : std::nullopt;
        return true;
    }

private:
    const char *name_;
    std::unique_ptr<Block> memory_ = std::make_unique<Block>();
};

struct NoAreas {
    template <class Accepted>
    bool copy_blocks(Accepted &) const
    {
        return true;
    }
};

// A module with its control record. `Accepted` is what is kept of an accepted record: the record
// itself, or a struct with the record as `ctrl` and copies of the blocks in `Areas`.
template <class Record, class Accepted = Record, class Areas = NoAreas>
class ControlledModule : public Module
{
public:
    using Module::Module;

    int open(bool library_is_open)
    {
        auto lent = std::make_unique<Areas>();
        const int handle = Module::open(library_is_open);
        if (handle == -1)
            return -1;
        areas = std::move(lent);
        accepted.reset();
        return handle;
    }

    int get_ctrl(Record *ctrl)
    {
        if (!is_open())
            return refuse(EPERM);
        *ctrl = accepted ? record_of(*accepted) : defaults;
        return 0;
    }

    // `print` reports the record and its blocks.
    template <class Print>
    int set_ctrl(const Record *ctrl, Print print)
    {
        if (!is_open())
            return refuse(EPERM);
        Accepted control{};
        record_of(control) = *ctrl;
        if (!areas->copy_blocks(control))
            return refuse(EINVAL);
        print(control);
        accepted = control;
        return 0;
    }

    // Hands out where its blocks are.
    template <class Table>
    int get_areas(std::uint16_t *count, Table **table)
    {
        if (!is_open())
            return refuse(EPERM);
        *count = sizeof(Table) / sizeof(ne3_val_area_mem);
        *table = &areas->table;
        return 0;
    }

    Record defaults{};
    std::optional<Accepted> accepted; // since the module was opened last
    std::unique_ptr<Areas> areas;     // likewise

private:
    static Record &record_of(Accepted &control)
    {
        if constexpr (std::is_same_v<Accepted, Record>)
            return control;
        else
            return control.ctrl;
    }
};

// A result record and the entries it points at: to be moved, not copied.
template <class Record>
struct Result {
    Record record{};
    std::vector<unsigned char> entries;
};

template <class Entry>
std::vector<unsigned char> bytes_of(const std::vector<Entry> &entries)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(entries.data());
    return {bytes, bytes + entries.size() * sizeof(Entry)};
}

// Null for no entries.
inline const void *address_of(const std::vector<unsigned char> &bytes)
{
    return bytes.empty() ? nullptr : bytes.data();
}

// A module that is opened with parameters and read.
template <class Prm, class Record, class Control, class Accepted = Control, class Areas = NoAreas>
struct ReadModule : ControlledModule<Control, Accepted, Areas> {
    using ControlledModule<Control, Accepted, Areas>::ControlledModule;

    int open(bool library_is_open, const Prm *parameters)
    {
        const int handle = ControlledModule<Control, Accepted, Areas>::open(library_is_open);
        if (handle != -1)
            prm = *parameters;
        return handle;
    }

    // Stores the oldest result that was pushed, else what `observe` returns, if anything.
    template <class Observe>
    bool take(Record *result, Observe observe)
    {
        auto next = take_first(pushed);
        if (!next)
            next = observe();
        if (!next)
            return false;
        current = *std::move(next);
        *result = current.record;
        return true;
    }

    std::optional<Prm> prm;
    std::deque<Result<Record>> pushed;
    Result<Record> current; // what the last get_data handed out
};

struct TamperAlarm : ReadModule<ne3_val_open_prm, ne3_val_ta_result, ne3_val_ta_ctrl> {
    TamperAlarm() : ReadModule("ta", 0, &DueTimes::alarm) {}
};

struct Stabilisation : ControlledModule<ne3_val_dis_ctrl> {
    Stabilisation() : ControlledModule("dis", 0, nullptr) {}
};

struct FdAreas {
    bool copy_blocks(SimFdControl &control) const;

    Area<ne3_val_fd_mask> mask{"fd mask"};
    Area<ne3_val_fd_window_list> windows{"fd windows"};
    ne3_val_fd_area_data table{mask.lend(), windows.lend()};
};

struct FaceDetection
    : ReadModule<ne3_val_open_prm, ne3_val_fd_result, ne3_val_fd_ctrl, SimFdControl, FdAreas> {
    FaceDetection() : ReadModule("fd", 0x4644, &DueTimes::faces) {}
};

struct OdAreas {
    bool copy_blocks(SimOdControl &control) const;

    Area<ne3_val_od_masks> nonDetMasks{"od nonDetMasks"};
    Area<ne3_val_od_obj_init> doInit{"od doInit"};
    Area<ne3_val_od_obj_set> doSet{"od doSet"};
    Area<ne3_val_od_obj_init> soInit{"od soInit"};
    Area<ne3_val_od_obj_set> soSet{"od soSet"};
    Area<ne3_val_od_vmf> vmf{"od vmf"};
    Area<ne3_val_od_masks> detMasks{"od detMasks"};
    ne3_val_od_area_table table{nonDetMasks.lend(), doInit.lend(), doSet.lend(),   soInit.lend(),
                                soSet.lend(),       vmf.lend(),    detMasks.lend()};
};

struct ObjectDetection
    : ReadModule<ne3_val_od_open_prm, ne3_val_od_result, ne3_val_od_ctrl, SimOdControl, OdAreas> {
    ObjectDetection() : ReadModule("od", 0x4f44, &DueTimes::objects) {}

    Centres centres;           // of the objects of the last result
    std::uint32_t results = 0; // handed out from the source
};

} // namespace va::sim
