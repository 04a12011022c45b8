#pragma once

#include "video/faces.h"
#include "video/motion.h"
#include "video/still_objects.h"
#include "video/tamper.h"
#include "video/view.h"

#include <opencv2/core.hpp>
#include <optional>

namespace va::video
{

// What was found in one frame of a video.
struct Observations {
    VideoTime time;
    bool jump;                          // nothing here continues what was reported before
    std::optional<int> tamper;          // its cause
    std::vector<TrackedObject> objects; // in the frame that is reported
    std::vector<TrackedObject> faces;
};

// Finds what the frames of a video show, one after the other. One thread at a time.
class Analysis
{
public:
    // `frame`: its boxes are reported in. `faces`: null for none; outlives this. `wait_for_faces`:
    // each detection of faces that is due is made, however long that takes.
    Analysis(FrameSize frame, FaceDetector *faces, bool wait_for_faces)
        : frame_(frame), faces_(faces), wait_for_faces_(wait_for_faces)
    {
    }

    // Analyses an image of any size; `time` grows from one to the next.
    Observations analyse(const cv::Mat &image, VideoTime time);

    // The last image, as it was analysed.
    const cv::Mat &picture() const { return picture_; }

    // Begins again: what follows is another video, or another part of it.
    void reset();

private:
    void scale(const cv::Mat &image);
    void steady(VideoTime time);
    double light_factor(VideoTime time);
    std::optional<int> check_tamper(VideoTime time);
    std::vector<TrackedObject> track_objects(VideoTime time);
    std::vector<TrackedObject> detect_faces(VideoTime time);
    void reset_scene();
    std::vector<TrackedObject> in_reported_frame(std::vector<TrackedObject> objects) const;

    FrameSize frame_;
    FaceDetector *faces_;
    bool wait_for_faces_;

    TamperDetector tamper_;
    MotionDetector motion_;
    StillObjects still_;
    Tracker tracker_{TRACK_OBJECTS};

    cv::Mat picture_; // the image, scaled
    cv::Mat thumb_;   // grey, small, 32-bit
    cv::Mat usual_;   // the thumb as bright as usual
    cv::Mat lit_;     // where the thumb differs from the view by the light alone: 255
    cv::Mat steady_;  // the picture, where and as bright as it usually is
    VideoTime light_time_ = 0;
    std::vector<StationaryBox> stationary_;
    std::optional<VideoTime> tamper_checked_;
    std::optional<VideoTime> still_updated_;
    std::optional<VideoTime> faces_offered_;
    bool jump_ = true;
};

} // namespace va::video
