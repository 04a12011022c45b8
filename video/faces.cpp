#include "video/faces.h"

#include "tools/common/printing.h"
#include "util/text.h"

namespace va::video
{

namespace
{

constexpr double scale_factor = 1.2;
constexpr int least_side = 25; // pixels

// Detections that agree: what looks like a face to fewer, such as a tower, must move to be one.
constexpr int least_neighbours = 3, sure_neighbours = 5;
constexpr float moved_share = 0.5F; // of its width

struct Detections {
    std::vector<Box> all, sure;
};

Detections faces_in(cv::CascadeClassifier &classifier, const cv::Mat &grey)
{
    std::vector<cv::Rect> found;
    std::vector<int> neighbours;
    classifier.detectMultiScale(grey, found, neighbours, scale_factor, least_neighbours, 0,
                                {least_side, least_side});
    Detections detections;
    for (std::size_t i = 0; i < found.size(); ++i) {
        const cv::Rect2f rect = found[i];
        detections.all.push_back({rect.x, rect.y, rect.width, rect.height});
        if (neighbours[i] >= sure_neighbours)
            detections.sure.push_back(detections.all.back());
    }
    return detections;
}

} // namespace

FaceDetector::FaceDetector(const cv::CascadeClassifier &cascade)
    : classifier_(cascade), thread_([this](const std::stop_token &stop) { run(stop); })
{
}

void FaceDetector::offer(const cv::Mat &grey, VideoTime time, bool wait)
{
    const std::stop_token stop = thread_.get_stop_token();
    UniqueLock lock(mutex_);
    if (wait)
        changed_.wait(lock, stop, [this]() VA_REQUIRES(mutex_) { return !task_; });
    if (task_ || stop.stop_requested())
        return;
    task_ = Task{grey, time};
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
    if (task_)
        task_->dropped = true;
    tracker_.reset();
    faces_.clear();
}

// Keeps what was surely a face once, or has moved.
void FaceDetector::drop_doubtful(std::span<const Box> sure)
{
    auto before = std::exchange(candidates_, {});
    std::erase_if(faces_, [&](const TrackedObject &face) VA_REQUIRES(mutex_) {
        Candidate &candidate = candidates_[face.id];
        candidate = before.try_emplace(face.id, Candidate{face.box, false}).first->second;
        candidate.is_face |=
            length(face.box.centre() - candidate.first.centre()) > moved_share * face.box.width ||
            std::ranges::any_of(
                sure, [&](const Box &box) { return intersection_area(box, face.box) > 0; });
        return !candidate.is_face;
    });
}

void FaceDetector::detect_until_end(const std::stop_token &stop)
{
    UniqueLock lock(mutex_);
    const auto has_task = [this]() VA_REQUIRES(mutex_) { return task_.has_value(); };
    while (changed_.wait(lock, stop, has_task) && !stop.stop_requested()) {
        const Task task = *task_;
        lock.unlock();
        const Box extent = FrameSize{task.picture.cols, task.picture.rows}.extent();
        const auto [boxes, sure] = faces_in(classifier_, task.picture);
        lock.lock();
        if (!task_->dropped) {
            faces_ = tracker_.update(boxes, {}, extent, task.time);
            drop_doubtful(sure);
        }
        task_.reset();
        changed_.notify_all();
    }
}

void FaceDetector::run(const std::stop_token &stop)
{
    try {
        detect_until_end(stop);
    } catch (const std::exception &error) {
        say(formatted("face detection fails: %s", error.what()));
        const ScopedLock lock(mutex_);
        faces_.clear();
        thread_.request_stop(); // complete by now: it has had a task
    }
}

} // namespace va::video
