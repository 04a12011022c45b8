#include "platform/sim/feed.h"

#include "platform/sim/text.h"

#include <array>
#include <csignal>
#include <new>
#include <system_error>

namespace
{

constexpr std::size_t kept = 32; // of each kind
constexpr std::chrono::milliseconds longest_gap{100};

// What of an observation that is dropped holds for the one after it.
template <class Seen>
void pass_on(const Seen &, Seen &)
{
}

void pass_on(const SeenObjects &dropped, SeenObjects &next)
{
    next.anew |= dropped.anew;
}

} // namespace

template <class Seen>
void Feed::Kept<Seen>::add(Seen seen)
{
    all.push_back(std::move(seen));
    if (all.size() <= kept)
        return;
    pass_on(all[0], all[1]);
    all.pop_front();
}

template <class Seen>
std::optional<Seen> Feed::Kept<Seen>::take()
{
    if (all.empty())
        return {};
    std::optional<Seen> oldest(std::move(all.front()));
    all.pop_front();
    return oldest;
}

template <class Seen>
Moment Feed::Kept<Seen>::due() const
{
    if (!all.empty())
        return Moment::min();
    return std::chrono::steady_clock::now() < expected ? expected : never;
}

Feed::Feed(std::string path, Size frame, void (*wake)())
    : path_(std::move(path)), frame_(frame), wake_(wake)
{
}

void Feed::start()
{
    end_reading();
    va::assume_locked(mutex_); // the chip's lock keeps readers out
    objects_ = {};
    faces_ = {};
    alarms_ = {};
    try {
        input_.emplace(path_);
        thread_ = std::thread([this] { read(); });
    } catch (const std::system_error &error) {
        say("feed %s: cannot be read: %s", path_.c_str(), error.what());
    }
}

void Feed::end_reading()
{
    if (!thread_.joinable())
        return;
    input_->stop();
    thread_.join();
}

std::optional<SeenObjects> Feed::take_objects()
{
    const va::ScopedLock lock(mutex_);
    return objects_.take();
}

std::optional<std::vector<SimFaceEntry>> Feed::take_faces()
{
    const va::ScopedLock lock(mutex_);
    return faces_.take();
}

std::optional<AlarmWords> Feed::take_alarm()
{
    const va::ScopedLock lock(mutex_);
    return alarms_.take();
}

Moment Feed::objects_due() const
{
    const va::ScopedLock lock(mutex_);
    return objects_.due();
}

Moment Feed::faces_due() const
{
    const va::ScopedLock lock(mutex_);
    return faces_.due();
}

Moment Feed::alarm_due() const
{
    const va::ScopedLock lock(mutex_);
    return alarms_.due();
}

// Signals are for the threads of the program.
void Feed::read()
try {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    FeedLines lines(path_, frame_);
    std::array<char, 4096> buffer;
    for (;;) {
        std::size_t count = 0;
        switch (input_->read(buffer, count)) {
        case FeedInput::Event::Bytes:
            for (FeedPicture &picture : lines.take({buffer.data(), count}))
                keep(std::move(picture));
            break;
        case FeedInput::Event::WriterGone:
            lines.end();
            break;
        case FeedInput::Event::Stopped:
            return;
        }
    }
} catch (const std::bad_alloc &) {
    say("feed %s: no memory to go on", path_.c_str());
}

void Feed::keep(FeedPicture picture)
{
    const Moment expected = std::chrono::steady_clock::now() + longest_gap;
    {
        const va::ScopedLock lock(mutex_);
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
