#include "records/records.h"
#include "va/drivers.h"
#include "va/fd_control.h"
#include "va/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

namespace
{

static_assert(CONF_FD_DETECT_WINDOWS <= NE3_VAL_FD_WINDOWS); // of the list, and bits of 32
static_assert(FD_ENTRY_SIZE == NE3_VAL_FD_FACE_SIZE);

// Puts a window into the first slot that is free. False when none is left.
bool take_slot(std::span<VaFdWindow> slots, const FDWindowConf &window)
{
    const auto slot = std::ranges::find(slots, 0, &VaFdWindow::enabled);
    if (slot == slots.end())
        return false;
    *slot = {window.enabled, static_cast<std::int32_t>(slot - slots.begin()),
             window.x,       window.y,
             window.width,   window.height};
    return true;
}

void set_watch_mask(const VaContext &context, ne3_val_fd_mask *memory, ne3_val_fd_ctrl &ctrl)
{
    ctrl.maskEnable = 0;
    ctrl.mask = nullptr;
    if (!std::ranges::any_of(context.fdWatchWindows, &VaFdWindow::enabled))
        return;
    const ne3_val_fd_mask mask = fd_watch_mask(context.fdWatchWindows, context.wideAspect != 0);
    std::memcpy(memory, &mask, fd_watch_mask_size(context.wideAspect != 0));
    ctrl.mask = memory;
    ctrl.maskEnable = 1;
}

void set_detection_windows(const VaContext &context, ne3_val_fd_window_list *memory,
                           ne3_val_fd_ctrl &ctrl)
{
    const std::int32_t width = context.sensorConf.width;
    const std::int32_t height = context.sensorConf.height;
    ne3_val_fd_window_list list{}; // entries that are not sent are zero
    std::uint32_t bits = 0;        // bit k: entry k is sent
    for (int k = 0; k < CONF_FD_DETECT_WINDOWS; ++k) {
        const VaFdWindow &window = context.fdDetectWindows[k];
        if (!window.enabled)
            continue;
        auto [x0, y0, x1, y1] = fd_pixels(window, width, height);
        if (va_fd_watchframe_checkRange(&x0, &y0, &x1, &y1, width, height) != 0)
            continue;
        list.windows[k] = {static_cast<std::uint16_t>(x0), static_cast<std::uint16_t>(y0),
                           static_cast<std::uint16_t>(x1), static_cast<std::uint16_t>(y1)};
        bits |= 1U << k;
    }
    ctrl.windows = nullptr;
    if (bits == 0)
        return;
    std::memcpy(memory, &list, sizeof list);
    ctrl.windowBits = bits;
    ctrl.windows = memory;
}

} // namespace

int va_fd_getConf(VaContext *context)
{
    conf_getFDCtrlConf(&context->fdCtrl);
    const std::span<VaFdWindow> watch(context->fdWatchWindows);
    const std::span<VaFdWindow> detect(context->fdDetectWindows);
    for (const auto slots : {watch, detect}) {
        for (VaFdWindow &slot : slots)
            slot.enabled = 0;
    }
    for (int number = 0; number < CONF_FD_WINDOWS; ++number) {
        FDWindowConf window;
        conf_getFDWindowConf(&window, number);
        if (window.enabled && !take_slot(window.detected ? detect : watch, window))
            conf_rejectFDWindowConf(number, "one window too many");
    }
    context->fdEnable = gm_bFdEna;
    return 0;
}

int va_fd_init(VaContext *context)
{
    std::puts("init fd.");
    const ne3_val_open_prm fdOpenPrm{1, 1, 0};
    const int handle = ne3_val_fd_open(&fdOpenPrm);
    if (handle == -1)
        return va::log_error("fd_open failed.\n");
    if (ne3_val_fd_start(handle) == -1)
        return va::log_error("start failed.\n");
    return va_fd_set_ctrl(context);
}

int va_fd_set_ctrl(VaContext *context)
{
    ne3_val_fd_ctrl fdCtrlPrm{};
    if (ne3_val_fd_get_ctrl(&fdCtrlPrm) == -1)
        return va::log_error("ne3_val_fd_get_ctrl fail. errno = %X", errno);
    std::printf("==> old fd thresRatio = %d\n", fdCtrlPrm.thresRatio);
    std::uint16_t count = 0;
    ne3_val_fd_area_data *fdAreaDataMem = nullptr;
    if (ne3_val_fd_get_area_data_mem(&count, &fdAreaDataMem) == -1)
        return va::log_error("fd_get_area_data_mem failed. errno = %X", errno);
    fd_apply_settings(context->fdCtrl, fdCtrlPrm);
    std::printf("==>fd thresRatio=%d\n", fdCtrlPrm.thresRatio);
    set_watch_mask(*context, static_cast<ne3_val_fd_mask *>(fdAreaDataMem->mask.address),
                   fdCtrlPrm);
    set_detection_windows(
        *context, static_cast<ne3_val_fd_window_list *>(fdAreaDataMem->windows.address), fdCtrlPrm);
    if (ne3_val_fd_set_ctrl(&fdCtrlPrm) == -1)
        return va::log_error("ne3_val_fd_set_ctrl fail. errno = %X", errno);
    return 0;
}

int va_fd_watchframe_checkRange(std::int32_t *x0, std::int32_t *y0, std::int32_t *x1,
                                std::int32_t *y1, std::int32_t width, std::int32_t height)
{
    const FdRectangle *allowed = fd_watch_frame(width, height);
    if (!allowed) {
        std::printf("%s: input resolution is incorrect(%dx%d).\n", "va_fd_watchframe_checkRange",
                    width, height);
        return -1;
    }
    *x0 = std::max(*x0, allowed->x0);
    *y0 = std::max(*y0, allowed->y0);
    *x1 = std::min(*x1, allowed->x1);
    *y1 = std::min(*y1, allowed->y1);
    return 0;
}

int va_fd_updateConfig(VaContext *)
{
    return 0;
}

int va_fd_processData(VaContext *context, const ne3_val_fd_result *result)
{
    va::relay_entries(context->fdServer, result->faces, result->faceNum, NE3_VAL_FD_FACE_SIZE);
    return 0;
}

int va_fd_cancel(VaContext *context)
{
    return va_cancel(context, ne3_val_fd_cancel_data);
}
