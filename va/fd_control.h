#pragma once

#include "conf/conf_fd.h"
#include "platform/ne3_val.h"

#include <cstddef>
#include <cstdint>
#include <span>

// Translation of the face-detection settings into the library's blocks: pure functions.

// A face-detection window in use; what FDWindowConf holds but for its kind.
struct VaFdWindow {
    std::int32_t enabled;
    std::int32_t id; // slot number
    std::int32_t x;  // ten-thousandths of the frame
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;
};

// The library's threshold ratio, 0..64, for a sensitivity cut to 8 bits.
std::uint8_t fd_threshold_ratio(std::uint8_t sensitivity);

// Overwrites the parameters that the settings hold (those other than -1), and settles the size
// check. Without a sensitivity the library's ratio stays.
void fd_apply_settings(const FDCtrlConf &conf, ne3_val_fd_ctrl &ctrl);

// The cells that the enabled watch windows cover, and how many bytes of the mask a frame's grid
// takes.
ne3_val_fd_mask fd_watch_mask(std::span<const VaFdWindow> windows, bool wide);
std::size_t fd_watch_mask_size(bool wide);

struct FdRectangle { // pixels
    std::int32_t x0;
    std::int32_t y0;
    std::int32_t x1;
    std::int32_t y1;
};

// Where a window lies in a width x height frame.
FdRectangle fd_pixels(const VaFdWindow &window, std::int32_t width, std::int32_t height);

// The part of a width x height frame in which detection windows may lie; null when the frame size
// is not known.
const FdRectangle *fd_watch_frame(std::int32_t width, std::int32_t height);
