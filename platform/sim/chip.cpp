#include "platform/sim/chip.h"

#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <utility>

namespace
{

constexpr const char *scene_variable = "VA_SIM_SCENE";

struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    Memory memory;
};

// Never destroyed: a thread may still be inside a call when the process exits.
Shared &shared()
{
    alignas(Shared) static std::byte storage[sizeof(Shared)];
    static Shared *const instance = new (storage) Shared;
    return *instance;
}

// False when the file cannot be read, or not all of it is understood.
bool follow_scene(Memory &memory, const std::string &path)
{
    bool clean = false;
    std::optional<Scene> scene = read_scene(path, clean);
    if (!scene)
        return false;
    for (const PlannedFailure &failure : scene->failures)
        memory.calls.plan_failure(failure.function, failure.nth, failure.error);
    memory.playback = Playback(*std::move(scene));
    return clean;
}

} // namespace

LockedChip::LockedChip() : lock_(shared().mutex), memory_(shared().memory)
{
    if (memory_.environment_read)
        return;
    memory_.environment_read = true;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment while threads run.
    if (const char *path = std::getenv(scene_variable))
        follow_scene(memory_, path);
}

bool LockedChip::wait(Module &module, std::chrono::steady_clock::time_point deadline)
{
    PendingRead read;
    module.pending = &read;
    shared().changed.wait_until(lock_, deadline);
    if (module.pending == &read)
        module.pending = nullptr;
    return !read.cancelled;
}

void wake_reads()
{
    shared().changed.notify_all();
}

void sim_reset()
{
    *LockedChip() = Memory();
    wake_reads();
}

bool sim_play_scene(const std::string &path)
{
    return follow_scene(*LockedChip(), path);
}
