#pragma once

#include "platform/ne3_val.h"
#include "va/va.h"

#include <cstddef>
#include <cstdint>
#include <span>

// Translation of the face-detection settings into the library's blocks: pure functions, but for the
// message of va_fd_watchframe_checkRange().

// The library's threshold ratio, 0..64, for a sensitivity cut to 8 bits.
std::uint8_t fd_threshold_ratio(std::uint8_t sensitivity);

// Overwrites the parameters that the settings hold (those other than -1), and settles the size
// check. Without a sensitivity the library's ratio stays.
void fd_apply_settings(const FDCtrlConf &conf, ne3_val_fd_ctrl &ctrl);

// Whether a window of the list is in use.
bool fd_any_enabled(std::span<const VaFdWindow> windows);

// The cells that the enabled watch windows cover, and how many bytes of the mask a frame's grid
// takes.
ne3_val_fd_mask fd_watch_mask(std::span<const VaFdWindow> windows, bool wide);
std::size_t fd_watch_mask_size(bool wide);

// Clamps a rectangle (pixels) to the part of a W x H frame in which detection windows may lie; one
// wholly outside comes out empty or inverted. Returns 0, or -1 after a line on standard output when
// the frame size is not known; the rectangle is then untouched.
int va_fd_watchframe_checkRange(std::int32_t *x0, std::int32_t *y0, std::int32_t *x1,
                                std::int32_t *y1, std::int32_t width, std::int32_t height);

struct FdDetection {
    ne3_val_fd_window_list list; // entries not sent are zero
    std::uint32_t bits;          // bit k: entry k is sent
};

// The enabled detection windows in pixels of a width x height frame, clamped.
FdDetection fd_detection(std::span<const VaFdWindow, CONF_FD_DETECT_WINDOWS> windows,
                         std::int32_t width, std::int32_t height);
