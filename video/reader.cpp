#include "video/reader.h"

#include "video/say.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace
{

constexpr std::chrono::seconds reopen_interval{1};
constexpr double whole = 0.95; // of the frames that a file tells of, which may be an estimate

} // namespace

Reader::Reader(ReaderOptions options) : options_(std::move(options)), thread_([this] { run(); }) {}

Reader::~Reader()
{
    stop();
    thread_.join();
}

void Reader::stop()
{
    {
        const va::ScopedLock lock(mutex_);
        stops_ = true;
    }
    changed_.notify_all();
}

bool Reader::is_stopping()
{
    const va::ScopedLock lock(mutex_);
    return stops_;
}

std::optional<Frame> Reader::take(std::chrono::milliseconds limit)
{
    va::UniqueLock lock(mutex_);
    changed_.wait_for(lock, limit, [this]() VA_REQUIRES(mutex_) { return frame_ || state_.ended; });
    std::optional<Frame> frame = std::exchange(frame_, std::nullopt);
    lock.unlock();
    changed_.notify_all();
    return frame;
}

Reader::State Reader::state()
{
    const va::ScopedLock lock(mutex_);
    return state_;
}

// A frame that nobody has taken makes room for a newer one, unless it is to be `kept`: then this
// waits until it is taken. False when stopped.
bool Reader::put(Frame frame, bool kept)
{
    va::UniqueLock lock(mutex_);
    if (options_.fast)
        changed_.wait(lock, [this]() VA_REQUIRES(mutex_) { return !frame_ || stops_; });
    frame.anew |= frame_ && frame_->anew;
    frame_ = std::move(frame);
    changed_.notify_all();
    if (kept)
        changed_.wait(lock, [this]() VA_REQUIRES(mutex_) { return !frame_ || stops_; });
    return !stops_;
}

bool Reader::rest_until(Clock::time_point time)
{
    va::UniqueLock lock(mutex_);
    return !changed_.wait_until(lock, time, [this]() VA_REQUIRES(mutex_) { return stops_; });
}

void Reader::end(bool failed)
{
    {
        const va::ScopedLock lock(mutex_);
        state_.ended = true;
        state_.failed = failed;
    }
    changed_.notify_all();
}

// Of frames that come unevenly, those that are a little early count too.
bool Reader::is_due(VideoTime time)
{
    const double interval = 1000 / options_.rate;
    const auto now = static_cast<double>(time);
    if (now < due_ - interval / 4)
        return false;
    due_ = std::max(due_ + interval, now);
    return true;
}

// Reads to the end, or until the source is lost; how many frames it had.
int Reader::read_frames(Capture &capture)
{
    const bool paced = !capture.is_live() && !options_.fast;
    Clock::time_point begin;
    VideoTime first = 0;
    const VideoTime offset = last_ + std::llround(1000 / capture.rate());
    bool anew = true;
    int count = 0;
    while (capture.grab() && !is_stopping()) {
        const Clock::time_point come = Clock::now();
        const VideoTime clock = (come - start_) / std::chrono::milliseconds(1);
        last_ = std::max(last_ + 1, capture.is_live() ? clock : offset + capture.time());
        ++count;
        {
            const va::ScopedLock lock(mutex_);
            ++state_.all;
            state_.read = count;
        }
        if (!is_due(last_))
            continue;
        Frame frame{{}, last_, come, anew};
        if (!capture.retrieve(frame.picture))
            continue;
        if (paced && !anew) {
            if (!rest_until(begin + std::chrono::milliseconds(last_ - first)))
                break;
            frame.come = Clock::now();
        }
        if (!put(std::move(frame), paced && anew))
            break;
        if (anew) {
            begin = Clock::now();
            first = last_;
        }
        anew = false;
    }
    return count;
}

void Reader::read_file(Capture capture)
{
    const char *const name = options_.source.c_str();
    for (bool first = true;; first = false) {
        const int total = capture.frames();
        {
            const va::ScopedLock lock(mutex_);
            state_.total = total;
        }
        const int count = read_frames(capture);
        if (is_stopping())
            return end(false);
        if (count == 0) {
            say("there is no picture in %s", name);
            return end(true);
        }
        if (first && count < total * whole)
            say("%s ends after %d of %d frames", name, count, total);
        if (!options_.loop)
            return end(false);
        std::optional<Capture> again = Capture::open(options_.source);
        if (!again) {
            say("cannot open %s again", name);
            return end(true);
        }
        capture = *std::move(again);
    }
}

void Reader::read_live(Capture first)
{
    const char *const name = options_.source.c_str();
    std::optional<Capture> capture = std::move(first);
    for (bool lost = false; !is_stopping(); lost = true) {
        if (capture) {
            if (lost)
                say("%s is back", name);
            lost = false;
            read_frames(*capture);
            capture.reset();
        }
        if (is_stopping())
            break;
        if (!lost)
            say("%s is lost, and tried again each second", name);
        rest_until(Clock::now() + reopen_interval);
        capture = Capture::open(options_.source);
    }
    end(false);
}

void Reader::run()
{
    try {
        std::optional<Capture> capture = Capture::open(options_.source);
        if (capture && capture->is_live()) {
            read_live(*std::move(capture));
        } else if (capture) {
            read_file(*std::move(capture));
        } else {
            if (!is_stopping())
                say("cannot open %s", options_.source.c_str());
            end(true);
        }
    } catch (const std::exception &error) {
        say("reading fails: %s", error.what());
        end(true);
    }
}
