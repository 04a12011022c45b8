#pragma once

// The directory that the daemon shares with its clients. Main thread, at start.

// Says in one log line what makes the run directory unsafe or useless, and what to do: it is
// missing or not writable; it, or what it holds under a name that the daemon uses, belongs to
// another user (root's is trusted), is a link or of an unexpected kind; it or the PID file is
// writable for others. Changes nothing.
void check_run_dir();

// Removes whatever is at the control FIFO's place, what earlier writers left in it included, and
// makes it anew, with the mode that the umask leaves. Returns false after a log line when something
// stays that must not be opened.
bool renew_control_fifo();
