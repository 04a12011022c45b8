#pragma once

#include "platform/ne3_val.h"
#include "va/module.h"

#include <cstdint>

// Face detection: its settings go to the library once, at start; its results go to the clients of
// the fd stream, the library's face entries unchanged.

// Main thread, before the processing thread: reads the settings, sorts the enabled windows into
// watch and detection slots by window number, and reads the module selection. Windows beyond the
// slots are ignored. Returns 0.
int va_fd_getConf(VaContext *context);

// The rest runs on the processing thread.

// Opens, starts and configures the module. Returns 0, or -1 after a log line.
int va_fd_init(VaContext *context);

// Hands the settings to the library. Returns 0, or -1 after a log line.
int va_fd_set_ctrl(VaContext *context);

// Clamps a rectangle (pixels) to the part of a width x height frame in which detection windows may
// lie; one wholly outside comes out empty or inverted. Returns 0, or -1 after a line on standard
// output when the frame size is not known; the rectangle is then untouched. Any thread.
int va_fd_watchframe_checkRange(std::int32_t *x0, std::int32_t *y0, std::int32_t *x1,
                                std::int32_t *y1, std::int32_t width, std::int32_t height);

// Does nothing and returns 0: the settings are read at start only.
int va_fd_updateConfig(VaContext *context);

// Relays a result. Returns 0, also when no client gets it.
int va_fd_processData(VaContext *context, const ne3_val_fd_result *result);

// Reads and relays the next result: see poll().
Poll va_fd_poll(VaContext *context);

// Main thread, at shutdown: see va_cancel().
int va_fd_cancel(VaContext *context);
