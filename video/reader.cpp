#include "video/reader.h"

#include "tools/common/printing.h"
#include "util/text.h"

#include <algorithm>
#include <cmath>
#include <opencv2/videoio.hpp>
#include <utility>
#include <vector>

namespace va::video
{

namespace
{

using std::chrono::milliseconds;

constexpr std::chrono::seconds reopen_interval{1};
constexpr double complete = 0.95; // of the frames that a file states, which may be an estimate

constexpr int open_timeout_ms = 10'000;
constexpr int read_timeout_ms = 5'000;

constexpr double default_rate = 25; // of a video that states none
constexpr double highest_rate = 240;

bool is_device(const std::string &source)
{
    return source.starts_with("/dev/");
}

bool is_url(const std::string &source)
{
    return source.find("://") != std::string::npos;
}

int frame_count(const cv::VideoCapture &video)
{
    constexpr double most = 1e9;
    const double count = video.get(cv::CAP_PROP_FRAME_COUNT);
    return count > 0 && count < most ? static_cast<int>(count) : 0;
}

} // namespace

bool is_live(const std::string &source)
{
    return is_device(source) || is_url(source);
}

// An opened source.
struct Reader::Capture {
    explicit Capture(const std::string &source);

    // From the video's beginning; a raw stream has no times.
    VideoTime time() const
    {
        const double stated = video.get(cv::CAP_PROP_POS_MSEC);
        const double before = video.get(cv::CAP_PROP_POS_FRAMES) - 1;
        return std::llround(stated > 0 ? stated : before * 1000 / rate);
    }

    cv::VideoCapture video; // perhaps not opened
    bool live = false;
    int frames = 0; // in all, as a file states; 0: unknown
    double rate = default_rate;
};

Reader::Capture::Capture(const std::string &source)
{
    if (is_device(source)) {
        video.open(source, cv::CAP_V4L2);
    } else {
        std::vector<int> timeouts;
        if (is_url(source))
            timeouts = {cv::CAP_PROP_OPEN_TIMEOUT_MSEC, open_timeout_ms,
                        cv::CAP_PROP_READ_TIMEOUT_MSEC, read_timeout_ms};
        video.open(source, cv::CAP_FFMPEG, timeouts);
    }
    // A recording on a web server has a length.
    const bool web = source.starts_with("http://") || source.starts_with("https://");
    live = is_live(source) && !(web && frame_count(video) > 0);
    frames = live ? 0 : frame_count(video);
    const double stated = video.get(cv::CAP_PROP_FPS);
    if (stated >= 1 && stated <= highest_rate)
        rate = stated;
}

Reader::Reader(ReaderOptions options) : options_(std::move(options)), thread_([this] { run(); }) {}

Reader::~Reader()
{
    stop(milliseconds(0));
    thread_.join();
}

bool Reader::stop(milliseconds timeout)
{
    UniqueLock lock(mutex_);
    stops_ = true;
    changed_.notify_all();
    return changed_.wait_for(lock, timeout, [this]() VA_REQUIRES(mutex_) { return state_.ended; });
}

bool Reader::is_stopping()
{
    const ScopedLock lock(mutex_);
    return stops_;
}

std::optional<Frame> Reader::take(milliseconds timeout)
{
    UniqueLock lock(mutex_);
    changed_.wait_for(lock, timeout,
                      [this]() VA_REQUIRES(mutex_) { return frame_ || state_.ended; });
    changed_.notify_all();
    return std::exchange(frame_, std::nullopt);
}

Reader::State Reader::state()
{
    const ScopedLock lock(mutex_);
    return state_;
}

// A frame that nobody has taken is replaced by a newer one, unless `fast`; `wait`: until this one
// is taken. False when stopped.
bool Reader::put(Frame frame, bool wait)
{
    UniqueLock lock(mutex_);
    const auto is_taken = [this]() VA_REQUIRES(mutex_) { return !frame_ || stops_; };
    if (options_.fast)
        changed_.wait(lock, is_taken);
    frame.restarts |= frame_ && frame_->restarts;
    frame_ = std::move(frame);
    changed_.notify_all();
    if (wait)
        changed_.wait(lock, is_taken);
    return !stops_;
}

bool Reader::wait_until(Clock::time_point time)
{
    UniqueLock lock(mutex_);
    return !changed_.wait_until(lock, time, [this]() VA_REQUIRES(mutex_) { return stops_; });
}

// Of frames at uneven intervals, those that are a little early count too.
bool Reader::is_due(VideoTime time)
{
    const double interval = 1000 / options_.rate;
    const auto now = static_cast<double>(time);
    if (now < due_ - interval / 4)
        return false;
    due_ = std::max(due_ + interval, now);
    return true;
}

// Reads to the end, or until the source is lost. Returns the number of frames.
int Reader::read_frames(Capture &capture)
{
    const bool paced = !capture.live && !options_.fast;
    Clock::time_point begin;
    VideoTime first = 0;
    const VideoTime offset = last_ + std::llround(1000 / capture.rate);
    bool restarts = true;
    int count = 0;
    while (capture.video.grab() && !is_stopping()) {
        Frame frame{{}, 0, Clock::now(), restarts};
        const VideoTime clock = (frame.arrival - start_) / milliseconds(1);
        last_ = std::max(last_ + 1, capture.live ? clock : offset + capture.time());
        frame.time = last_;
        ++count;
        {
            const ScopedLock lock(mutex_);
            state_.read = count;
        }
        if (!is_due(last_) || !capture.video.retrieve(frame.image))
            continue;
        if (paced && !restarts) {
            if (!wait_until(begin + milliseconds(last_ - first)))
                break;
            frame.arrival = Clock::now();
        }
        if (!put(std::move(frame), paced && restarts))
            break;
        if (restarts) {
            begin = Clock::now();
            first = last_;
        }
        restarts = false;
    }
    return count;
}

// Returns whether it failed.
bool Reader::read_file(Capture capture)
{
    const char *const name = options_.source.c_str();
    for (bool first = true;; first = false) {
        {
            const ScopedLock lock(mutex_);
            state_.total = capture.frames;
        }
        const int count = read_frames(capture);
        if (is_stopping())
            return false;
        if (count == 0) {
            say(formatted("%s contains no picture", name));
            return true;
        }
        if (first && count < capture.frames * complete)
            say(formatted("%s ends after %d of %d frames", name, count, capture.frames));
        if (!options_.loop)
            return false;
        capture = Capture(options_.source);
        if (!capture.video.isOpened()) {
            say(formatted("cannot open %s again", name));
            return true;
        }
    }
}

void Reader::read_live(Capture capture)
{
    const char *const name = options_.source.c_str();
    for (bool lost = false; !is_stopping(); lost = true) {
        if (capture.video.isOpened()) {
            if (lost)
                say(formatted("%s is back", name));
            lost = false;
            read_frames(capture);
            capture.video.release();
        }
        if (is_stopping())
            break;
        if (!lost)
            say(formatted("%s is lost, and retried each second", name));
        wait_until(Clock::now() + reopen_interval);
        capture = Capture(options_.source);
    }
}

// Returns whether it failed.
bool Reader::read()
{
    Capture capture(options_.source);
    if (!capture.video.isOpened()) {
        if (is_stopping())
            return false;
        say("cannot open " + options_.source);
        return true;
    }
    if (!capture.live)
        return read_file(std::move(capture));
    read_live(std::move(capture));
    return false;
}

void Reader::run()
{
    bool failed = true;
    try {
        failed = read();
    } catch (const std::exception &error) {
        say(formatted("reading fails: %s", error.what()));
    }
    const ScopedLock lock(mutex_);
    state_.ended = true;
    state_.failed = failed;
    changed_.notify_all();
}

} // namespace va::video
