#pragma once

#include "platform/sim/calls.h"
#include "platform/sim/detection.h"
#include "platform/sim/frame.h"
#include "platform/sim/module.h"
#include "platform/sim/sim.h"
#include "platform/sim/source.h"

#include <vector>

// What the stand-in remembers. Private to platform/sim.

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
    Centres centres;           // of the objects of the last result
    std::uint32_t results = 0; // handed out from the source
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
    std::unique_ptr<Source> source = std::make_unique<Source>(); // never null
    Size frame{1920, 1080};
    bool environment_read = false; // VA_SIM_SCENE

    bool library_is_open() const { return library == LibraryState::open; }
};
