#pragma once

#include "platform/sim/calls.h"
#include "platform/sim/detection.h"
#include "platform/sim/module.h"
#include "platform/sim/scene.h"
#include "platform/sim/sim.h"

#include <chrono>
#include <mutex>
#include <new>
#include <vector>

// What the stand-in remembers, and the frame of every library call. Private to platform/sim.

// The co-processor's memory: an allocation for each area, so that address checkers see a write
// beyond its end.
struct LoaderAreas {
    using Bytes = std::vector<unsigned char>;

    Bytes program = Bytes(SIM_PROGRAM_SIZE);
    Bytes work = Bytes(SIM_WORK_SIZE);
    Bytes vector = Bytes(SIM_VECTOR_SIZE);
};

enum class LoaderState { closed, initialised, device_open, mapped, transferred, running };
enum class LibraryState { closed, initialised, open };

struct TamperAlarm : ControlledModule<ne3_val_ta_ctrl> {
    TamperAlarm() : ControlledModule("ta") {}

    std::optional<ne3_val_open_prm> prm;
    std::deque<ne3_val_ta_result> pushed;
};

struct Stabilisation : ControlledModule<ne3_val_dis_ctrl> {
    Stabilisation() : ControlledModule("dis") {}
};

// A result record and the entries it is to point at.
struct FdResult {
    ne3_val_fd_result record;
    std::vector<unsigned char> faces;
};

struct FaceDetection : ControlledModule<ne3_val_fd_ctrl, SimFdControl> {
    struct Areas {
        Area<ne3_val_fd_mask> mask{"fd mask"};
        Area<ne3_val_fd_window_list> windows{"fd windows"};
        ne3_val_fd_area_data data{mask.lend(), windows.lend()};
    };

    FaceDetection() : ControlledModule("fd") {}

    std::optional<ne3_val_open_prm> prm;
    std::unique_ptr<Areas> areas; // since the module was opened last
    std::deque<FdResult> pushed;
    FdResult current; // what the last get_data handed out
};

struct OdResult {
    ne3_val_od_result record;
    std::vector<unsigned char> objects;
};

struct ObjectDetection : ControlledModule<ne3_val_od_ctrl, SimOdControl> {
    struct Areas {
        Area<ne3_val_od_masks> nonDetMasks{"od nonDetMasks"};
        Area<ne3_val_od_obj_init> doInit{"od doInit"};
        Area<ne3_val_od_obj_set> doSet{"od doSet"};
        Area<ne3_val_od_obj_init> soInit{"od soInit"};
        Area<ne3_val_od_obj_set> soSet{"od soSet"};
        Area<ne3_val_od_vmf> vmf{"od vmf"};
        Area<ne3_val_od_masks> detMasks{"od detMasks"};
        ne3_val_od_area_table table{nonDetMasks.lend(), doInit.lend(), doSet.lend(),
                                    soInit.lend(),      soSet.lend(),  vmf.lend(),
                                    detMasks.lend()};
    };

    ObjectDetection() : ControlledModule("od") {}

    std::optional<ne3_val_od_open_prm> prm;
    std::unique_ptr<Areas> areas; // since the module was opened last
    std::deque<OdResult> pushed;
    OdResult current;          // what the last get_data handed out
    Centres centres;           // of the objects of the scene's last result
    std::uint32_t results = 0; // handed out from the scene
};

struct Memory {
    Calls calls;
    LoaderState loader = LoaderState::closed;
    std::optional<LoaderAreas> loader_areas; // while they are mapped
    LibraryState library = LibraryState::closed;
    TamperAlarm ta;
    Stabilisation dis;
    FaceDetection fd;
    ObjectDetection od;
    Playback playback;
    bool environment_read = false; // VA_SIM_SCENE

    bool library_is_open() const { return library == LibraryState::open; }

    // When a read of `module` ends that has not found a result now.
    Moment end_of_read(const Module &module) const;
};

// The memory, for one thread at a time: as long as this lives.
class LockedChip
{
public:
    // Loads the scene of the environment on the first use.
    LockedChip();

    Memory &operator*() const { return memory_; }
    Memory *operator->() const { return &memory_; }

    // Lets other threads in until `end` or wake_reads(); false when the read was cancelled.
    bool wait(Module &module, Moment end);

private:
    std::unique_lock<std::mutex> lock_;
    Memory &memory_;
};

// Makes the pending reads look again: a result was pushed, a module changed its state.
void wake_reads();

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
        const auto planned = chip->calls.planned_failure(function);
        return planned ? refuse(*planned) : body(*chip);
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
    std::optional<Moment> end;
    for (;;) {
        if (!module.is_started())
            return refuse(EPERM);
        if (take(*chip))
            return 0;
        if (!end)
            end = chip->end_of_read(module);
        if (std::chrono::steady_clock::now() >= *end)
            return no_result;
        if (!chip.wait(module, *end))
            return refuse(NE3_VAL_ERR_CANCEL);
    }
}

// The get_data of a module. `take` stores the next result and returns whether there was one.
template <class Which, class Take>
int read_call(const char *function, int prm, Which Memory::*which, Take take)
{
    return with_chip([&](LockedChip &chip) {
        const auto planned = chip->calls.planned_failure(function);
        const int result =
            planned ? refuse(*planned) : wait_for_result(chip, (*chip).*which, prm, take);
        if (result != no_result)
            chip->calls.note(function);
        return result;
    });
}
