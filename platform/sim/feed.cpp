#include "platform/sim/feed.h"

#include "platform/sim/feed_lines.h"
#include "platform/sim/text.h"
#include "util/fd.h"
#include "util/guarded.h"
#include "util/text.h"
#include "util/unix_address.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <deque>
#include <iterator>
#include <mutex>
#include <new>
#include <span>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace va::sim
{

namespace
{

constexpr std::size_t kept = 32; // observations of each kind
constexpr std::chrono::milliseconds longest_gap{100};

constexpr int pause_ms = 1000; // until what is at the path is opened again
constexpr int wrong_kind = ENOTSUP;
constexpr const char *no_writer = "no writer";

std::string state_of(int error)
{
    switch (error) {
    case ECONNREFUSED:
    case EAGAIN: // the listener's queue is full
        return no_writer;
    case wrong_kind:
        return "neither a FIFO nor a socket";
    default:
        return error_text(error);
    }
}

Fd open_fifo(const std::string &path)
{
    Fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (fd && !is_fifo(fd.get())) {
        fd.reset();
        errno = wrong_kind;
    }
    return fd;
}

Fd make_fifo(const std::string &path)
{
    constexpr mode_t owner_only = 0600;
    return mkfifo(path.c_str(), owner_only) == 0 ? open_fifo(path) : Fd();
}

// The FIFO or Unix socket from which a feed is read; see docs/scene.md. One thread reads.
class FeedInput
{
public:
    // Throws std::system_error.
    explicit FeedInput(std::string path)
        : path_(std::move(path)), stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (!stop_)
            throw std::system_error(errno, std::generic_category());
    }

    // Waits for bytes, as long as it takes, for a writer too. Returns how many have come, 0 when
    // the writer has gone, nothing after stop(). Reports when there is no writer or can be none,
    // and when there is one again.
    //
    // A FIFO without a writer, and what could not be opened, is opened again after a pause: what is
    // at the path may be another by then.
    std::optional<std::size_t> read(std::span<char> buffer)
    {
        for (;;) {
            if (std::exchange(to_be_opened_, false))
                open();
            const bool lasts = fd_ && (written_ || !is_fifo_);
            pollfd sources[] = {{stop_.get(), POLLIN, 0}, {fd_.get(), POLLIN, 0}};
            poll(sources, std::size(sources), lasts ? -1 : pause_ms);
            if (sources[0].revents)
                return {};
            if (sources[1].revents) {
                if (const auto count = read_input(buffer))
                    return count;
                continue;
            }
            if (fd_)
                report(no_writer);
            to_be_opened_ = true;
        }
    }

    // Any thread.
    void stop()
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(stop_.get(), &one, sizeof one);
    }

private:
    // A FIFO is closed after it was opened again, so that what is in it is not lost.
    void open()
    {
        Fd opened = open_fifo(path_);
        if (!opened && errno == ENOENT)
            opened = make_fifo(path_);
        is_fifo_ = static_cast<bool>(opened);
        if (!opened && errno == ENXIO) // as for a socket
            opened = connect_unix(path_);
        if (!opened)
            report(state_of(errno));
        fd_ = std::move(opened);
    }

    std::optional<std::size_t> read_input(std::span<char> buffer)
    {
        const ssize_t got = ::read(fd_.get(), buffer.data(), buffer.size());
        if (got > 0) {
            written_ = true;
            if (!reported_.empty())
                report("writer connected");
            return static_cast<std::size_t>(got);
        }
        if (got == -1 && errno == EAGAIN)
            return {};
        const bool was_written = std::exchange(written_, false);
        // The FIFO may have its next writer; a listener that ends each connection is retried later.
        to_be_opened_ = is_fifo_ || was_written;
        if (!is_fifo_)
            fd_.reset();
        return was_written ? std::optional<std::size_t>(0) : std::nullopt;
    }

    void report(const std::string &state)
    {
        if (reported_ == state)
            return;
        reported_ = state;
        say("feed %s: %s", path_.c_str(), state.c_str());
    }

    std::string path_;
    Fd stop_;
    Fd fd_; // empty while there is nothing to read from
    bool is_fifo_ = false;
    bool written_ = false; // bytes have come from `fd_`
    bool to_be_opened_ = true;
    std::string reported_;
};

// The newest that nobody has taken yet.
template <class Seen>
struct Kept {
    void add(Seen seen)
    {
        all.push_back(std::move(seen));
        if (all.size() <= kept)
            return;
        if constexpr (std::is_same_v<Seen, SeenObjects>)
            all[1].jump |= all[0].jump;
        all.pop_front();
    }

    Moment due() const
    {
        if (!all.empty())
            return Moment::min();
        return std::chrono::steady_clock::now() < expected ? expected : never;
    }

    std::deque<Seen> all;
    Moment expected = Moment::min(); // the next, at the latest
};

class Feed : public Source
{
public:
    Feed(std::string path, Size frame, void (*wake)())
        : path_(std::move(path)), frame_(frame), wake_(wake)
    {
    }

    ~Feed() override { Feed::stop(); }

    void start() override
    {
        stop();
        assume_locked(mutex_); // the chip's lock keeps readers out
        objects_ = {};
        faces_ = {};
        alarms_ = {};
        try {
            input_ = std::make_unique<FeedInput>(path_);
            thread_ = std::thread([this] { read(); });
        } catch (const std::system_error &error) {
            say("feed %s: cannot be read: %s", path_.c_str(), error.what());
        }
    }

    void stop() override
    {
        if (!thread_.joinable())
            return;
        input_->stop();
        thread_.join();
    }

    std::optional<SeenObjects> take_objects() override
    {
        const ScopedLock lock(mutex_);
        return take_first(objects_.all);
    }

    std::optional<std::vector<SimFaceEntry>> take_faces() override
    {
        const ScopedLock lock(mutex_);
        return take_first(faces_.all);
    }

    std::optional<AlarmWords> take_alarm() override
    {
        const ScopedLock lock(mutex_);
        return take_first(alarms_.all);
    }

    DueTimes due() const override
    {
        const ScopedLock lock(mutex_);
        return {objects_.due(), faces_.due(), alarms_.due()};
    }

private:
    // Signals are for the threads of the program.
    void read()
    try {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        FeedLines lines(path_, frame_);
        std::array<char, 4096> buffer;
        while (const auto count = input_->read(buffer)) {
            if (*count == 0)
                lines.end();
            for (FeedPicture &picture : lines.take({buffer.data(), *count}))
                keep(std::move(picture));
        }
    } catch (const std::bad_alloc &) {
        say("feed %s: no memory left, reading ends", path_.c_str());
    }

    void keep(FeedPicture picture)
    {
        const Moment expected = std::chrono::steady_clock::now() + longest_gap;
        {
            const ScopedLock lock(mutex_);
            if (!picture.seen.objects.empty())
                objects_.expected = expected;
            objects_.add(std::move(picture.seen));
            if (!picture.faces.empty()) {
                faces_.expected = expected;
                faces_.add(std::move(picture.faces));
            }
            for (const AlarmWords &alarm : picture.alarms)
                alarms_.add(alarm);
        }
        wake_();
    }

    std::string path_;
    Size frame_;
    void (*wake_)();
    std::unique_ptr<FeedInput> input_; // while it is started
    std::thread thread_;

    mutable std::mutex mutex_;
    Kept<SeenObjects> objects_ VA_GUARDED_BY(mutex_);
    Kept<std::vector<SimFaceEntry>> faces_ VA_GUARDED_BY(mutex_);
    Kept<AlarmWords> alarms_ VA_GUARDED_BY(mutex_);
};

} // namespace

std::unique_ptr<Source> make_feed(std::string path, Size frame, void (*wake)())
{
    return std::make_unique<Feed>(std::move(path), frame, wake);
}

} // namespace va::sim
