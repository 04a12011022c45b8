#include "va/fd_control.h"

#include "conf/conf.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace
{

constexpr int bits_per_byte = 8;
static_assert(CONF_FD_WATCH_WINDOWS + CONF_FD_DETECT_WINDOWS <= CONF_FD_WINDOWS);
constexpr std::int32_t full_scale = 10000; // of window coordinates

struct WatchFrame {
    std::int32_t width;
    std::int32_t height;
    FdRectangle allowed;
};

constexpr WatchFrame watch_frames[] = {
    {2736, 2200, {88, 140, 2648, 2060}}, //
    {2248, 2048, {4, 184, 2244, 1864}},  //
    {2048, 1536, {64, 48, 1984, 1488}},  //
    {1920, 1440, {0, 0, 1920, 1440}},    //
    {1280, 1024, {0, 32, 1280, 992}},    //
    {1280, 960, {0, 0, 1280, 960}},      //
    {800, 600, {0, 0, 800, 600}},        //
    {720, 480, {0, 0, 720, 480}},        //
    {720, 576, {0, 0, 720, 576}},        //
    {1920, 1080, {0, 0, 1920, 1080}},    //
    {1280, 720, {0, 0, 1280, 720}},      //
};

constexpr std::int32_t unset = -1;

template <class Field>
void store_if_set(Field &field, std::int32_t setting)
{
    if (setting != unset)
        field = static_cast<Field>(setting);
}

bool face_sizes_usable(const ne3_val_fd_ctrl &ctrl)
{
    constexpr std::int32_t smallest = 120;
    constexpr std::int32_t largest = 960;
    return int_chk_range(ctrl.minDetectionSize, smallest, largest) &&
           int_chk_range(ctrl.maxDetectionSize, smallest, largest) &&
           ctrl.minDetectionSize <= ctrl.maxDetectionSize;
}

// The cells of a grid `cells` wide that lie left of a coordinate, or that a length covers.
int grid_cells(int cells, std::int32_t ten_thousandths)
{
    return cells * ten_thousandths / full_scale;
}

void mark(const VaFdWindow &window, int rows, ne3_val_fd_mask &mask)
{
    const int top = grid_cells(rows, window.y);
    const int bottom = top + grid_cells(rows, window.height);
    const int left = grid_cells(NE3_VAL_FD_COLUMNS, window.x);
    const int right = left + grid_cells(NE3_VAL_FD_COLUMNS, window.width);
    for (int row = top; row < bottom; ++row) {
        for (int column = left; column < right; ++column) {
            const int cell = row * NE3_VAL_FD_COLUMNS + column;
            assert(column < NE3_VAL_FD_COLUMNS && row < rows);
            std::uint8_t &byte = mask.cells[cell / bits_per_byte];
            byte = static_cast<std::uint8_t>(byte | 1 << cell % bits_per_byte);
        }
    }
}

} // namespace

std::uint8_t fd_threshold_ratio(std::uint8_t sensitivity)
{
    constexpr int largest = 64;
    const auto ratio = static_cast<std::uint8_t>((50 - sensitivity) / 2 + 29);
    return ratio > largest ? largest : ratio; // a negative ratio has wrapped and is too large
}

void fd_apply_settings(const FDCtrlConf &conf, ne3_val_fd_ctrl &ctrl)
{
    store_if_set(ctrl.flip, conf.flip);
    store_if_set(ctrl.almMtd, conf.almMtd);
    store_if_set(ctrl.sizeChkMtd, conf.sizeChkMtd);
    store_if_set(ctrl.faceTotal, conf.faceTotal);
    store_if_set(ctrl.angleMtd, conf.angleMtd);
    store_if_set(ctrl.angle, conf.angle);
    store_if_set(ctrl.minDetectionSize, conf.minDetectionSize);
    store_if_set(ctrl.maxDetectionSize, conf.maxDetectionSize);
    if (ctrl.sizeChkMtd == 1 && !face_sizes_usable(ctrl)) {
        ctrl.sizeChkMtd = 0;
        conf_rejectFDSizes("no pair of 120 to 960: sizes are not checked");
    }
    if (conf.sensitivity != unset)
        ctrl.thresRatio = fd_threshold_ratio(static_cast<std::uint8_t>(conf.sensitivity));
}

ne3_val_fd_mask fd_watch_mask(std::span<const VaFdWindow> windows, bool wide)
{
    ne3_val_fd_mask mask{};
    for (const VaFdWindow &window : windows) {
        if (window.enabled)
            mark(window, ne3_val_fd_rows(wide), mask);
    }
    return mask;
}

std::size_t fd_watch_mask_size(bool wide)
{
    return static_cast<std::size_t>(NE3_VAL_FD_COLUMNS * ne3_val_fd_rows(wide) / bits_per_byte);
}

FdRectangle fd_pixels(const VaFdWindow &window, std::int32_t width, std::int32_t height)
{
    return {width * window.x / full_scale, height * window.y / full_scale,
            width * (window.x + window.width) / full_scale,
            height * (window.y + window.height) / full_scale};
}

const FdRectangle *fd_watch_frame(std::int32_t width, std::int32_t height)
{
    const auto frame = std::ranges::find_if(watch_frames, [=](const WatchFrame &row) {
        return row.width == width && row.height == height;
    });
    return frame == std::end(watch_frames) ? nullptr : &frame->allowed;
}
