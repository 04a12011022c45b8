#pragma once

#include "tools/common/stop.h"
#include "util/guarded.h"
#include "video/box.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <thread>

namespace va::video
{

// Whether a source is live, as far as its name shows.
bool is_live(const std::string &source);

struct ReaderOptions {
    std::string source; // a file, a device or a URL
    bool loop = false;  // a file begins again at its end
    bool fast = false;  // a file is read as fast as its frames are taken, each of them
    double rate = 30;   // frames a second, at most
};

struct Frame {
    cv::Mat image;
    VideoTime time;            // grows, over all rounds and connections
    Clock::time_point arrival; // when it was there
    bool restarts;             // it does not continue the frame before
};

// Reads a source in a thread of its own, where a read may take as long as it likes.
class Reader
{
public:
    explicit Reader(ReaderOptions options);
    // Waits for the read in progress.
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // The next frame to analyse; unless `fast`, the newest one. Nothing when none arrived within
    // `timeout`, or none will.
    std::optional<Frame> take(std::chrono::milliseconds timeout);

    struct State {
        int read;  // frames so far, of this round
        int total; // in the file; 0: unknown
        bool ended;
        bool failed;
    };
    State state();

    // Requests the end, and waits for it at most so long. Returns whether it has ended.
    bool stop(std::chrono::milliseconds timeout);

private:
    struct Capture;

    void run();
    bool read();
    bool read_file(Capture capture);
    void read_live(Capture capture);
    int read_frames(Capture &capture);
    bool is_due(VideoTime time);
    bool put(Frame frame, bool wait);
    bool wait_until(Clock::time_point time);
    bool is_stopping();

    const ReaderOptions options_;
    const Clock::time_point start_ = Clock::now();
    VideoTime last_ = 0; // of the frames read
    double due_ = 0;     // when the next frame is wanted
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Frame> frame_ VA_GUARDED_BY(mutex_);
    State state_ VA_GUARDED_BY(mutex_){};
    bool stops_ VA_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

} // namespace va::video
