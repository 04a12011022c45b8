#pragma once

#include "tools/common/sink.h"
#include "tools/common/source.h"

// Hand a source's records to the sinks.
namespace va
{

// From now on SIGUSR1 does not end the process but asks for a report, for which watch() asks the
// sinks; early, since whoever sends it may see the program before it watches.
void prepare_report();

// Hands on what the daemon sends, until the count is reached, the time is up, nobody reads standard
// output any more, or SIGINT or SIGTERM arrives. Says on standard error what becomes of the
// connections, and, when nothing arrives for a few seconds, whether that is because the daemon is
// not well. Returns the end.
Moment watch(const Source &source, Sinks &sinks);

// Hands on the wanted records of the source's capture at its pace, until the count is reached, the
// time limit, which counts in the capture, or SIGINT or SIGTERM arrives. Throws what read_capture()
// throws, and std::runtime_error, after all whole records, when the capture's end is missing.
void replay(const Source &source, Sinks &sinks);

} // namespace va
