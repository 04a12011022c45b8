#pragma once

#include "util/fd.h"

struct VaContext;

// The directory that the daemon shares with its clients. Main thread.
namespace va
{

// At start: logs one line with what makes the run directory unsafe or useless, and how to mend it:
// it is missing or not writable; it, or what it holds under a name that the daemon uses, belongs to
// another user (root is trusted), is a link or of an unexpected kind; it or the PID file is
// writable for others. Changes nothing.
void check_run_dir();

// At start: keeps what stands at the control FIFO's place when it is a FIFO of this user's or
// root's that can be opened for both, so that whoever waits to write into it, or has it open,
// reaches this daemon; what an earlier writer has left in it is dropped. Removes anything else,
// after which msg_start() makes the FIFO.
//
// Returns the FIFO that was kept, to be held open until msg_start() has opened it: a writer that
// its opening has let through would else find no reader.
Fd prepare_control_fifo();

// Remembers the directory and what the daemon has made in it, and checks once a second, on the
// event loop, whether they still stand there: when it was emptied or replaced, clients do not find
// the daemon, and a second daemon does not see it. What is missing is logged in one line. False
// when memory is short.
bool watch_run_dir(const VaContext &context);

// What that check has found, for people; empty when nothing is wrong.
const char *run_dir_fault();

} // namespace va
