#pragma once

#include <cstdint>

// Sizes and places in the picture that the camera sees.

struct Size {
    std::int32_t width; // pixels
    std::int32_t height;
};

inline bool is_wide(Size frame)
{
    return 100 * frame.width / frame.height == 177; // 16:9, in hundredths
}

struct Point {
    std::int32_t x; // pixels
    std::int32_t y;
};
