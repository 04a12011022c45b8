#include "platform/sim/chip.h"

#include <initializer_list>

int ne3_val_init()
{
    return step_call(__func__, &Memory::library, LibraryState::closed, LibraryState::initialised);
}

int ne3_val_open()
{
    return library_call(__func__, [](Memory &chip) {
        if (step(chip.library, LibraryState::initialised, LibraryState::open) == -1)
            return -1;
        chip.source->start();
        return 0;
    });
}

int ne3_val_close()
{
    return library_call(__func__, [](Memory &chip) {
        if (step(chip.library, LibraryState::open, LibraryState::initialised) == -1)
            return -1;
        chip.source->stop();
        for (Module *module :
             std::initializer_list<Module *>{&chip.od, &chip.fd, &chip.ta, &chip.dis})
            module->force_close();
        return 0;
    });
}

int ne3_val_exit()
{
    return step_call(__func__, &Memory::library, LibraryState::initialised, LibraryState::closed);
}

std::optional<ne3_val_open_prm> sim_open_prm(const std::string &module)
{
    const LockedChip chip;
    if (module == "ta")
        return chip->ta.prm;
    if (module == "fd")
        return chip->fd.prm;
    return {};
}
