#include "video/faces.h"

#include "video/clocks.h"
#include "video/say.h"

#include <opencv2/imgproc.hpp>
#include <vector>

namespace
{

constexpr double step_of_size = 1.2;
constexpr int neighbours = 3;  // that agree
constexpr int least_side = 25; // pixels

std::vector<Box> faces_in(cv::CascadeClassifier &classifier, const cv::Mat &grey)
{
    std::vector<cv::Rect> found;
    classifier.detectMultiScale(grey, found, step_of_size, neighbours, 0, {least_side, least_side});
    std::vector<Box> boxes;
    boxes.reserve(found.size());
    for (const cv::Rect2f rect : found)
        boxes.push_back({rect.x, rect.y, rect.width, rect.height});
    return boxes;
}

} // namespace

FaceThread::FaceThread(const cv::CascadeClassifier &cascade)
    : classifier_(cascade), thread_([this] { run(); })
{
}

FaceThread::~FaceThread()
{
    {
        const va::ScopedLock lock(mutex_);
        ends_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

bool FaceThread::offer(const cv::Mat &grey, VideoTime time, bool wait)
{
    va::UniqueLock lock(mutex_);
    if (wait)
        changed_.wait(lock, [this]() VA_REQUIRES(mutex_) { return !task_ || ends_; });
    if (task_ || ends_)
        return false;
    task_ = Task{grey, time, epoch_};
    changed_.notify_all();
    return true;
}

std::vector<Tracked> FaceThread::faces()
{
    const va::ScopedLock lock(mutex_);
    return faces_;
}

FaceThread::Figures FaceThread::figures()
{
    const va::ScopedLock lock(mutex_);
    return figures_;
}

void FaceThread::forget()
{
    const va::ScopedLock lock(mutex_);
    ++epoch_;
    tracker_.forget();
    faces_.clear();
}

void FaceThread::look_at_tasks()
{
    va::UniqueLock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this]() VA_REQUIRES(mutex_) { return task_ || ends_; });
        if (ends_)
            return;
        const Task task = *task_;
        lock.unlock();
        const Box picture = {0, 0, static_cast<float>(task.picture.cols),
                             static_cast<float>(task.picture.rows)};
        const std::vector<Box> boxes = faces_in(classifier_, task.picture);
        lock.lock();
        if (task.epoch == epoch_)
            faces_ = tracker_.look(boxes, {}, picture, task.time);
        figures_ = {figures_.looks + 1, thread_time()};
        task_.reset();
        changed_.notify_all();
    }
}

void FaceThread::run()
{
    try {
        look_at_tasks();
    } catch (const std::exception &error) {
        say("no faces any more: %s", error.what());
        const va::ScopedLock lock(mutex_);
        ends_ = true;
        faces_.clear();
        changed_.notify_all();
    }
}
