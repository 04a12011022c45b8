#pragma once

#include "tools/common/output.h"
#include "tools/common/source.h"

// Hands on the wanted records of the source's capture at its pace, until the count is reached, the
// time limit, which counts in the capture, or SIGINT or SIGTERM comes. Throws what read_capture()
// throws, and std::runtime_error, after all whole records, when the capture's end is missing.
void replay(const Source &source, Output &output);
