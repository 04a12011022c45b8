#pragma once

#include "util/guarded.h"
#include "video/tracker.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <opencv2/core.hpp>
#include <opencv2/objdetect.hpp>
#include <optional>
#include <thread>

// Looks for faces in a thread of its own, so that nobody waits for it.
class FaceThread
{
public:
    // How often a look is worth its time.
    static constexpr VideoTime interval = 200;

    // `cascade` is loaded.
    explicit FaceThread(const cv::CascadeClassifier &cascade);
    ~FaceThread();
    FaceThread(const FaceThread &) = delete;
    FaceThread &operator=(const FaceThread &) = delete;

    // Hands over a grey picture, which must not change any more, unless the last one is still being
    // looked at; false then. `wait`: for that to end.
    bool offer(const cv::Mat &grey, VideoTime time, bool wait);

    // What was found in the last picture looked at; places are pixels of it.
    std::vector<Tracked> faces();

    // All faces so far are gone, and what is looked at just now does not count.
    void forget();

    struct Figures {
        int looks;
        std::chrono::nanoseconds spent; // of the processor
    };
    Figures figures();

private:
    struct Task {
        cv::Mat picture;
        VideoTime time;
        int epoch;
    };

    void run();
    void look_at_tasks();

    cv::CascadeClassifier classifier_; // of the thread
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Task> task_ VA_GUARDED_BY(mutex_); // until it is done
    Tracker tracker_ VA_GUARDED_BY(mutex_){FOLLOW_FACES};
    std::vector<Tracked> faces_ VA_GUARDED_BY(mutex_);
    Figures figures_ VA_GUARDED_BY(mutex_){};
    int epoch_ VA_GUARDED_BY(mutex_) = 0; // counts what was forgotten
    bool ends_ VA_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};
