#pragma once

#include "platform/ne3_val.h"
#include "va/module.h"

// Tamper alarm: its settings go to the library at start and when they change; its results go to the
// clients of the ta stream, 16 bytes each.

// Main thread, before the processing thread: reads the settings and the module selection. Returns
// 0.
int va_ta_getConf(VaContext *context);

// The rest runs on the processing thread.

// Opens, starts and configures the module. Returns 0, or -1 after a log line when it cannot be
// opened or started.
int va_ta_init(VaContext *context);

// Hands `taCtrl` to the library. Returns 0, or -1 after a log line.
int va_ta_set_ctrl(VaContext *context);

// Reads the settings again and hands them to the library if they changed. Returns 0.
int va_ta_updateConfig(VaContext *context);

// Relays a result. Returns 0, also when no client gets it.
int va_ta_processData(VaContext *context, const ne3_val_ta_result *result);

// Reads and relays the next result: see poll().
Poll va_ta_poll(VaContext *context);

// Main thread, at shutdown: see va_cancel().
int va_ta_cancel(VaContext *context);
