#pragma once

#include "video/faces.h"
#include "video/figures.h"
#include "video/light.h"
#include "video/observations.h"
#include "video/sight.h"
#include "video/standing.h"
#include "video/tamper.h"

#include <opencv2/core.hpp>
#include <optional>

// What is seen in the frames of one video after the other. One thread at a time.
class Analysis
{
public:
    // `faces`: who looks for them, if anybody; outlives this. `wait_for_faces`: each face look that
    // falls due is made, however long that takes.
    Analysis(FrameSize frame, FaceThread *faces, bool wait_for_faces, Figures &figures)
        : frame_(frame), faces_(faces), wait_for_faces_(wait_for_faces), figures_(figures)
    {
    }

    // Looks at a frame, of any size; `time` grows from look to look.
    Observations look(const cv::Mat &frame, VideoTime time);

    // What was looked at.
    const cv::Mat &picture() const { return picture_; }

    // What follows is another video, or another part of it.
    void begin_anew();

private:
    void scale(const cv::Mat &frame);
    void even_out_light(VideoTime time);
    void look_for_tamper(Observations &observations);
    void look_for_objects(Observations &observations);
    void look_for_faces(Observations &observations);
    void forget();
    static bool is_due(std::optional<VideoTime> &last, VideoTime interval, VideoTime time);
    std::vector<Tracked> framed(std::vector<Tracked> tracked) const;

    FrameSize frame_;
    FaceThread *faces_;
    bool wait_for_faces_;
    Figures &figures_;

    TamperWatch tamper_;
    Light light_;
    Sight sight_;
    StandingWatch standing_;
    Tracker tracker_{FOLLOW_OBJECTS};

    cv::Mat picture_; // the frame, scaled
    cv::Mat grey_;    // of half its size
    cv::Mat thumb_;   // grey
    cv::Mat even_;    // the picture, as bright as ever
    cv::Mat even_grey_;
    std::vector<StandingBox> standing_boxes_;
    std::optional<VideoTime> tampered_;
    std::optional<VideoTime> stood_;
    std::optional<VideoTime> faced_;
    bool jump_ = true;
};
