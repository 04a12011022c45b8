#include "client/capture.h"
#include "tools/common/stop.h"
#include "tools/common/watch.h"

#include <algorithm>
#include <stdexcept>

#include <poll.h>

namespace va
{

namespace
{

// The time of a capture, which begins with its first record.
class Player
{
public:
    Player(const Source &source, Sinks &sinks) : source_(source), sinks_(sinks) {}

    // False when that was the last one wanted.
    bool take(const Record &record)
    {
        if (source_.time_limit && record.at > *source_.time_limit)
            return false;
        wait_until(record.at);
        now_ = {record.time, record.at};
        if (must_stop())
            return false;
        return std::ranges::count(source_.streams, record.stream) == 0 || sinks_.record(record);
    }

    const Moment &now() const { return now_; }

private:
    // Without a pace nothing is waited for, and nobody asks for a report meanwhile.
    void wait_until(Elapsed at)
    {
        if (source_.pace == 0)
            return;
        for (Elapsed next; now_.at < at && !must_stop(); pass_to(next)) {
            next = std::min(at, sinks_.due());
            const auto left = std::chrono::ceil<Elapsed>((next - elapsed()) / source_.pace);
            poll(nullptr, 0, timeout_ms(std::max(left, Elapsed())));
        }
    }

    void pass_to(Elapsed next)
    {
        const Elapsed at = std::max(now_.at, std::min(next, elapsed()));
        now_ = {now_.time + (at - now_.at), at};
        sinks_.call(&RecordSink::tick, now_);
    }

    Elapsed elapsed() const
    {
        return std::chrono::duration_cast<Elapsed>((Clock::now() - start_) * source_.pace);
    }

    const Source &source_;
    Sinks &sinks_;
    Clock::time_point start_ = Clock::now();
    Moment now_{};
};

} // namespace

void replay(const Source &source, Sinks &sinks)
{
    prepare_stop(std::nullopt);
    Player player(source, sinks);
    const std::string fault =
        read_capture(source.capture, [&](const Record &record) { return player.take(record); });
    sinks.call(&RecordSink::finish, player.now());
    if (!fault.empty())
        throw std::runtime_error(source.capture + ": " + fault);
}

} // namespace va
