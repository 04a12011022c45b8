#include "tools/common/inquiry.h"

#include "tools/common/standard_output.h"

#include <utility>

namespace
{

using std::chrono::seconds;

constexpr seconds silence{3};   // before it is asked
constexpr seconds interval{10}; // and again

} // namespace

Inquiry::Inquiry(std::string directory, Output &output)
    : directory_(std::move(directory)), output_(output), due_(silence)
{
}

void Inquiry::heard(const Moment &now)
{
    due_ = now.at + silence;
    take(now, {IS_WELL, "va runs"});
}

void Inquiry::pass(const Moment &now, bool connected)
{
    if (!connected) {
        due_ = now.at + silence;
        told_ = IS_WELL; // whoever comes next
        return;
    }
    if (now.at < due_)
        return;
    due_ = now.at + interval;
    const DaemonStatus status = ask_daemon_status(directory_);
    // One that takes no requests may be quite well.
    if (status.answer == DaemonStatus::Answer::Answered ||
        status.answer == DaemonStatus::Answer::None)
        take(now, judge(status));
}

void Inquiry::take(const Moment &now, const Verdict &verdict)
{
    if (std::exchange(told_, verdict.status) == verdict.status)
        return;
    say(verdict.text);
    output_.tell(&Printer::verdict, now, verdict);
}
