#include "platform/sim/chip.h"

#include "platform/sim/playback.h"
#include "platform/sim/scene.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <utility>

namespace
{

constexpr const char *scene_variable = "VA_SIM_SCENE";

constexpr std::chrono::milliseconds usual_read{10};
constexpr std::chrono::milliseconds longest_read{100}; // for a result that falls due meanwhile

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
    memory.frame = scene->frame;
    memory.source = std::make_unique<Playback>(*std::move(scene));
    if (memory.library_is_open())
        memory.source->start();
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

bool LockedChip::wait(Module &module, Moment end)
{
    PendingRead read;
    module.pending = &read;
    shared().changed.wait_until(lock_, end);
    if (module.pending == &read)
        module.pending = nullptr;
    return !read.cancelled;
}

void wake_reads()
{
    shared().changed.notify_all();
}

Moment end_of_read(const Memory &chip, const Module &module)
{
    const auto now = std::chrono::steady_clock::now();
    Moment own = now + usual_read;
    Moment others = never;
    const auto look_at = [&](const Module &candidate, Moment due) {
        if (&candidate == &module)
            own = due <= now + longest_read ? due : own;
        else if (candidate.is_started())
            others = std::min(others, due);
    };
    look_at(chip.od, chip.source->objects_due());
    look_at(chip.ta, chip.source->alarm_due());
    look_at(chip.fd, chip.source->faces_due());
    return std::min(own, others);
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

void sim_fail(const std::string &function, int nth, int error)
{
    LockedChip()->calls.plan_failure(function, nth, error);
}

std::vector<std::string> sim_calls()
{
    return LockedChip()->calls.names();
}
