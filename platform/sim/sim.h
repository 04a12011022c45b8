#pragma once

#include "platform/ne3_cl.h"
#include "platform/ne3_val.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// The software stand-in for the chip, its loader and the store: what tests and scene files control
// and inspect. Any thread.
//
// State is kept per module (closed, open, started), for the loader and for the library; the loader
// and the library know nothing of each other. A call in the wrong state fails with -1 and EPERM,
// before its arguments are checked; teardown calls are no exception. Then arguments other than the
// daemon's constants, a handle that the open did not return and a block pointer that is not the
// library's area of that block fail with EINVAL, lack of memory with ENOMEM. Closing the library
// closes the modules, closing the loader's device stops the co-processor.
//
// A read waits for a result: until the next one of the scene or the feed for its module, when that
// is due within 100 ms, else 10 ms. It returns 1 when there was none, and at once when there is one
// for another started module, so that a thread that reads one module after the other gets them all
// in time. cancel_data succeeds only while a read of its module waits, and ends it; else it fails
// with EAGAIN. A read whose module is stopped meanwhile fails with EPERM.
//
// Lines beginning "sim: " on standard error report each step of a module, each control record with
// its blocks as accepted, why something was refused, and, once, what is wrong with the store.

// Everything as at process start: modules closed, no results, no planned failure, empty log, the
// scene of VA_SIM_SCENE to be loaded by the next call. Lent memory is gone.
void sim_reset();

// The nth call (from 1) of `function` counted from now fails with `error` in errno, without effect
// and whatever the state.
void sim_fail(const std::string &function, int nth, int error);

// The last SIM_CALLS_KEPT calls since the last sim_reset(), in order, by function name
// ("ne3_val_ta_open"), failed ones too, but no get_data calls that returned without a result.
inline constexpr std::size_t SIM_CALLS_KEPT = 4096;
std::vector<std::string> sim_calls();

// What get_data will return next, in this order and unchanged, whether or not the module is open
// yet, before anything of a scene. The entries are copied; without any the result's address is
// null.
void sim_push_ta(const ne3_val_ta_result &result);
void sim_push_fd(const std::vector<unsigned char> &faces,
                 int count); // count as reported, whatever `faces` holds
void sim_push_od(const std::vector<unsigned char> &objects, int count, std::uint32_t vmfAlarms);

// What the stand-in was given; a copy.
struct SimFdControl {
    ne3_val_fd_ctrl ctrl;
    std::optional<ne3_val_fd_mask> mask;
    std::optional<ne3_val_fd_window_list> windows;
};
struct SimOdControl {
    ne3_val_od_ctrl ctrl;
    std::optional<ne3_val_od_masks> nonDetMasks;
    std::optional<ne3_val_od_obj_init> doInit;
    std::optional<ne3_val_od_obj_set> doSet;
    std::optional<ne3_val_od_obj_init> soInit;
    std::optional<ne3_val_od_obj_set> soSet;
    std::optional<ne3_val_od_vmf> vmf;
    std::optional<ne3_val_od_masks> detMasks;
};

inline constexpr std::uint32_t SIM_PROGRAM_ADDRESS = 0x80000000;
inline constexpr std::uint32_t SIM_WORK_ADDRESS = 0x81000000;
inline constexpr std::uint32_t SIM_VECTOR_ADDRESS = 0x82000000;
inline constexpr std::uint32_t SIM_PROGRAM_SIZE = 64 * 1024;
inline constexpr std::uint32_t SIM_WORK_SIZE = 32 * 1024;
inline constexpr std::uint32_t SIM_VECTOR_SIZE = 4 * 1024;

// The co-processor's memory areas, zeroed when they are mapped first. An allocation for each, so
// that address checkers see a write beyond its end.
struct SimAreas {
    std::vector<unsigned char> program = std::vector<unsigned char>(SIM_PROGRAM_SIZE);
    std::vector<unsigned char> work = std::vector<unsigned char>(SIM_WORK_SIZE);
    std::vector<unsigned char> vector = std::vector<unsigned char>(SIM_VECTOR_SIZE);
};

struct SimState {
    // The last control record that each set_ctrl accepted, with copies of the blocks it points at;
    // nothing before the first since the module was opened. It outlives the closing of the module.
    std::optional<ne3_val_ta_ctrl> ta;
    std::optional<ne3_val_dis_ctrl> dis;
    std::optional<SimFdControl> fd;
    std::optional<SimOdControl> od;
    // The open parameters that each open accepted last.
    std::optional<ne3_val_open_prm> ta_prm;
    std::optional<ne3_val_open_prm> fd_prm;
    std::optional<ne3_val_od_open_prm> od_prm;
    std::optional<SimAreas> areas; // while they are mapped
};
SimState sim_state();

// What get_ctrl hands out before the first set_ctrl; all zero unless set here.
struct SimDefaults {
    ne3_val_ta_ctrl ta{};
    ne3_val_dis_ctrl dis{};
    ne3_val_fd_ctrl fd{};
    ne3_val_od_ctrl od{};
};
void sim_set_defaults(const SimDefaults &defaults);

// Follows a scene file (see docs/scene.md) from now on, in the place of the one before; its `fail`
// lines take effect at once, and its time starts again whenever the library is opened. The
// environment variable VA_SIM_SCENE names one that is loaded by the first call of anything here.
// Returns false, with a line on standard error, when the file cannot be read (nothing changes then)
// or a line in it does not count (the others do).
bool sim_play_scene(const std::string &path);
