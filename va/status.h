#pragma once

// The daemon's state as a file of text, RUN_DIR/status, made on request. docs/client.md has its
// lines. Main thread.

// Control-message callback: writes the file anew, for the VaContext in `argument`, and puts it in
// the place of the one before; some 250 ms after that at the earliest, for all who have asked
// meanwhile. Logs why it could not, once until it can again. Never waits for the processing thread.
int va_msg_status(void *argument, const char *line, int length);

// What an earlier daemon, or this one, has left tells nothing: at start and at the end.
void remove_status_file();
