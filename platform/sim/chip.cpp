#include "platform/sim/chip.h"

#include "platform/sim/feed.h"
#include "platform/sim/text.h"
#include "util/guarded.h"

#include <condition_variable>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <thread>
#include <utility>

namespace va::sim
{
namespace
{

constexpr const char *scene_variable = "VA_SIM_SCENE";

constexpr std::chrono::milliseconds usual_read{10};
constexpr std::chrono::milliseconds longest_read{100}; // for a result that falls due meanwhile

// Wakes the reads that wait. Its lock is the innermost: any thread may notify, whatever it holds.
class Wakeups
{
public:
    std::uint64_t count()
    {
        const ScopedLock lock(mutex_);
        return count_;
    }

    void notify()
    {
        {
            const ScopedLock lock(mutex_);
            ++count_;
        }
        changed_.notify_all();
    }

    // Waits until `end` or until the count differs from `known`; returns it.
    std::uint64_t wait(std::uint64_t known, Moment end)
    {
        UniqueLock lock(mutex_);
        changed_.wait_until(lock, end, [&]() VA_REQUIRES(mutex_) { return count_ != known; });
        return count_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t count_ VA_GUARDED_BY(mutex_) = 0;
};

struct Shared {
    std::mutex mutex;
    Memory memory VA_GUARDED_BY(mutex);
    Wakeups wakeups;
};

// Never destroyed: a thread may still be inside a call when the process exits.
Shared &shared()
{
    static Shared *const instance = new Shared;
    return *instance;
}

std::unique_ptr<Source> source_of(Scene scene)
{
    if (scene.feed.empty())
        return make_playback(std::move(scene));
    return make_feed(std::move(scene.feed), scene.frame, wake_reads);
}

// False when the file cannot be read, or not all of it is understood.
bool follow_scene(Memory &memory, const std::string &path)
{
    std::optional<Scene> scene = read_scene(path);
    if (!scene)
        return false;
    const bool clean = scene->clean;
    std::ranges::copy(scene->calls, std::back_inserter(memory.calls.planned));
    memory.frame = scene->frame;
    memory.source = source_of(*std::move(scene));
    if (memory.library_is_open())
        memory.source->start();
    return clean;
}

} // namespace

void Calls::note(const char *function)
{
    if (names.size() == SIM_CALLS_KEPT)
        names.pop_front();
    names.push_back(function);
}

PlannedCall Calls::count(const char *function)
{
    PlannedCall all{function, 0};
    for (PlannedCall &call : planned) {
        if (call.function != function || --call.nth != 0)
            continue;
        if (call.error != 0)
            all.error = call.error;
        all.hang += call.hang;
    }
    std::erase_if(planned, [](const PlannedCall &call) { return call.nth <= 0; });
    return all;
}

LockedChip::LockedChip()
    : lock_(shared().mutex), memory_(shared().memory), wakeups_(shared().wakeups.count())
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
    bool cancelled = false;
    module.pending = &cancelled;
    lock_.unlock();
    wakeups_ = shared().wakeups.wait(wakeups_, end);
    lock_.lock();
    if (module.pending == &cancelled)
        module.pending = nullptr;
    return !cancelled;
}

int LockedChip::begin(const char *function)
{
    const PlannedCall plan = memory_.calls.count(function);
    if (plan.hang > plan.hang.zero()) {
        lock_.unlock();
        std::this_thread::sleep_for(plan.hang);
        lock_.lock();
    }
    return plan.error;
}

void wake_reads()
{
    shared().wakeups.notify();
}

Moment own_end_of_read(const Memory &chip, const Module &module)
{
    const Moment now = std::chrono::steady_clock::now();
    const Moment due = chip.source->due().*module.due;
    return due <= now + longest_read ? due : now + usual_read;
}

Moment others_due(const Memory &chip, const Module &module)
{
    const DueTimes due = chip.source->due();
    Moment first = never;
    for (const Module *other :
         std::initializer_list<const Module *>{&chip.od, &chip.ta, &chip.fd}) {
        if (other != &module && other->is_started())
            first = std::min(first, due.*other->due);
    }
    return first;
}

} // namespace va::sim

using namespace va::sim;

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
    LockedChip()->calls.planned.push_back({function, nth, error});
}

std::vector<std::string> sim_calls()
{
    const LockedChip chip;
    return {chip->calls.names.begin(), chip->calls.names.end()};
}

SimState sim_state()
{
    const LockedChip chip;
    return {chip->ta.accepted, chip->dis.accepted, chip->fd.accepted, chip->od.accepted,
            chip->ta.prm,      chip->fd.prm,       chip->od.prm,      chip->areas};
}

void sim_set_defaults(const SimDefaults &defaults)
{
    const LockedChip chip;
    chip->ta.defaults = defaults.ta;
    chip->dis.defaults = defaults.dis;
    chip->fd.defaults = defaults.fd;
    chip->od.defaults = defaults.od;
}
