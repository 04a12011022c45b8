#pragma once

#include "platform/sim/module.h"
#include "platform/sim/scene.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <vector>

// What the stand-in remembers, and the frame of every library call: the memory is locked in it, but
// for the waits of a read.

namespace va::sim
{

// The calls made so far, and what is planned for calls to come.
struct Calls {
    // `function` has static storage.
    void note(const char *function);

    // Counts a call of `function`; returns what is planned for this one.
    PlannedCall count(const char *function);

    std::deque<const char *> names;
    std::vector<PlannedCall> planned;
};

enum class LoaderState { Closed, Initialised, DeviceOpen, Mapped, Transferred, Running };
enum class LibraryState { Closed, Initialised, Open };

struct Memory {
    Calls calls;
    LoaderState loader = LoaderState::Closed;
    std::optional<SimAreas> areas; // while they are mapped
    LibraryState library = LibraryState::Closed;
    TamperAlarm ta;
    Stabilisation dis;
    FaceDetection fd;
    ObjectDetection od;
    std::unique_ptr<Source> source = std::make_unique<Source>(); // never null
    Size frame{1920, 1080};
    bool environment_read = false; // VA_SIM_SCENE

    bool library_is_open() const { return library == LibraryState::Open; }
};

// The memory, for one thread at a time: as long as this lives.
class LockedChip
{
public:
    // Loads the scene of the environment on the first use.
    LockedChip();

    Memory &operator*() const { return memory_; }
    Memory *operator->() const { return &memory_; }

    // Carries out what is planned for this call of `function`, unlocked while it hangs. Returns the
    // error with which the call is to fail, 0: none.
    int begin(const char *function);

    // Unlocks until `end`, or until wake_reads() has been called since this was made or last
    // waited; false when the read was cancelled.
    bool wait(Module &module, Moment end);

private:
    std::unique_lock<std::mutex> lock_;
    Memory &memory_;
    std::uint64_t wakeups_; // calls of wake_reads() so far
};

// Makes the pending reads try again: there is a result, or a module may have changed its state. Any
// thread, with the chip locked or not.
void wake_reads();

// When a read of `module` that finds no result ends: by itself, if it begins now; because the
// result of another module is due.
Moment own_end_of_read(const Memory &chip, const Module &module);
Moment others_due(const Memory &chip, const Module &module);

// What the daemon passes as `prm` and as `count`.
inline constexpr int expected_prm = 1;

// Runs `body` with the chip locked. Lack of memory is a failure like any other.
template <class Body>
int with_chip(Body body)
{
    try {
        LockedChip chip;
        return body(chip);
    } catch (const std::bad_alloc &) {
        return refuse(ENOMEM);
    }
}

// Runs `body` as the library call `function`: notes it and lets a planned failure take its place.
template <class Body>
int library_call(const char *function, Body body)
{
    return with_chip([&](LockedChip &chip) {
        chip->calls.note(function);
        const int error = chip.begin(function);
        const int result = error != 0 ? refuse(error) : body(*chip);
        wake_reads();
        return result;
    });
}

// A library call that is a step of the loader or of the library.
template <class State>
int step_call(const char *function, State Memory::*state, State from, State to)
{
    return library_call(function, [=](Memory &chip) { return step(chip.*state, from, to); });
}

inline constexpr int no_result = 1;

// Waits until `take` has found a result.
template <class Take>
int wait_for_result(LockedChip &chip, Module &module, int prm, Take take)
{
    if (module.is_started() && prm != expected_prm)
        return refuse(EINVAL);
    std::optional<Moment> own_end;
    for (;;) {
        if (!module.is_started())
            return refuse(EPERM);
        if (take(*chip))
            return 0;
        if (!own_end)
            own_end = own_end_of_read(*chip, module);
        const Moment end = std::min(*own_end, others_due(*chip, module));
        if (std::chrono::steady_clock::now() >= end)
            return no_result;
        if (!chip.wait(module, end))
            return refuse(NE3_VAL_ERR_CANCEL);
    }
}

// The get_data of a module. `observe` makes the next result of what the source sees, if anything.
template <class Which, class Record, class Observe>
int read_call(const char *function, int prm, Which Memory::*which, Record *result, Observe observe)
{
    return with_chip([&](LockedChip &chip) {
        const int error = chip.begin(function);
        const auto take = [&](Memory &memory) {
            return (memory.*which).take(result, [&] { return observe(memory); });
        };
        const int outcome =
            error != 0 ? refuse(error) : wait_for_result(chip, (*chip).*which, prm, take);
        if (outcome != no_result)
            chip->calls.note(function);
        return outcome;
    });
}

} // namespace va::sim
