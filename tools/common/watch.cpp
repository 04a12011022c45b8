#include "tools/common/watch.h"

#include "client/stream_client.h"
#include "tools/common/printing.h"
#include "tools/common/stop.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace va
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds retry_interval{200}; // of attempts to connect
constexpr milliseconds answer_interval{10}; // of checks for an answer
constexpr seconds status_interval{2};       // of questions, while somebody wants the status
constexpr seconds silence{3};               // before a daemon is asked whether it is well
constexpr seconds long_interval{10};        // of questions else, each of which costs it a file

std::atomic<bool> report_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

// One stream. What becomes of its connection is said on standard error, whenever it changes, and to
// the sinks.
class Subscription
{
public:
    Subscription(Stream stream, const std::string &directory)
        : stream_(stream), client_(directory + "/" + std::string(name_of(stream)))
    {
    }

    int descriptor() const { return client_.fd(); }
    bool is_connected() const { return client_.state() == StreamClient::State::Connected; }

    void connect(const Moment &now, Sinks &sinks)
    {
        client_.connect();
        report(now, sinks);
    }

    // One read; returns whether it brought a record.
    bool receive(const Moment &now, Sinks &sinks)
    {
        bool any = false;
        client_.receive([&](std::span<const std::uint8_t> payload) {
            report(now, sinks); // of a connection that counts as one by its first record
            any = true;
            return sinks.record({stream_, now.time, now.at, payload});
        });
        report(now, sinks);
        return any;
    }

    // Whether a daemon runs that does not serve it.
    void set_status(const Moment &now, const DaemonStatus &status, Sinks &sinks)
    {
        const std::string module(info_of(stream_).module);
        is_off_ = status.value("module." + module + ".state") == "off";
        report(now, sinks);
    }

private:
    std::string text() const
    {
        if (is_off_ && !is_connected())
            return std::string(info_of(stream_).module) + " is off";
        return client_.status();
    }

    void report(const Moment &now, Sinks &sinks)
    {
        is_off_ = is_off_ && !is_connected();
        if (text() == said_)
            return;
        said_ = text();
        say(std::string(name_of(stream_)) + ": " + said_);
        sinks.call(&RecordSink::connection, Connection{stream_, now, is_connected(), said_});
    }

    Stream stream_;
    StreamClient client_;
    bool is_off_ = false;
    std::string said_;
};

// Asks the daemon for its status, while other things go on: when it connects or a stream is
// missing, every two seconds where a sink wants to know, and when it is silent, to distinguish one
// that has nothing to report from one that hangs, runs without analytics or cannot write its
// status.
class StatusMonitor
{
public:
    StatusMonitor(const std::string &directory, Sinks &sinks)
        : directory_(directory), sinks_(sinks), wanted_(sinks.want_status())
    {
    }

    // A record arrived; the end of a connection is none.
    void hear(const Moment &now)
    {
        heard_ = now.at;
        if (verdict_ != NO_STATUS) // which a record does not disprove
            judge_as(now, {IS_WELL, "va runs"});
    }

    // Several times a second. Returns the answer, once, when there is one.
    std::optional<DaemonStatus> pass(const Moment &now, bool connected, bool complete)
    {
        if (!connected && std::exchange(connected_, false))
            verdict_ = IS_WELL; // of the next daemon
        if (connected && !std::exchange(connected_, true)) {
            heard_ = now.at;
            due_ = now.at;
        }
        if (!query_ && now.at >= due_ && (wanted_ || !complete || is_silent(now))) {
            was_silent_ = is_silent(now);
            query_.emplace(directory_);
        }
        auto answer = query_ ? query_->poll() : std::nullopt;
        if (answer) {
            query_.reset();
            const bool is_gone = answer->answer == DaemonStatus::Answer::Gone; // asked for nothing
            due_ = now.at + (wanted_ || is_gone ? status_interval : long_interval);
            take(now, *answer);
        }
        return answer;
    }

    // When pass() is to be called again at the latest.
    Elapsed due(Elapsed now) const { return query_ ? now + answer_interval : Elapsed::max(); }

private:
    bool is_silent(const Moment &now) const { return connected_ && now.at - heard_ >= silence; }

    void take(const Moment &now, const DaemonStatus &status)
    {
        using enum DaemonStatus::Answer;
        if (status.answer == Answered)
            sinks_.call(&RecordSink::status, now, status);
        const bool was_refused = std::exchange(is_refused_, status.answer == Refused);
        if (wanted_ && is_refused_ && !was_refused) // else nobody knows why there is no scene
            say("the daemon's settings are not known: " + status.reason);
        if (verdict_ == NO_STATUS && status.answer == Answered)
            judge_as(now, judge(status));
        // Where records arrive nothing is wrong; and one that takes no requests may be quite well.
        if (was_silent_ && is_silent(now) &&
            (status.answer == Answered || status.answer == None || status.answer == Unwritten))
            judge_as(now, judge(status));
    }

    void judge_as(const Moment &now, const Verdict &verdict)
    {
        if (std::exchange(verdict_, verdict.status) == verdict.status)
            return;
        say(verdict.text);
        sinks_.call(&RecordSink::verdict, now, verdict);
    }

    std::string directory_;
    Sinks &sinks_;
    bool wanted_;
    bool connected_ = false;
    Elapsed heard_{};
    Elapsed due_{};
    bool was_silent_ = false; // when it was asked
    bool is_refused_ = false; // to ask it
    std::optional<StatusQuery> query_;
    ExitStatus verdict_ = IS_WELL; // that was reported
};

class Watch
{
public:
    Watch(const Source &source, Sinks &sinks) : sinks_(sinks), monitor_(source.directory, sinks)
    {
        for (const Stream stream : source.streams)
            subscriptions_.emplace_back(stream, source.directory);
        // poll() passes over the descriptor -1. Of the output it only says that nobody reads it.
        polled_.resize(subscriptions_.size());
        polled_.push_back({STDOUT_FILENO, 0, 0});
        prepare_stop(source.time_limit ? std::optional(start_ + *source.time_limit) : std::nullopt);
    }

    bool goes_on() const
    {
        return !must_stop() && !sinks_.is_complete() && !(polled_.back().revents & POLLERR);
    }

    void pass()
    {
        connect_all();
        for (std::size_t i = 0; i < subscriptions_.size(); ++i)
            polled_[i] = {subscriptions_[i].descriptor(), POLLIN, 0};
        const Elapsed before = now().at;
        const Elapsed due = std::min(sinks_.due(), monitor_.due(before));
        if (poll(polled_.data(), polled_.size(), timeout_ms(std::max(due - before, Elapsed()))) > 0)
            receive_all();
        ask();
        if (report_requested.exchange(false))
            sinks_.call(&RecordSink::report, now());
        sinks_.call(&RecordSink::tick, now());
    }

    Moment now() const
    {
        return {std::chrono::system_clock::now(),
                std::chrono::duration_cast<Elapsed>(Clock::now() - start_)};
    }

private:
    void connect_all()
    {
        if (Clock::now() < next_attempt_)
            return;
        for (Subscription &subscription : subscriptions_)
            subscription.connect(now(), sinks_);
        next_attempt_ = Clock::now() + retry_interval;
    }

    void receive_all()
    {
        for (std::size_t i = 0; i < subscriptions_.size() && !sinks_.is_complete(); ++i) {
            if (polled_[i].revents && subscriptions_[i].receive(now(), sinks_))
                monitor_.hear(now());
        }
    }

    void ask()
    {
        const auto connected = std::ranges::count_if(subscriptions_, &Subscription::is_connected);
        const bool complete = std::cmp_equal(connected, subscriptions_.size());
        const auto status = monitor_.pass(now(), connected > 0, complete);
        using enum DaemonStatus::Answer;
        if (!status || (status->answer != Answered && status->answer != Gone))
            return;
        for (Subscription &subscription : subscriptions_)
            subscription.set_status(now(), *status, sinks_);
    }

    Sinks &sinks_;
    StatusMonitor monitor_;
    std::vector<Subscription> subscriptions_;
    std::vector<pollfd> polled_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_attempt_{};
};

} // namespace

void prepare_report()
{
    struct sigaction action = {}; // without SA_RESTART, so that the wait ends
    action.sa_handler = [](int) { report_requested = true; };
    sigaction(SIGUSR1, &action, nullptr);
}

Moment watch(const Source &source, Sinks &sinks)
{
    Watch watch(source, sinks);
    while (watch.goes_on())
        watch.pass();
    return watch.now();
}

} // namespace va
