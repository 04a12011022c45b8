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

const char *name_of(VaModule module)
{
    constexpr const char *names[] = {"od", "fd", "ta", "dis"};
    return names[static_cast<std::size_t>(module)];
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

void VaHealth::boots()
{
    const va::ScopedLock guard(lock_);
    first_boot_failure_ = std::exchange(boot_failure_, {});
}

void VaHealth::cannot_boot(const char *path, const char *why)
{
    const va::ScopedLock guard(lock_);
    put(boot_failure_, "%s: %s", path, why);
}

void VaHealth::opens(VaModule module)
{
    last_pass_.set();
    set_state(module, State::opens);
}

void VaHealth::configures(VaModule module, bool accepted)
{
    const va::ScopedLock guard(lock_);
    modules_[index_of(module)].refused = !accepted;
}

void VaHealth::runs(VaModule module)
{
    set_state(module, State::runs);
}

void VaHealth::fails(VaModule module, const char *what, int code)
{
    const va::ScopedLock guard(lock_);
    Module &failed = modules_[index_of(module)];
    failed.state = State::failed;
    if (code != 0)
        put(failed.reason, "%s failed, code %X", what, static_cast<unsigned>(code));
    else
        put(failed.reason, "%s", what);
    put(why_ended_, "%s: %s", name_of(module), failed.reason.text);
}

void VaHealth::begins_pass()
{
    last_pass_.set();
    phase_ = Phase::passing;
}

void VaHealth::ends(const char *why)
{
    const va::ScopedLock guard(lock_);
    for (Module &module : modules_) {
        if (module.state == State::runs)
            module.state = State::stopped;
    }
    if (!*why_ended_.text)
        put(why_ended_, "%s", why);
    phase_ = Phase::ended;
}

VaHealth::Analytics VaHealth::analytics() const
{
    const Phase phase = phase_;
    if (phase == Phase::ended)
        return Analytics::ended;
    if (last_pass_.age() > longest_pass)
        return Analytics::hang;
    return phase == Phase::passing ? Analytics::run : Analytics::start;
}

VaHealth::Module VaHealth::module(VaModule module) const
{
    const va::ScopedLock guard(lock_);
    return modules_[index_of(module)];
}

VaHealth::Reason VaHealth::why_ended() const
{
    const va::ScopedLock guard(lock_);
    return why_ended_;
}

VaHealth::Reason VaHealth::boot_failure() const
{
    const va::ScopedLock guard(lock_);
    return boot_failure_;
}

VaHealth::Reason VaHealth::first_boot_failure() const
{
    const va::ScopedLock guard(lock_);
    return first_boot_failure_;
}

void VaHealth::set_state(VaModule module, State state)
{
    const va::ScopedLock guard(lock_);
    modules_[index_of(module)].state = state;
}
