#pragma once

#include "platform/ne3_cl.h"
#include "va/context.h"

#include <span>

// The co-processor's life: its loader, its program and work data, and the analytics library on top.
// Main thread.

struct VanaConfigFile {
    const char *sensor;
    const char *path; // work data; null: not supported
};

// The supported sensors; the first row that matches counts.
extern const std::span<const VanaConfigFile> vanaConfigFiles;

// Opens the loader. Returns 0, or -1 after a line on standard output.
int va_cl_init();

// Loads the program and the sensor's work data into the co-processor's memory and starts it.
// Returns 0, or -1: after log lines, or, when a file is missing, after a note in the report.
int va_vana_boot(VaContext *context);

// Prints the nine fields on standard output.
void dump_vana_meminfo(const vanaMemInfo *info);

// Opens the analytics library on the running co-processor. Returns 0, or -1 after a log line.
int va_vana_init(VaContext *context);

// Stops and closes the modules and the library, whatever their state, then the co-processor.
// Returns 0.
int va_vana_quit(VaContext *context);

// Stops the co-processor. Returns 0, or -1 after log lines.
int va_vana_shutdown(VaContext *context);

// Releases the loader. Returns 0.
int va_cl_stop();
