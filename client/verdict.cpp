#include "client/verdict.h"

namespace va
{

namespace
{

Verdict judge_answer(const DaemonStatus &status)
{
    const auto value = [&](const char *key) { return std::string(status.value(key)); };
    const std::string analytics = value("analytics.state");
    if (analytics == "ended")
        return {NO_ANALYTICS, "va runs without analytics: " + value("analytics.why")};
    if (analytics == "hang")
        return {NO_ANSWER,
                "the analytics of va hang, since " + value("analytics.last_pass") + " s"};
    return {IS_WELL, analytics == "start" ? "va opens its modules" : "va runs"};
}

} // namespace

Verdict judge(const DaemonStatus &status)
{
    switch (status.answer) {
    case DaemonStatus::Answer::Answered:
        return judge_answer(status);
    case DaemonStatus::Answer::Gone:
        return {GONE, "va does not run: " + status.reason};
    case DaemonStatus::Answer::None:
    case DaemonStatus::Answer::Deaf:
        return {NO_ANSWER, "va does not answer: " + status.reason};
    case DaemonStatus::Answer::Unwritten:
        return {NO_STATUS, "va runs, but cannot write its status: " + status.reason};
    case DaemonStatus::Answer::Refused:
        break;
    }
    return {FAILED, status.reason};
}

} // namespace va
