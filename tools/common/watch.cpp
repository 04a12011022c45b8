#include "tools/common/watch.h"

#include "ipc/client/stream_client.h"
#include "tools/common/inquiry.h"
#include "tools/common/standard_output.h"
#include "tools/common/stop.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace
{

// Between two attempts to connect.
constexpr std::chrono::milliseconds retry_interval{200};

std::atomic<bool> report_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

// One stream. What becomes of its connection is said on standard error, whenever it changes, and to
// the printers.
class Stream
{
public:
    Stream(const StreamKind &kind, const std::string &directory)
        : kind_(kind), client_(directory + "/" + std::string(kind.name))
    {
    }

    int descriptor() const { return client_.fd(); }
    bool is_connected() const { return client_.state() == StreamClient::State::Connected; }

    void connect(const Moment &now, Output &output)
    {
        client_.connect();
        tell_status(now, output);
    }

    // One read.
    void receive(const Moment &now, Output &output, Inquiry &inquiry)
    {
        client_.receive([&](std::span<const std::uint8_t> payload) {
            tell_status(now, output); // of a connection that counts as one by its first record
            inquiry.heard(now);
            return output.print({kind_, now.time, now.at, payload});
        });
        tell_status(now, output);
    }

private:
    void tell_status(const Moment &now, Output &output)
    {
        if (client_.status() == said_)
            return;
        said_ = client_.status();
        say(std::string(kind_.name) + ": " + said_);
        output.tell(&Printer::connection, Connection{kind_, now, is_connected(), said_});
    }

    const StreamKind &kind_;
    StreamClient client_;
    std::string said_;
};

class Watch
{
public:
    Watch(const Source &source, Output &output)
        : output_(output), inquiry_(source.directory, output)
    {
        for (const StreamKind *kind : source.streams)
            streams_.emplace_back(*kind, source.directory);
        // poll() passes over the descriptor -1. Of the output it only tells that nobody reads it.
        polled_.resize(streams_.size());
        polled_.push_back({STDOUT_FILENO, 0, 0});
        prepare_stop(source.time_limit ? std::optional(start_ + *source.time_limit) : std::nullopt);
    }

    bool goes_on() const
    {
        return !must_stop() && !output_.is_complete() && !(polled_.back().revents & POLLERR);
    }

    void pass()
    {
        connect_all();
        for (std::size_t i = 0; i < streams_.size(); ++i)
            polled_[i] = {streams_[i].descriptor(), POLLIN, 0};
        const int patience = patience_ms(std::max(output_.due() - now().at, Elapsed()));
        if (poll(polled_.data(), polled_.size(), patience) > 0)
            receive_all();
        inquiry_.pass(now(), std::ranges::any_of(streams_, &Stream::is_connected));
        if (report_requested.exchange(false))
            output_.tell(&Printer::report, now());
        output_.tell(&Printer::tick, now());
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
        for (Stream &stream : streams_)
            stream.connect(now(), output_);
        next_attempt_ = Clock::now() + retry_interval;
    }

    void receive_all()
    {
        for (std::size_t i = 0; i < streams_.size() && !output_.is_complete(); ++i) {
            if (polled_[i].revents)
                streams_[i].receive(now(), output_, inquiry_);
        }
    }

    Output &output_;
    Inquiry inquiry_;
    std::vector<Stream> streams_;
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

Moment watch(const Source &source, Output &output)
{
    Watch watch(source, output);
    while (watch.goes_on())
        watch.pass();
    return watch.now();
}
