#pragma once

#include "util/guarded.h"
#include "video/tracker.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <opencv2/core.hpp>
#include <opencv2/objdetect.hpp>
#include <optional>
#include <span>
#include <thread>

namespace va::video
{

// Detects faces in a thread of its own, so that nobody waits for it.
class FaceDetector
{
public:
    // How often a detection is worth its time.
    static constexpr VideoTime interval = 200;

    // `cascade` is loaded.
    explicit FaceDetector(const cv::CascadeClassifier &cascade);
    ~FaceDetector();
    FaceDetector(const FaceDetector &) = delete;
    FaceDetector &operator=(const FaceDetector &) = delete;

    // Hands over a grey picture, which must not change any more. While it is busy with the last one
    // this waits, if `wait`, or ignores the new one.
    void offer(const cv::Mat &grey, VideoTime time, bool wait);

    // What was found in the last picture that is done; boxes are pixels of it.
    std::vector<TrackedObject> faces();

    // Drops all faces, and the picture in work.
    void reset();

private:
    struct Task {
        cv::Mat picture;
        VideoTime time;
        int epoch;
    };

    // What may be a face.
    struct Candidate {
        Box first; // where it was first
        bool is_face;
    };

    void drop_doubtful(std::span<const Box> sure) VA_REQUIRES(mutex_);
    void run();
    void detect_until_end();

    cv::CascadeClassifier classifier_; // of the thread
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Task> task_ VA_GUARDED_BY(mutex_); // until it is done
    Tracker tracker_ VA_GUARDED_BY(mutex_){TRACK_FACES};
    std::vector<TrackedObject> faces_ VA_GUARDED_BY(mutex_);
    std::map<std::uint32_t, Candidate> candidates_ VA_GUARDED_BY(mutex_); // by number
    int epoch_ VA_GUARDED_BY(mutex_) = 0;                                 // counts resets
    bool ends_ VA_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

} // namespace va::video
