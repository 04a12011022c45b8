#pragma once

// One instance at a time: the PID file names the process that runs. Main thread.

// Waits, asking it every second to stop, until the instance that the PID file names is gone, then
// writes this process's own. An instance that cannot be told, since its file cannot be read, is
// waited for too. A file whose process does not exist any more is removed, as is what holds
// anything but one decimal number or is no regular file; where that fails, a regular file is
// written over. Neither the group nor others may write the file. Returns file_printf()'s result, or
// -1 after a log line when something that cannot be removed is no regular file; without the run
// directory there is no PID file. Exits with status 0 when `terminate` is set meanwhile.
int create_pid_file();

// Removes the PID file if create_pid_file() wrote it.
void remove_own_pid_file();
