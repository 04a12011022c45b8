#pragma once

// Which modules are to run, by the command line or, without arguments, by the store. Main thread,
// before va_init().

extern int gm_bOdEna;  // object detection
extern int gm_bFdEna;  // face detection
extern int gm_bTaEna;  // tamper alarm
extern int gm_bDisEna; // image stabilisation

// Sets the four flags. An unknown option ends the process through va_usage().
void va_parse_arg(int argc, char *const *argv);

// Prints the usage line on standard output, removes this process's PID file and exits with status
// 0.
[[noreturn]] void va_usage();
