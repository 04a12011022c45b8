#pragma once

#include "tools/common/stop.h"
#include "util/guarded.h"
#include "video/box.h"

#include <condition_variable>
#include <exception>
#include <opencv2/videoio.hpp>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace va::video
{

// Whether a source is live, as far as its name shows: a device or a URL.
bool is_live(const std::string &source);

struct ReaderOptions {
    std::string source;         // a file, a device or a URL
    bool loop = false;          // a file begins again at its end
    bool fast = false;          // a file is read as fast as its frames are taken, each of them
    std::optional<double> rate; // frames a second, at most; else 30, or all of them if `fast`
};

struct Frame {
    cv::Mat image;
    VideoTime time;            // grows, over all rounds and connections
    Clock::time_point arrival; // when it was there
    bool restarts;             // it does not continue the frame before
};

// Reads a source in a thread of its own, where a read may take as long as it likes, and prints what
// becomes of it. A live source that cannot be opened, or is lost, is opened again each second.
// The destructor waits for the read in progress.
class Reader
{
public:
    explicit Reader(ReaderOptions options);

    // The next frame to analyse; unless `fast`, the newest one. Nothing when none arrived within
    // `timeout`, or none will.
    std::optional<Frame> take(std::chrono::milliseconds timeout);

    // Whether take() gives no frame any more but one that waits already. Throws what made a file
    // end early.
    bool has_ended();

    // Requests the end, and waits for it at most so long. Returns whether it has ended.
    bool stop(std::chrono::milliseconds timeout);

private:
    void run(std::stop_token stop);
    void read();
    bool open();
    int read_frames();
    void print_progress(int count);
    VideoTime position() const;
    bool is_due(VideoTime time);
    void put(Frame frame, bool wait);
    void wait_until(Clock::time_point time);

    const ReaderOptions options_;
    const Clock::time_point start_ = Clock::now();
    std::stop_token stop_; // of the thread, as what follows
    cv::VideoCapture video_;
    bool is_file_ = false;               // has an end
    double total_ = 0;                   // frames, as the source states; else 0 or less
    double rate_ = 0;                    // frames a second
    VideoTime last_ = 0;                 // of the frames read
    double due_ = 0;                     // when the next frame is wanted
    std::string reported_;               // what is wrong with the source
    Clock::time_point printed_ = start_; // how far it is
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::optional<Frame> frame_ VA_GUARDED_BY(mutex_);
    bool ended_ VA_GUARDED_BY(mutex_) = false;
    std::exception_ptr fault_ VA_GUARDED_BY(mutex_);
    std::jthread thread_;
};

} // namespace va::video
