#include "tools/common/replay.h"

#include "tools/common/capture.h"
#include "tools/common/stop.h"

#include <algorithm>
#include <stdexcept>

#include <poll.h>

namespace
{

// The time of a capture, which begins with its first record.
class Player
{
public:
    Player(const Source &source, Output &output) : source_(source), output_(output) {}

    // False when that was the last one wanted.
    bool take(const Record &record)
    {
        if (source_.time_limit && record.at > *source_.time_limit)
            return false;
        wait_until(record.at);
        now_ = {record.time, record.at};
        if (must_stop())
            return false;
        return std::ranges::count(source_.streams, &record.kind) == 0 || output_.print(record);
    }

    const Moment &now() const { return now_; }

private:
    // Without a pace nothing is waited for, and nobody asks how it stands meanwhile.
    void wait_until(Elapsed at)
    {
        if (source_.pace == 0)
            return;
        for (Elapsed next; now_.at < at && !must_stop(); pass_to(next)) {
            next = std::min(at, output_.due());
            const auto left = std::chrono::ceil<Elapsed>((next - elapsed()) / source_.pace);
            poll(nullptr, 0, patience_ms(std::max(left, Elapsed())));
        }
    }

    void pass_to(Elapsed next)
    {
        const Elapsed at = std::max(now_.at, std::min(next, elapsed()));
        now_ = {now_.time + (at - now_.at), at};
        output_.tell(&Printer::tick, now_);
    }

    Elapsed elapsed() const
    {
        return std::chrono::duration_cast<Elapsed>((Clock::now() - start_) * source_.pace);
    }

    const Source &source_;
    Output &output_;
    Clock::time_point start_ = Clock::now();
    Moment now_{};
};

} // namespace

void replay(const Source &source, Output &output)
{
    prepare_stop(std::nullopt);
    Player player(source, output);
    const std::string fault =
        read_capture(source.capture, [&](const Record &record) { return player.take(record); });
    output.tell(&Printer::finish, player.now());
    if (!fault.empty())
        throw std::runtime_error(source.capture + ": " + fault);
}
