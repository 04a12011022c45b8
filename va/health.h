#pragma once

#include "util/guarded.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <mutex>
#include <optional>

// How the analytics are doing: reported by the processing thread, read by the main thread at any
// time, also while the processing thread hangs in a call of the chip's library.

// In the order in which they are opened.
enum class VaModule { Od, Fd, Ta, Dis };
inline constexpr VaModule va_modules[] = {VaModule::Od, VaModule::Fd, VaModule::Ta, VaModule::Dis};

namespace va
{

const char *name_of(VaModule module); // "od"

// A point in time that one thread sets and any other reads, without a lock. In tenths of a second
// of a clock that wraps: ages of up to six years are right.
class Stamp
{
public:
    using Age = std::chrono::duration<std::int32_t, std::deci>;

    void set();                     // to now
    std::optional<Age> age() const; // nothing before the first set()

private:
    std::atomic<std::uint32_t> at_{0}; // 0: never
};

} // namespace va

class VaHealth
{
public:
    // Longest time that one pass, or opening one module, may take before analytics count as hung.
    static constexpr std::chrono::seconds longest_pass{3};

    enum class Analytics {
        Start, // the modules are being opened
        Run,
        Hang,
        Ended, // the processing thread has, or could not be made
    };
    enum class State { Off, Opens, Runs, Failed, Stopped };

    struct Reason {
        char text[96]; // empty when nothing failed
    };
    struct Module {
        State state = State::Off;
        bool refused = false; // the library did not take the settings
        Reason reason{};
    };
    struct Record {
        Module modules[std::size(va_modules)];
        Reason why_ended{};          // a failed module's reason has its name in front
        Reason boot_failure{};       // of the last attempt
        Reason first_boot_failure{}; // of the one before

        const Module &of(VaModule module) const { return modules[index_of(module)]; }
    };

    // The main thread, before the processing thread.

    void boots();
    void cannot_boot(const char *path,
                     const char *why); // for a reason of which the log has no line

    // The processing thread, or the main thread when there is none.

    void opens(VaModule module);
    void configures(VaModule module, bool accepted);
    void runs(VaModule module) { set_state(module, State::Runs); }
    // `what` is a call with the library's code for its failure, or, with the code 0, a sentence.
    void fails(VaModule module, const char *what, int code);
    void has_result(VaModule module) { results_[index_of(module)].set(); }
    void begins_pass();
    void ends(const char *why); // `why` counts when no module has failed

    // Any thread.

    Analytics analytics() const;
    std::optional<va::Stamp::Age> since_last_pass() const { return last_pass_.age(); }
    std::optional<va::Stamp::Age> since_result(VaModule module) const
    {
        return results_[index_of(module)].age();
    }
    Record record() const;

private:
    enum class Phase { Opening, Passing, Ended };

    static constexpr std::size_t index_of(VaModule module)
    {
        return static_cast<std::size_t>(module);
    }
    void set_state(VaModule module, State state);

    va::Stamp last_pass_;
    va::Stamp results_[std::size(va_modules)];
    std::atomic<Phase> phase_{Phase::Opening};
    mutable std::mutex lock_; // not held while the library is called
    Record record_ VA_GUARDED_BY(lock_);
};

namespace va
{

// As the status has them.
const char *name_of(VaHealth::Analytics analytics);
const char *name_of(VaHealth::State state);

} // namespace va
