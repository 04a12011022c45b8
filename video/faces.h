#pragma once

#include "util/guarded.h"
#include "video/tracker.h"

#include <condition_variable>
#include <map>
#include <opencv2/objdetect.hpp>
#include <optional>
#include <stop_token>
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
        bool dropped = false;
    };

    // What may be a face.
    struct Candidate {
        Box first; // where it was first
        bool is_face;
    };

    void drop_doubtful(std::span<const Box> sure) VA_REQUIRES(mutex_);
    void run(const std::stop_token &stop);
    void detect_until_end(const std::stop_token &stop);

    cv::CascadeClassifier classifier_; // of the thread
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::optional<Task> task_ VA_GUARDED_BY(mutex_); // until it is done
    Tracker tracker_ VA_GUARDED_BY(mutex_){TRACK_FACES};
    std::vector<TrackedObject> faces_ VA_GUARDED_BY(mutex_);
    std::map<std::uint32_t, Candidate> candidates_ VA_GUARDED_BY(mutex_); // by number
    std::jthread thread_; // requested to stop when it has failed, too
};

} // namespace va::video
