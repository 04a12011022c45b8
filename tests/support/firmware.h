#pragma once

#include "platform/sim/sim.h"
#include "util/util.h"
#include "va/firmware.h"

#include <cstdint>
#include <string>

// Co-processor files with chosen images; the headers may lie about them.

struct FirmwareClaims {
    std::uint32_t vector_size;
    std::uint32_t program_address;
    std::uint32_t program_size;
};

template <class Header>
std::string header_text(const Header &header)
{
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

inline std::string firmware_claiming(const FirmwareClaims &claims, const std::string &images)
{
    FirmwareHeader header{};
    long2str(header.vectorSize, claims.vector_size);
    long2str(header.programAddress, claims.program_address);
    long2str(header.programSize, claims.program_size);
    return header_text(header) + images;
}

inline std::string firmware_image(const std::string &vector, const std::string &program)
{
    return firmware_claiming({static_cast<std::uint32_t>(vector.size()), SIM_PROGRAM_ADDRESS,
                              static_cast<std::uint32_t>(program.size())},
                             vector + program);
}

inline std::string work_data_claiming(std::uint32_t address, std::uint32_t size,
                                      const std::string &work)
{
    WorkDataHeader header{};
    long2str(header.workAddress, address);
    long2str(header.workSize, size);
    return header_text(header) + work;
}

inline std::string work_data_image(const std::string &work)
{
    return work_data_claiming(SIM_WORK_ADDRESS, static_cast<std::uint32_t>(work.size()), work);
}
