#pragma once

#include "platform/firmware.h"
#include "platform/sim/sim.h"
#include "util/util.h"

#include <cstdint>
#include <string>

// Co-processor files; what their headers claim may be a lie.

struct FirmwareClaims {
    std::uint32_t vector_size;
    std::uint32_t program_address;
    std::uint32_t program_size;
};

inline std::string firmware(const FirmwareClaims &claims, const std::string &images)
{
    FirmwareHeader header{};
    long2str(header.vectorSize, claims.vector_size);
    long2str(header.programAddress, claims.program_address);
    long2str(header.programSize, claims.program_size);
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + images;
}

inline std::string work_data(std::uint32_t address, std::uint32_t size, const std::string &work)
{
    WorkDataHeader header{};
    long2str(header.workAddress, address);
    long2str(header.workSize, size);
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + work;
}
