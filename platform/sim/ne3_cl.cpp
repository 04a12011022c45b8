#include "platform/sim/chip.h"

using namespace va::sim;

namespace
{

using State = LoaderState;

// The areas keep their content when they are asked for again, for another transfer.
int map_areas(Memory &chip, vanaMemInfo *info)
{
    if (step(chip.loader, State::DeviceOpen, State::Transferred, State::Mapped) == -1)
        return -1;
    auto &areas = chip.areas;
    if (!areas)
        areas.emplace();
    *info = {
        .pProgramAddress = areas->program.data(),
        .pWorkAddress = areas->work.data(),
        .pVectorAddress = areas->vector.data(),
        .programPhysAddress = SIM_PROGRAM_ADDRESS,
        .workPhysAddress = SIM_WORK_ADDRESS,
        .vectorAddress = SIM_VECTOR_ADDRESS,
        .programSize = SIM_PROGRAM_SIZE,
        .workSize = SIM_WORK_SIZE,
        .vectorSize = SIM_VECTOR_SIZE,
    };
    return 0;
}

} // namespace

int ne3_cl_library_init()
{
    return step_call(__func__, &Memory::loader, State::Closed, State::Initialised);
}

int ne3_cl_sys_open_device()
{
    return step_call(__func__, &Memory::loader, State::Initialised, State::DeviceOpen);
}

int ne3_cl_cpu3_get_memory_info(vanaMemInfo *info)
{
    return library_call(__func__, [=](Memory &chip) { return map_areas(chip, info); });
}

int ne3_cl_cpu3_xfer_complete()
{
    return step_call(__func__, &Memory::loader, State::Mapped, State::Transferred);
}

int ne3_cl_cpu3_boot()
{
    return step_call(__func__, &Memory::loader, State::Transferred, State::Running);
}

int ne3_cl_cpu3_xfer_cancel()
{
    return library_call(__func__, [](Memory &chip) {
        return step(chip.loader, State::Mapped, State::Transferred, State::Mapped);
    });
}

int ne3_cl_cpu3_shutdown()
{
    return step_call(__func__, &Memory::loader, State::Running, State::Mapped);
}

int ne3_cl_sys_close_device()
{
    return library_call(__func__, [](Memory &chip) {
        if (step(chip.loader, State::DeviceOpen, State::Running, State::Initialised) == -1)
            return -1;
        chip.areas.reset();
        return 0;
    });
}

int ne3_cl_library_exit()
{
    return step_call(__func__, &Memory::loader, State::Initialised, State::Closed);
}
