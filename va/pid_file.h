#pragma once

// One instance at a time: the PID file names the process that runs. Main thread.

// Waits, asking it every second to stop, until the instance that the PID file names is gone, then
// writes this process's own, which neither the group nor others may write. Of several that start at
// once one does so; the others wait for it like for any instance.
//
// An instance whose file cannot be read is waited for too, and so is one whose file belongs to
// another user (root is trusted), which is not asked to stop. A file that names no living process,
// holds anything but one decimal number or is no regular file is stale and removed.
//
// Returns 0; -1, after a message, when there is no PID file because the run directory is missing or
// cannot be written. Exits with status 0 when `terminate` is set meanwhile.
int create_pid_file();

namespace va
{

// Whether the PID file names this process.
bool is_own_pid_file();

// Writes the file that did not fit into the run directory at the start, when there is room by now,
// and another instance has none there. True, after a message, when it has.
bool retry_pid_file();

// Removes it if it names this process.
void remove_own_pid_file();

} // namespace va
