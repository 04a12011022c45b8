#pragma once

#include "va/context.h"
#include "va/paths.h"

#include <cstdint>

// The result streams: each is served while its module runs.

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
