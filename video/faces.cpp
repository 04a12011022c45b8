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
constexpr int least_side = 25; // pixels

// Detections that agree: what looks like a face to fewer, such as a tower, must move to be one.
constexpr int least_neighbours = 3;
constexpr int sure_neighbours = 5;
constexpr float moved_share = 0.5F; // of its width

struct Detections {
    std::vector<Box> all;
    std::vector<Box> sure;
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

// Keeps what was surely a face once, or has moved.
void FaceDetector::drop_doubtful(std::span<const Box> sure)
{
    std::map<std::uint32_t, Candidate> known;
    for (const TrackedObject &face : faces_) {
        const auto before = candidates_.find(face.id);
        Candidate candidate =
            before == candidates_.end() ? Candidate{face.box, false} : before->second;
        candidate.is_face |=
            length(face.box.centre() - candidate.first.centre()) > moved_share * face.box.width ||
            std::ranges::any_of(
                sure, [&](const Box &box) { return intersection_area(box, face.box) > 0; });
        known[face.id] = candidate;
    }
    candidates_ = std::move(known);
    std::erase_if(faces_, [&](const TrackedObject &face) { return !candidates_[face.id].is_face; });
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
        const auto [boxes, sure] = faces_in(classifier_, task.picture);
        lock.lock();
        if (task.epoch == epoch_) {
            faces_ = tracker_.update(boxes, {}, extent, task.time);
            drop_doubtful(sure);
        }
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
