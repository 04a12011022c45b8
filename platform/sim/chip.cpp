#include "platform/sim/chip.h"

#include "platform/sim/bell.h"
#include "platform/sim/feed.h"
#include "platform/sim/playback.h"
#include "platform/sim/scene.h"
#include "util/guarded.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <thread>
#include <utility>

namespace
{

constexpr const char *scene_variable = "VA_SIM_SCENE";

constexpr std::chrono::milliseconds usual_read{10};
constexpr std::chrono::milliseconds longest_read{100}; // for a result that falls due meanwhile

struct Shared {
    std::mutex mutex;
    Memory memory VA_GUARDED_BY(mutex);
    Bell bell; // for the reads that wait
};

// Never destroyed: a thread may still be inside a call when the process exits.
Shared &shared()
{
    alignas(Shared) static std::byte storage[sizeof(Shared)];
    static Shared *const instance = new (storage) Shared;
    return *instance;
}

Moment due_of(const Memory &chip, const Module &module)
{
    if (&module == &chip.od)
        return chip.source->objects_due();
    return &module == &chip.ta ? chip.source->alarm_due() : chip.source->faces_due();
}

std::unique_ptr<Source> source_of(Scene scene)
{
    if (scene.feed.empty())
        return std::make_unique<Playback>(std::move(scene));
    return std::make_unique<Feed>(std::move(scene.feed), scene.frame, wake_reads);
}

// False when the file cannot be read, or not all of it is understood.
bool follow_scene(Memory &memory, const std::string &path)
{
    bool clean = false;
    std::optional<Scene> scene = read_scene(path, clean);
    if (!scene)
        return false;
    for (const PlannedCall &call : scene->calls)
        memory.calls.plan(call.function, call.nth, call.plan);
    memory.frame = scene->frame;
    memory.source = source_of(*std::move(scene));
    if (memory.library_is_open())
        memory.source->start();
    return clean;
}

} // namespace

LockedChip::LockedChip()
    : lock_(shared().mutex), memory_(shared().memory), heard_(shared().bell.times_rung())
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
    lock_.unlock();
    heard_ = shared().bell.wait(heard_, end);
    lock_.lock();
    if (module.pending == &read)
        module.pending = nullptr;
    return !read.cancelled;
}

int LockedChip::begin(const char *function)
{
    const CallPlan plan = memory_.calls.planned_for(function);
    if (plan.hang > plan.hang.zero()) {
        lock_.unlock();
        std::this_thread::sleep_for(plan.hang);
        lock_.lock();
    }
    return plan.error;
}

void wake_reads()
{
    shared().bell.ring();
}

Moment own_end_of_read(const Memory &chip, const Module &module)
{
    const Moment now = std::chrono::steady_clock::now();
    const Moment due = due_of(chip, module);
    return due <= now + longest_read ? due : now + usual_read;
}

Moment others_due(const Memory &chip, const Module &module)
{
    Moment first = never;
    for (const Module *other :
         std::initializer_list<const Module *>{&chip.od, &chip.ta, &chip.fd}) {
        if (other != &module && other->is_started())
            first = std::min(first, due_of(chip, *other));
    }
    return first;
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
    LockedChip()->calls.plan(function, nth, {error, {}});
}

std::vector<std::string> sim_calls()
{
    return LockedChip()->calls.names();
}
