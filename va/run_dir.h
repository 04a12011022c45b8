#pragma once

// Main thread, at start: says in one log line what makes the run directory unsafe or useless, and
// what to do: it is missing; it, or what it holds under a name that the daemon uses, belongs to
// another user (root's is trusted), is a link or of an unexpected kind, or is writable for others.
// Changes nothing.
void check_run_dir();
