#pragma once

#include "va/context.h"

#include <cstdint>

// Where the daemon meets the file system; fixed when the build is configured (VA_RUN_DIR and
// VA_FIRMWARE_DIR).

extern const char va_run_dir[];
extern const char va_pid_path[];
extern const char va_pid_lock_path[];
extern const char va_ctrl_path[]; // control FIFO
extern const char va_status_path[];
extern const char va_od_path[]; // result sockets
extern const char va_vmf_path[];
extern const char va_fd_path[];
extern const char va_ta_path[];

// Shell command that asks the process in the PID file to end.
extern const char va_stop_command[];

extern const char va_firmware_path[];        // co-processor program
extern const char va_work_data_1080p_path[]; // work data of the 1920 x 1080 sensors

// A result stream: its socket is served while its module runs.
struct VaStream {
    std::int32_t VaContext::*enabled;
    sck_svr_t *VaContext::*server;
    const char *path;            // of the socket
    std::uint32_t client_buffer; // bytes a client may have outstanding
};

// Of od, one result of up to 1638 objects; of the others, some fifty alarms.
inline constexpr VaStream va_streams[] = {
    {&VaContext::odEnable, &VaContext::odServer, va_od_path, 65536},
    {&VaContext::odEnable, &VaContext::vmfServer, va_vmf_path, 1024},
    {&VaContext::fdEnable, &VaContext::fdServer, va_fd_path, 1024},
    {&VaContext::taEnable, &VaContext::taServer, va_ta_path, 1024},
};
