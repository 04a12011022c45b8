#pragma once

#include "platform/sim/memory.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <new>

// The frame of every library call: the memory is locked in it, but for the waits of a read. Private
// to platform/sim.

// The memory, for one thread at a time: as long as this lives.
class LockedChip
{
public:
    // Loads the scene of the environment on the first use.
    LockedChip();

    Memory &operator*() const { return memory_; }
    Memory *operator->() const { return &memory_; }

    // Lets what is planned for this call of `function` happen; others get in while it hangs.
    // Returns the error that is to take its place, 0: none.
    int begin(const char *function);

    // Lets other threads in until `end` or until wake_reads() has been called since this was made
    // or waited last; false when the read was cancelled.
    bool wait(Module &module, Moment end);

private:
    std::unique_lock<std::mutex> lock_;
    Memory &memory_;
    std::uint64_t heard_; // how often wake_reads() had been called
};

// Makes the pending reads look again: there is a result, a module may have changed its state. Any
// thread, with the chip locked or not.
void wake_reads();

// When a read of `module` ends that finds no result: if it begins now, and because another module's
// result is due.
Moment own_end_of_read(const Memory &chip, const Module &module);
Moment others_due(const Memory &chip, const Module &module);

// The constant the daemon passes as `prm` and as `count`.
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

// The get_data of a module. `take` stores the next result and returns whether there was one.
template <class Which, class Take>
int read_call(const char *function, int prm, Which Memory::*which, Take take)
{
    return with_chip([&](LockedChip &chip) {
        const int error = chip.begin(function);
        const int result =
            error != 0 ? refuse(error) : wait_for_result(chip, (*chip).*which, prm, take);
        if (result != no_result)
            chip->calls.note(function);
        return result;
    });
}
