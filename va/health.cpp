#include "va/health.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace
{

std::uint32_t tenths_now()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::duration<std::int64_t, std::deci>>(now).count());
}

// Cut where it does not fit.
__attribute__((format(printf, 2, 3))) void put(VaHealth::Reason &reason, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(reason.text, sizeof reason.text, format, arguments);
    va_end(arguments);
}

} // namespace

namespace va
{

const char *name_of(VaModule module)
{
    constexpr const char *names[] = {"od", "fd", "ta", "dis"};
    return names[static_cast<std::size_t>(module)];
}

const char *name_of(VaHealth::Analytics analytics)
{
    constexpr const char *names[] = {"start", "run", "hang", "ended"};
    return names[static_cast<std::size_t>(analytics)];
}

const char *name_of(VaHealth::State state)
{
    constexpr const char *names[] = {"off", "opens", "runs", "failed", "stopped"};
    return names[static_cast<std::size_t>(state)];
}

void Stamp::set()
{
    const std::uint32_t now = tenths_now();
    at_ = now != 0 ? now : 1;
}

std::optional<Stamp::Age> Stamp::age() const
{
    const std::uint32_t at = at_;
    if (at == 0)
        return {};
    // Set meanwhile, it may lie ahead.
    return std::max(Age(static_cast<std::int32_t>(tenths_now() - at)), Age::zero());
}

} // namespace va

void VaHealth::boots()
{
    const va::ScopedLock guard(lock_);
    record_.first_boot_failure = std::exchange(record_.boot_failure, {});
}

void VaHealth::cannot_boot(const char *path, const char *why)
{
    const va::ScopedLock guard(lock_);
    put(record_.boot_failure, "%s: %s", path, why);
}

void VaHealth::opens(VaModule module)
{
    last_pass_.set();
    set_state(module, State::Opens);
}

void VaHealth::configures(VaModule module, bool accepted)
{
    const va::ScopedLock guard(lock_);
    record_.modules[index_of(module)].refused = !accepted;
}

void VaHealth::fails(VaModule module, const char *what, int code)
{
    const va::ScopedLock guard(lock_);
    Module &failed = record_.modules[index_of(module)];
    failed.state = State::Failed;
    if (code != 0)
        put(failed.reason, "%s failed, code %X", what, static_cast<unsigned>(code));
    else
        put(failed.reason, "%s", what);
    put(record_.why_ended, "%s: %s", va::name_of(module), failed.reason.text);
}

void VaHealth::begins_pass()
{
    last_pass_.set();
    phase_ = Phase::Passing;
}

void VaHealth::ends(const char *why)
{
    const va::ScopedLock guard(lock_);
    for (Module &module : record_.modules) {
        if (module.state == State::Runs)
            module.state = State::Stopped;
    }
    if (!*record_.why_ended.text)
        put(record_.why_ended, "%s", why);
    phase_ = Phase::Ended;
}

VaHealth::Analytics VaHealth::analytics() const
{
    const Phase phase = phase_;
    if (phase == Phase::Ended)
        return Analytics::Ended;
    if (last_pass_.age() > longest_pass)
        return Analytics::Hang;
    return phase == Phase::Passing ? Analytics::Run : Analytics::Start;
}

VaHealth::Record VaHealth::record() const
{
    const va::ScopedLock guard(lock_);
    return record_;
}

void VaHealth::set_state(VaModule module, State state)
{
    const va::ScopedLock guard(lock_);
    record_.modules[index_of(module)].state = state;
}
