#pragma once

#include "platform/ne3_val.h"
#include "va/driver.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

// The analytics modules: which of them run, what each does, and how the daemon goes over them.

// Set by va_parse_arg(), main thread, before va_init(): the module is to run.
extern int gm_bOdEna;  // object detection
extern int gm_bFdEna;  // face detection
extern int gm_bTaEna;  // tamper alarm
extern int gm_bDisEna; // image stabilisation

// Sets the four flags by the command line or, without arguments, by the store. An unknown option
// ends the process through va_usage().
void va_parse_arg(int argc, char *const *argv);

// Prints the usage line on standard output, removes this process's PID file and exits with status
// 0.
[[noreturn]] void va_usage();

// The steps of a module:
//
// getConf       main thread, before the processing thread: reads the module's flag and its
//               settings. Returns 0.
// init          processing thread, as all up to `cancel`: opens, starts and configures the module.
//               Returns 0, or -1 after a log line when it cannot be opened or started.
// set_ctrl      hands all settings to the library. Returns 0, or -1 after a log line; what was
//               prepared before the failure is not sent.
// updateConfig  reads the settings again, and hands them to the library if one changed. Returns 0.
// processData   relays a result. Returns 0, also when no client gets it.
// cancel        main thread, at shutdown: see va_cancel().

// Object detection: results go to the clients of the od stream (objects) and of the vmf stream
// (filter alarms). Its settings are read only if it is to run; updateConfig does not read the
// detection masks again. processData relays a 16-byte alarm record when a filter alarmed (a mask
// per event code, whose bit k stands for the (k+1)-th filter of that code), then the library's
// object entries unchanged.
int va_od_getConf(VaContext *context);
int va_od_init(VaContext *context);
int va_od_set_ctrl(VaContext *context);
int va_od_updateConfig(VaContext *context);
int va_od_processData(VaContext *context, const ne3_val_od_result *result);
int va_od_cancel(VaContext *context);

// Face detection: the library's face entries go unchanged to the clients of the fd stream. The
// enabled windows are sorted into watch and detection slots by window number; those beyond the
// slots are ignored. Settings are read at start only: updateConfig does nothing. init also fails
// when the module cannot be configured.
int va_fd_getConf(VaContext *context);
int va_fd_init(VaContext *context);
int va_fd_set_ctrl(VaContext *context);
int va_fd_updateConfig(VaContext *context);
int va_fd_processData(VaContext *context, const ne3_val_fd_result *result);
int va_fd_cancel(VaContext *context);

// Any thread: clamps a rectangle (pixels) to the part of a width x height frame in which detection
// windows may lie; one wholly outside comes out empty or inverted. Returns 0, or -1 after a line on
// standard output when the frame size is not known; the rectangle is then untouched.
int va_fd_watchframe_checkRange(std::int32_t *x0, std::int32_t *y0, std::int32_t *x1,
                                std::int32_t *y1, std::int32_t width, std::int32_t height);

// Tamper alarm: results of 16 bytes go to the clients of the ta stream.
int va_ta_getConf(VaContext *context);
int va_ta_init(VaContext *context);
int va_ta_set_ctrl(VaContext *context);
int va_ta_updateConfig(VaContext *context);
int va_ta_processData(VaContext *context, const ne3_val_ta_result *result);
int va_ta_cancel(VaContext *context);

// Image stabilisation has no results, and its settings are read at start only. set_ctrl prints the
// library's parameters before and after on standard output; when the library refuses, it keeps its
// own.
int va_dis_getConf(VaContext *context);
int va_dis_init(VaContext *context);
void va_dis_set_ctrl(VaContext *context);

struct VaDriver {
    VaModule module;
    char option; // of the command line
    int *selected;
    std::int32_t VaContext::*enabled;
    int (*getConf)(VaContext *);
    int (*init)(VaContext *);
    int (*updateConfig)(VaContext *); // null: follows no change of the settings
    int (*stop)();                    // the library's, like the next
    int (*close)();
    // Null: has no results.
    va::Outcome (*read)(VaContext *, VaModule, const char *name) = nullptr;
    const char *read_name = nullptr; // of the library's call
    int (*cancel)(VaContext *) = nullptr;
};

// In the order of everything but a pass: settings read, opened, changed, cancelled, stopped and
// closed.
extern const std::array<VaDriver, std::size(va_modules)> va_drivers;

// In the order of a pass.
inline constexpr VaModule va_polled[] = {VaModule::Od, VaModule::Ta, VaModule::Fd};

inline const VaDriver &va_driver_of(VaModule module)
{
    return va_drivers[static_cast<std::size_t>(module)];
}

// Main thread: stops and closes the modules, whatever their state.
void va_stop_modules();
