#include "video/reader.h"

#include "tools/common/printing.h"
#include "util/fd.h"
#include "util/text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <opencv2/core/utils/logger.hpp>
#include <stdexcept>

extern "C" {
#include <libavutil/log.h>
}

namespace va::video
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds reopen_interval{1000}, progress_interval{10'000};
constexpr double complete = 0.95; // of the frames that a file states, which may be an estimate

constexpr int open_timeout_ms = 10'000, read_timeout_ms = 5'000; // of a URL

constexpr double default_rate = 25; // of a video that states none
constexpr double highest_rate = 240;

bool is_url(const std::string &source)
{
    return source.find("://") != std::string::npos;
}

// Also one that is not there yet.
bool is_device(const std::string &source)
{
    return source.starts_with("/dev/") &&
           (std::filesystem::is_character_file(source) || !std::filesystem::exists(source));
}

std::mutex log_mutex;
std::string decoder_error VA_GUARDED_BY(log_mutex); // the last one

// Called by any thread of a decoder.
[[gnu::format(printf, 3, 0)]] void log_decoder(void * /*decoder*/, int level, const char *format,
                                               std::va_list arguments)
{
    // The status of a web server is a mere warning.
    if (level > AV_LOG_ERROR && !std::string_view(format).starts_with("HTTP error"))
        return;
    const ScopedLock lock(log_mutex);
    decoder_error = formatted_list(format, arguments);
    std::erase(decoder_error, '\n');
}

std::string take_decoder_error()
{
    const ScopedLock lock(log_mutex);
    return std::exchange(decoder_error, "");
}

// Why the system does not let anybody read it; empty when it does.
std::string refusal_of(const std::string &path)
{
    const Fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    char byte = 0;
    if (!fd || (!is_device(path) && read(fd.get(), &byte, 1) < 0 && errno != EAGAIN))
        return error_text(errno);
    return "";
}

// Why nothing can be read from the source, as was tried since `begin`.
std::string failure_of(const std::string &source, Clock::time_point begin)
{
    std::string reason = take_decoder_error();
    if (is_url(source) && Clock::now() - begin >= milliseconds(open_timeout_ms))
        reason = formatted("no answer within %d s", open_timeout_ms / 1000);
    else if (reason.empty() && !is_url(source))
        reason = refusal_of(source);
    if (reason.empty())
        reason = is_device(source) ? "it is no capture device" : "no video can be read from it";
    return "cannot open " + source + ": " + reason;
}

} // namespace

bool is_live(const std::string &source)
{
    return is_device(source) || is_url(source);
}

Reader::Reader(ReaderOptions options)
    : options_(std::move(options)), thread_([this](std::stop_token stop) { run(std::move(stop)); })
{
}

bool Reader::stop(milliseconds timeout)
{
    thread_.request_stop();
    UniqueLock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this]() VA_REQUIRES(mutex_) { return ended_; });
}

bool Reader::has_ended()
{
    const ScopedLock lock(mutex_);
    if (fault_)
        std::rethrow_exception(fault_);
    return ended_;
}

std::optional<Frame> Reader::take(milliseconds timeout)
{
    UniqueLock lock(mutex_);
    changed_.wait_for(lock, timeout, [this]() VA_REQUIRES(mutex_) { return frame_ || ended_; });
    changed_.notify_all();
    return std::exchange(frame_, std::nullopt);
}

// A frame that nobody has taken is replaced by a newer one, unless `fast`; `wait`: until this one
// is taken.
void Reader::put(Frame frame, bool wait)
{
    UniqueLock lock(mutex_);
    const auto is_taken = [this]() VA_REQUIRES(mutex_) { return !frame_; };
    if (options_.fast)
        changed_.wait(lock, stop_, is_taken);
    frame.restarts |= frame_ && frame_->restarts;
    frame_ = std::move(frame);
    changed_.notify_all();
    if (wait)
        changed_.wait(lock, stop_, is_taken);
}

// Or until stopped.
void Reader::wait_until(Clock::time_point time)
{
    UniqueLock lock(mutex_);
    changed_.wait_until(lock, stop_, time, [] { return false; });
}

// Of frames at uneven intervals, those that are a little early count too.
bool Reader::is_due(VideoTime time)
{
    constexpr double usual_rate = 30;
    const double interval = 1000 / options_.rate.value_or(options_.fast ? HUGE_VAL : usual_rate);
    const auto now = static_cast<double>(time);
    if (now < due_ - interval / 4)
        return false;
    due_ = std::max(due_ + interval, now);
    return true;
}

// Of the frame, from the video's beginning; a raw stream has no times.
VideoTime Reader::position() const
{
    const double stated = video_.get(cv::CAP_PROP_POS_MSEC);
    const double before = video_.get(cv::CAP_PROP_POS_FRAMES) - 1;
    return std::llround(stated > 0 ? stated : before * 1000 / rate_);
}

bool Reader::open()
{
    const std::string &source = options_.source;
    std::vector<int> timeouts;
    if (is_url(source))
        timeouts = {cv::CAP_PROP_OPEN_TIMEOUT_MSEC, open_timeout_ms, cv::CAP_PROP_READ_TIMEOUT_MSEC,
                    read_timeout_ms};
    video_.open(source, is_device(source) ? cv::CAP_V4L2 : cv::CAP_FFMPEG, timeouts);
    total_ = video_.get(cv::CAP_PROP_FRAME_COUNT);
    const double rate = video_.get(cv::CAP_PROP_FPS);
    rate_ = rate >= 1 && rate <= highest_rate ? rate : default_rate;
    // A recording on a web server has a length.
    is_file_ = !is_live(source) || (source.starts_with("http") && total_ > 0);
    return video_.isOpened();
}

void Reader::print_progress(int count)
{
    if (total_ <= 0 || options_.loop || Clock::now() - printed_ < progress_interval)
        return;
    say(formatted("frame %d of %.0f", count, total_));
    printed_ = Clock::now();
}

// Reads to the end, or until the source is lost. Returns the number of frames.
int Reader::read_frames()
{
    const bool paced = is_file_ && !options_.fast;
    const VideoTime offset = last_ + std::llround(1000 / rate_);
    std::optional<Clock::time_point> begin; // when the video's time was 0, once a frame was taken
    int count = 0;
    while (video_.grab() && !stop_.stop_requested()) {
        if (count++ == 0 && !std::exchange(reported_, "").empty())
            say(options_.source + " is read");
        print_progress(count);
        const VideoTime clock = (Clock::now() - start_) / milliseconds(1);
        last_ = std::max(last_ + 1, is_file_ ? offset + position() : clock);
        if (!is_due(last_))
            continue;
        if (paced && begin)
            wait_until(*begin + milliseconds(last_));
        Frame frame{{}, last_, Clock::now(), !begin};
        if (!video_.retrieve(frame.image))
            continue;
        put(std::move(frame), paced && !begin);
        if (!begin)
            begin = Clock::now() - milliseconds(last_);
    }
    return count;
}

// Reads until all is read, or stopped. Throws std::runtime_error when a file is of no use.
void Reader::read()
{
    const std::string &source = options_.source;
    for (bool first = true; !stop_.stop_requested(); first = false) {
        const Clock::time_point begin = Clock::now();
        take_decoder_error();
        const int count = open() ? read_frames() : 0;
        video_.release();
        if (stop_.stop_requested())
            return;
        const std::string fault = count > 0 ? source + " is lost" : failure_of(source, begin);
        if (!is_file_) {
            if (std::exchange(reported_, fault) != fault)
                say(fault + "; retried each second");
            wait_until(Clock::now() + reopen_interval);
            continue;
        }
        if (count == 0)
            throw std::runtime_error(fault);
        if (first && count < total_ * complete)
            say(formatted("%s ends after %d of %.0f frames", source.c_str(), count, total_));
        if (!options_.loop)
            return;
    }
}

void Reader::run(std::stop_token stop)
{
    stop_ = std::move(stop);
    // What the libraries print is not for the terminal, unless the user's environment asks for it.
    // Of that, OpenCV itself heeds OPENCV_FFMPEG_DEBUG and OPENCV_FFMPEG_LOGLEVEL: when it opens a
    // video it replaces this callback.
    if (!std::getenv("OPENCV_LOG_LEVEL"))
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    av_log_set_callback(log_decoder);
    try {
        read();
    } catch (...) {
        const ScopedLock lock(mutex_);
        fault_ = std::current_exception();
    }
    const ScopedLock lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

} // namespace va::video
