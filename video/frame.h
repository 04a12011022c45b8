#pragma once

#include "video/box.h"

#include <algorithm>
#include <cstdint>

// The frame that is told of: a video keeps its shape in it, with bars beside it or above and below.

struct FrameSize {
    int width; // pixels, 1..65535
    int height;
};

class Framing
{
public:
    Framing(FrameSize frame, FrameSize video)
        : scale_(std::min(static_cast<float>(frame.width) / static_cast<float>(video.width),
                          static_cast<float>(frame.height) / static_cast<float>(video.height))),
          left_((static_cast<float>(frame.width) - scale_ * static_cast<float>(video.width)) / 2),
          top_((static_cast<float>(frame.height) - scale_ * static_cast<float>(video.height)) / 2)
    {
    }

    // Where a box of the video is in the frame.
    Box framed(const Box &box) const
    {
        return {left_ + scale_ * box.x, top_ + scale_ * box.y, scale_ * box.width,
                scale_ * box.height};
    }

private:
    float scale_;
    float left_;
    float top_;
};
