#pragma once

#include "util/fd.h"

// The directory that the daemon shares with its clients. Main thread, at start.

// Says in one log line what makes the run directory unsafe or useless, and what to do: it is
// missing or not writable; it, or what it holds under a name that the daemon uses, belongs to
// another user (root's is trusted), is a link or of an unexpected kind; it or the PID file is
// writable for others. Changes nothing.
void check_run_dir();

// What stands at the control FIFO's place is kept when it is a FIFO of this user's or root's, so
// that who waits to write into it, or has it open, reaches this daemon; what an earlier writer has
// left in it is thrown away, unless it is whole lines of less than 4096 bytes in all. Anything else
// is removed, after which msg_start() makes the FIFO.
//
// Returns the FIFO that was kept, to be held open until msg_start() has opened it: a writer that
// its opening has let through would else find no reader.
Fd prepare_control_fifo();
