#pragma once

#include "video/tracker.h"

#include <opencv2/core.hpp>

namespace va::video
{

// Finds objects that were left behind: what differs from a background that forgets slowly, and has
// not changed for some seconds. What was removed from the background becomes background at once.
// One thread at a time.
class StillObjects
{
public:
    // How often an update is worth its time.
    static constexpr VideoTime interval = 200;

    // Takes a grey picture, always of the same size; `time` grows. The boxes are pixels of it. An
    // object keeps its key and its box until it is gone: until the background is visible again, it
    // was hidden for too long, or it has been there for so long that it is background itself.
    std::vector<StationaryBox> update(const cv::Mat &picture, VideoTime time);

    // Takes the next picture as the background, without objects.
    void reset();

private:
    struct Object {
        std::uint32_t key;
        cv::Rect box;
        cv::Mat mask, image;      // of the box; the mask is 255 where the object is
        VideoTime found, visible; // when first, when last
    };

    void learn(const cv::Mat &grey, const cv::Mat &changed, VideoTime time);
    cv::Mat long_unchanged(const cv::Mat &grey, const cv::Mat &changed, VideoTime time);
    void drop_gone(const cv::Mat &grey, VideoTime time);
    void find(const cv::Mat &grey, const cv::Mat &unchanged, VideoTime time);
    void absorb(const cv::Mat &grey, const cv::Rect &box);

    cv::Mat background_;      // 32-bit
    cv::Mat expected_;        // the same in 8 bits
    cv::Mat reference_;       // each pixel as it was when it last changed
    cv::Mat unchanged_;       // for how long, in counts
    VideoTime uncounted_ = 0; // of that
    std::vector<Object> objects_;
    VideoTime begin_ = 0, last_ = 0;
    std::uint32_t last_key_ = 0;
};

} // namespace va::video
