#pragma once

#include "util/guarded.h"
#include "video/capture.h"
#include "video/clocks.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <thread>

// Reads a source in a thread of its own, where a read may take as long as it likes.

struct ReaderOptions {
    std::string source;
    bool loop;   // a file begins again at its end
    bool fast;   // a file is read as fast as its frames are taken, each of them
    double rate; // frames a second to look at, at most
};

struct Frame {
    cv::Mat picture;
    VideoTime time;         // grows, over all rounds and connections
    Clock::time_point come; // when it was there
    bool anew;              // it does not continue the one before
};

class Reader
{
public:
    explicit Reader(ReaderOptions options);
    // Waits for the read that goes on just now.
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // The next frame to look at; unless `fast`, the newest one. Nothing when none came within
    // `limit`, or none will.
    std::optional<Frame> take(std::chrono::milliseconds limit);

    struct State {
        int read;  // frames so far, of this round
        int total; // in the file, 0: not known
        int all;   // frames so far
        bool ended;
        bool failed;
    };
    State state();

    // Asks it to end; does not wait.
    void stop();

private:
    void run();
    void read_file(Capture capture);
    void read_live(Capture first);
    int read_frames(Capture &capture);
    bool is_due(VideoTime time);
    bool put(Frame frame, bool kept);
    bool rest_until(Clock::time_point time);
    void end(bool failed);
    bool is_stopping();

    const ReaderOptions options_;
    const Clock::time_point start_ = Clock::now();
    VideoTime last_ = 0; // of the frames read
    double due_ = 0;     // when the next look is
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Frame> frame_ VA_GUARDED_BY(mutex_);
    State state_ VA_GUARDED_BY(mutex_){};
    bool stops_ VA_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};
