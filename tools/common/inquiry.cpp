#include "tools/common/inquiry.h"

#include "tools/common/standard_output.h"

#include <algorithm>
#include <utility>

namespace
{

using Answer = DaemonStatus::Answer;
using std::chrono::seconds;

constexpr seconds silence{3};        // before it is asked
constexpr seconds interval{10};      // and again
constexpr seconds long_interval{30}; // where a record may come while the answer is waited for

} // namespace

Inquiry::Inquiry(std::string directory, Output &output)
    : directory_(std::move(directory)), output_(output), due_(silence)
{
}

void Inquiry::heard(const Moment &now)
{
    if (told_ == NO_STATUS) { // of which a record tells nothing
        due_ = std::max(due_, now.at + silence);
        return;
    }
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
    const DaemonStatus status = ask_daemon_status(directory_);
    due_ = now.at + (status.answer == Answer::Unwritten ? long_interval : interval);
    // One that takes no requests may be quite well.
    if (status.answer == Answer::Answered || status.answer == Answer::None ||
        status.answer == Answer::Unwritten)
        take(now, judge(status));
}

void Inquiry::take(const Moment &now, const Verdict &verdict)
{
    if (std::exchange(told_, verdict.status) == verdict.status)
        return;
    say(verdict.text);
    output_.tell(&Printer::verdict, now, verdict);
}
