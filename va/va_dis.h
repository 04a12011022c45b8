#pragma once

#include "va/context.h"

// Image stabilisation: its settings go to the library once, at start. It has no results.

// Main thread, before the processing thread: reads the module selection and the settings. Returns
// 0.
int va_dis_getConf(VaContext *context);

// Processing thread: opens, starts and configures the module. Returns 0, or -1 after a log line
// when it cannot be opened or started.
int va_dis_init(VaContext *context);

// Processing thread: hands `disCtrl` to the library, printing its parameters before and after on
// standard output. When the library refuses, it keeps its own.
void va_dis_set_ctrl(VaContext *context);
