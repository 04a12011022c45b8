#include "video/analysis.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace va::video
{

namespace
{

constexpr int widest = 640;      // pixels of the picture that is analysed, and highest
constexpr int face_widest = 400; // the same, for faces
constexpr int half = 2;

// A smaller shift of the camera makes no objects.
constexpr float least_shift = 0.5F; // pixels

constexpr double most_light = 2;          // times the usual one
constexpr double light_constant = 30'000; // ms

cv::Size half_of(cv::Size size)
{
    return {std::max(size.width / half, 1), std::max(size.height / half, 1)};
}

cv::Size scaled_size(cv::Size image)
{
    const double factor =
        std::min(1., static_cast<double>(widest) / std::max(image.width, image.height));
    return {std::max(cvRound(image.width * factor), 1),
            std::max(cvRound(image.height * factor), 1)};
}

// The mean over an area is cheap for halves, and worth its time only where most pixels would be
// left out.
int interpolation(cv::Size from, cv::Size to)
{
    return from == to * half || from.width > 3 * to.width ? cv::INTER_AREA : cv::INTER_LINEAR;
}

bool is_due(std::optional<VideoTime> &last, VideoTime interval, VideoTime time)
{
    if (last && time - *last < interval)
        return false;
    last = time;
    return true;
}

} // namespace

void Analysis::reset()
{
    tamper_.reset();
    reset_scene();
}

// All but the view that the camera should have.
void Analysis::reset_scene()
{
    motion_.reset();
    usual_.release();
    still_.reset();
    tracker_.reset();
    stationary_.clear();
    if (faces_)
        faces_->reset();
    tamper_checked_ = still_updated_ = faces_offered_ = {};
    jump_ = true;
}

void Analysis::scale(const cv::Mat &image)
{
    const cv::Size size = scaled_size(image.size());
    if (!picture_.empty() && picture_.size() != size)
        reset();
    cv::resize(image, picture_, size, 0, 0, interpolation(image.size(), size));
    cv::Mat grey;
    cv::cvtColor(picture_, grey, cv::COLOR_BGR2GRAY);
    cv::resize(grey, grey, {TamperDetector::width, TamperDetector::height}, 0, 0, cv::INTER_AREA);
    grey.convertTo(thumb_, CV_32F);
    cv::GaussianBlur(thumb_, thumb_, {3, 3}, 0);
}

// What makes the picture as bright as it was in about the last half minute, whoever stands before
// it.
double Analysis::light_factor(VideoTime time)
{
    if (usual_.empty())
        thumb_.copyTo(usual_);
    const double now = cv::mean(thumb_, lit_)[0];
    const double factor = now > 0 ? cv::mean(usual_, lit_)[0] / now : 1;
    cv::accumulateWeighted(thumb_, usual_,
                           1 - std::exp(static_cast<double>(light_time_ - time) / light_constant),
                           lit_);
    light_time_ = time;
    return std::clamp(factor, 1 / most_light, most_light);
}

// Undoes the trembling of the camera, and changes of the light.
void Analysis::steady(VideoTime time)
{
    const cv::Mat &view = tamper_.view();
    const Point shift = shift_between(view, thumb_);
    const Point scaled = {shift.x * static_cast<float>(picture_.cols) / TamperDetector::width,
                          shift.y * static_cast<float>(picture_.rows) / TamperDetector::height};
    const bool trembles = length(scaled) > least_shift;
    if (trembles)
        shift_back(thumb_.clone(), shift, thumb_);
    lit_ = lit_otherwise(view, thumb_);
    const double factor = light_factor(time);
    cv::Mat even;
    picture_.convertTo(trembles ? even : steady_, -1, factor);
    if (trembles)
        shift_back(even, scaled, steady_);
}

std::optional<int> Analysis::check_tamper(VideoTime time)
{
    if (!is_due(tamper_checked_, TamperDetector::interval, time))
        return {};
    const bool was_recovering = tamper_.is_recovering();
    const std::optional<TamperDetector::Cause> cause = tamper_.check(thumb_, time);
    motion_.ignore_shadows(!tamper_.is_plain());
    if (!was_recovering && tamper_.is_recovering())
        reset_scene();
    else if (was_recovering && !tamper_.is_recovering())
        still_.reset();
    return cause ? std::optional(static_cast<int>(*cause)) : std::nullopt;
}

std::vector<TrackedObject> Analysis::track_objects(VideoTime time)
{
    std::vector<Box> moving = motion_.detect(steady_, lit_, time);
    if (tamper_.is_doubtful())
        moving.clear();
    if (is_due(still_updated_, StillObjects::interval, time)) {
        cv::Mat grey;
        cv::cvtColor(steady_, grey, cv::COLOR_BGR2GRAY);
        cv::resize(grey, grey, half_of(grey.size()), 0, 0, cv::INTER_AREA);
        stationary_ = still_.update(grey, time);
        for (StationaryBox &stationary : stationary_)
            stationary.box = stationary.box.scaled(half);
    }
    if (tamper_.is_recovering())
        return {};
    const Box extent = FrameSize{picture_.cols, picture_.rows}.extent();
    return in_reported_frame(tracker_.update(moving, stationary_, extent, time));
}

std::vector<TrackedObject> Analysis::detect_faces(VideoTime time)
{
    if (!faces_ || tamper_.is_recovering())
        return {};
    constexpr double factor = static_cast<double>(face_widest) / widest;
    if (is_due(faces_offered_, FaceDetector::interval, time)) {
        cv::Mat small;
        cv::Mat grey; // a new one each time: the thread keeps it
        cv::resize(picture_, small, {}, factor, factor, cv::INTER_AREA);
        cv::cvtColor(small, grey, cv::COLOR_BGR2GRAY);
        faces_->offer(grey, time, wait_for_faces_);
    }
    std::vector<TrackedObject> faces = faces_->faces();
    for (TrackedObject &face : faces)
        face.box = face.box.scaled(static_cast<float>(1 / factor));
    return in_reported_frame(std::move(faces));
}

std::vector<TrackedObject> Analysis::in_reported_frame(std::vector<TrackedObject> objects) const
{
    for (TrackedObject &object : objects)
        object.box = in_frame(object.box, frame_, {picture_.cols, picture_.rows});
    return objects;
}

Observations Analysis::analyse(const cv::Mat &image, VideoTime time)
{
    Observations observations{};
    observations.time = time;
    scale(image);
    observations.tamper = check_tamper(time);
    steady(time);
    observations.objects = track_objects(time);
    observations.faces = detect_faces(time);
    observations.jump = std::exchange(jump_, false);
    return observations;
}

} // namespace va::video
