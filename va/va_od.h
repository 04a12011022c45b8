#pragma once

#include "platform/ne3_val.h"
#include "records/records.h" // ODString(), StaticObjectString()
#include "va/module.h"

// Object detection: its settings go to the library at start and when they change; its results go to
// the clients of the od stream (objects) and of the vmf stream (filter alarms).

// Main thread, before the processing thread: reads the module selection and, if it is selected, the
// settings. Returns 0.
int va_od_getConf(VaContext *context);

// The rest runs on the processing thread.

// Opens, starts and configures the module. Returns 0, or -1 after a log line when it cannot be
// opened or started.
int va_od_init(VaContext *context);

// Hands all settings to the library. Returns 0, or -1 after a log line; what was prepared before
// the failure is not sent.
int va_od_set_ctrl(VaContext *context);

// Reads the settings again, but for the detection masks, and hands all of them to the library if
// one changed. Returns 0.
int va_od_updateConfig(VaContext *context);

// Relays a result: a 16-byte alarm record when a filter alarmed (a mask per event code, whose bit k
// stands for the (k+1)-th filter of that code), then the library's object entries unchanged.
// Returns 0, also when no client gets it.
int va_od_processData(VaContext *context, const ne3_val_od_result *result);

// Reads and relays the next result: see poll().
Poll va_od_poll(VaContext *context);

// Main thread, at shutdown: see va_cancel().
int va_od_cancel(VaContext *context);
