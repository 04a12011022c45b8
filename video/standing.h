#pragma once

#include "video/tracker.h"

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

// Watches for things that were put down: what differs from a background that forgets slowly, and
// has not changed for some seconds. What was taken away from the background becomes background at
// once. One thread at a time.
class StandingWatch
{
public:
    // How often a look is worth its time.
    static constexpr VideoTime interval = 200;

    // Looks at a grey picture, always of the same size; `time` grows. The boxes are pixels of it.
    // A thing keeps its key and its box until it is gone: until the background is seen again, it
    // was hidden for too long, or it has been there for so long that it is background itself.
    std::vector<StandingBox> look(const cv::Mat &grey, VideoTime time);

    // Begins with the next picture as the background; nothing stands in it.
    void learn_anew();

private:
    struct Thing {
        std::uint32_t key;
        cv::Rect box;
        cv::Mat mask;  // of the box: 255 where the thing is
        cv::Mat image; // of the box
        VideoTime since;
        VideoTime seen;
    };

    void begin(const cv::Mat &grey, VideoTime time);
    void learn(const cv::Mat &grey, const cv::Mat &changed, VideoTime time);
    cv::Mat long_unchanged(const cv::Mat &grey, const cv::Mat &changed, VideoTime time);
    void follow(const cv::Mat &grey, VideoTime time);
    bool is_there(Thing &thing, const cv::Mat &grey, VideoTime time) const;
    void find(const cv::Mat &grey, const cv::Mat &unchanged, VideoTime time);
    void absorb(const cv::Mat &grey, const cv::Rect &box);

    cv::Mat background_;      // 32-bit
    cv::Mat expected_;        // the same in 8 bits
    cv::Mat reference_;       // each pixel as it was when it changed last
    cv::Mat unchanged_;       // for how long
    VideoTime uncounted_ = 0; // of that
    std::vector<Thing> things_;
    VideoTime begin_ = 0;
    VideoTime last_ = 0;
    std::uint32_t last_key_ = 0;
};
