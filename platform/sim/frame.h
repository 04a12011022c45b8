#pragma once

#include "platform/ne3_val.h"

#include <cstdint>

// Sizes and places in the picture that the camera sees.

struct Size {
    std::int32_t width; // pixels
    std::int32_t height;
};

inline bool is_wide(Size frame)
{
    return ne3_val_is_wide(frame.width, frame.height);
}

struct Point {
    std::int32_t x; // pixels
    std::int32_t y;
};
