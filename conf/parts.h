#pragma once

#include <cstdint>

// What configuration records consist of besides numbers.

inline constexpr int CONF_POLYGON_POINTS = 8;

struct ConfPoint {
    std::int32_t x; // ten-thousandths of the frame's width
    std::int32_t y; // ten-thousandths of the frame's height
};

struct ConfSize {
    std::int32_t width; // pixels
    std::int32_t height;
};
