#include "video/analysis.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace
{

constexpr int widest = 640;      // pixels of the picture looked at, and highest
constexpr int face_widest = 400; // the same, to look for faces
constexpr int half = 2;

cv::Size scaled_size(cv::Size video)
{
    const double factor =
        std::min(1., static_cast<double>(widest) / std::max(video.width, video.height));
    return {std::max(cvRound(video.width * factor), 1),
            std::max(cvRound(video.height * factor), 1)};
}

// Whole factors are the cheap ones for the mean over an area.
int interpolation(cv::Size from, cv::Size to)
{
    const bool whole = from.width % to.width == 0 && from.height % to.height == 0;
    return whole || from.width > 2 * to.width ? cv::INTER_AREA : cv::INTER_LINEAR;
}

Box whole(const cv::Mat &picture)
{
    return {0, 0, static_cast<float>(picture.cols), static_cast<float>(picture.rows)};
}

} // namespace

void Analysis::begin_anew()
{
    tamper_.learn_anew();
    forget();
}

void Analysis::forget()
{
    sight_.learn_anew();
    standing_.learn_anew();
    light_.learn_anew();
    tracker_.forget();
    standing_boxes_.clear();
    if (faces_)
        faces_->forget();
    tampered_ = stood_ = faced_ = {};
    jump_ = true;
}

bool Analysis::is_due(std::optional<VideoTime> &last, VideoTime interval, VideoTime time)
{
    if (last && time - *last < interval)
        return false;
    last = time;
    return true;
}

void Analysis::scale(const cv::Mat &frame)
{
    const cv::Size size = scaled_size(frame.size());
    if (!picture_.empty() && picture_.size() != size)
        begin_anew();
    cv::resize(frame, picture_, size, 0, 0, interpolation(frame.size(), size));
    cv::Mat grey;
    cv::cvtColor(picture_, grey, cv::COLOR_BGR2GRAY);
    cv::resize(grey, grey_, grey.size() / half, 0, 0, cv::INTER_AREA);
    cv::resize(grey_, thumb_, {Light::width, Light::height}, 0, 0, cv::INTER_AREA);
}

void Analysis::even_out_light(VideoTime time)
{
    const double factor = light_.factor(thumb_, sight_.foreground(), time);
    picture_.convertTo(even_, -1, factor);
    grey_.convertTo(even_grey_, -1, factor);
}

void Analysis::look_for_tamper(Observations &observations)
{
    if (!is_due(tampered_, TamperWatch::interval, observations.time))
        return;
    const bool rested = tamper_.is_resting();
    if (const auto cause = tamper_.look(thumb_, observations.time))
        observations.tamper = static_cast<int>(*cause);
    if (!rested && tamper_.is_resting())
        forget();
    else if (rested && !tamper_.is_resting())
        standing_.learn_anew();
}

void Analysis::look_for_objects(Observations &observations)
{
    std::vector<Box> moving = sight_.look(even_, observations.time);
    if (tamper_.is_doubtful())
        moving.clear();
    figures_.lap(Step::moving);
    if (is_due(stood_, StandingWatch::interval, observations.time)) {
        standing_boxes_ = standing_.look(even_grey_, observations.time);
        for (StandingBox &standing : standing_boxes_)
            standing.box = standing.box.scaled(half);
    }
    figures_.lap(Step::standing);
    if (!tamper_.is_resting())
        observations.objects =
            framed(tracker_.look(moving, standing_boxes_, whole(picture_), observations.time));
    figures_.lap(Step::tracks);
}

void Analysis::look_for_faces(Observations &observations)
{
    if (!faces_ || tamper_.is_resting())
        return;
    constexpr double factor = static_cast<double>(face_widest) / widest;
    if (is_due(faced_, FaceThread::interval, observations.time)) {
        cv::Mat small;
        cv::Mat grey; // a new one each time: the thread keeps it
        cv::resize(picture_, small, {}, factor, factor, cv::INTER_AREA);
        cv::cvtColor(small, grey, cv::COLOR_BGR2GRAY);
        faces_->offer(grey, observations.time, wait_for_faces_);
    }
    std::vector<Tracked> faces = faces_->faces();
    for (Tracked &face : faces)
        face.box = face.box.scaled(static_cast<float>(1 / factor));
    observations.faces = framed(std::move(faces));
    figures_.lap(Step::faces);
}

std::vector<Tracked> Analysis::framed(std::vector<Tracked> tracked) const
{
    const Framing framing(frame_, {picture_.cols, picture_.rows});
    for (Tracked &item : tracked)
        item.box = framing.framed(item.box);
    return tracked;
}

Observations Analysis::look(const cv::Mat &frame, VideoTime time)
{
    Observations observations{};
    observations.time = time;
    scale(frame);
    even_out_light(time);
    figures_.lap(Step::scale);
    look_for_tamper(observations);
    figures_.lap(Step::tamper);
    look_for_objects(observations);
    look_for_faces(observations);
    observations.jump = std::exchange(jump_, false);
    return observations;
}
