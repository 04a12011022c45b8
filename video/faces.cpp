#include "video/faces.h"

#include "tools/common/printing.h"
#include "util/text.h"

#include <opencv2/imgproc.hpp>
#include <vector>

namespace va::video
{

namespace
{

constexpr double scale_factor = 1.2;
constexpr int least_neighbours = 3; // detections that agree
constexpr int least_side = 25;      // pixels

std::vector<Box> faces_in(cv::CascadeClassifier &classifier, const cv::Mat &grey)
{
    std::vector<cv::Rect> found;
    classifier.detectMultiScale(grey, found, scale_factor, least_neighbours, 0,
                                {least_side, least_side});
    std::vector<Box> boxes;
    boxes.reserve(found.size());
    for (const cv::Rect2f rect : found)
        boxes.push_back({rect.x, rect.y, rect.width, rect.height});
    return boxes;
}

} // namespace

FaceDetector::FaceDetector(const cv::CascadeClassifier &cascade)
    : classifier_(cascade), thread_([this] { run(); })
{
}

FaceDetector::~FaceDetector()
{
    {
        const ScopedLock lock(mutex_);
        ends_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void FaceDetector::offer(const cv::Mat &grey, VideoTime time, bool wait)
{
    UniqueLock lock(mutex_);
    if (wait)
        changed_.wait(lock, [this]() VA_REQUIRES(mutex_) { return !task_ || ends_; });
    if (task_ || ends_)
        return;
    task_ = Task{grey, time, epoch_};
    changed_.notify_all();
}

std::vector<TrackedObject> FaceDetector::faces()
{
    const ScopedLock lock(mutex_);
    return faces_;
}

void FaceDetector::reset()
{
    const ScopedLock lock(mutex_);
    ++epoch_;
    tracker_.reset();
    faces_.clear();
}

void FaceDetector::detect_until_end()
{
    UniqueLock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this]() VA_REQUIRES(mutex_) { return task_ || ends_; });
        if (ends_)
            return;
        const Task task = *task_;
        lock.unlock();
        const Box extent = FrameSize{task.picture.cols, task.picture.rows}.extent();
        const std::vector<Box> boxes = faces_in(classifier_, task.picture);
        lock.lock();
        if (task.epoch == epoch_)
            faces_ = tracker_.update(boxes, {}, extent, task.time);
        task_.reset();
        changed_.notify_all();
    }
}

void FaceDetector::run()
{
    try {
        detect_until_end();
    } catch (const std::exception &error) {
        say(formatted("face detection fails: %s", error.what()));
        const ScopedLock lock(mutex_);
        ends_ = true;
        faces_.clear();
        changed_.notify_all();
    }
}

} // namespace va::video
