#pragma once

#include <cstddef>
#include <cstdint>

// Headers of the co-processor's files. Numbers are unsigned 32-bit little-endian (buf2long); the
// bytes not named here belong to the chip's tools.

// vanafw.bin: header, vector image, program image.
struct FirmwareHeader {
    std::uint8_t tools[84];
    std::uint8_t vectorSize[4];     // bytes
    std::uint8_t programAddress[4]; // physical
    std::uint8_t programSize[4];    // bytes
    std::uint8_t tools2[32];
};
static_assert(offsetof(FirmwareHeader, vectorSize) == 84 &&
              offsetof(FirmwareHeader, programAddress) == 88 &&
              offsetof(FirmwareHeader, programSize) == 92 && sizeof(FirmwareHeader) == 128);

// Work data of a sensor: header, work data.
struct WorkDataHeader {
    std::uint8_t tools[80];
    std::uint8_t workAddress[4]; // physical
    std::uint8_t workSize[4];    // bytes
    std::uint8_t tools2[40];
};
static_assert(offsetof(WorkDataHeader, workAddress) == 80 &&
              offsetof(WorkDataHeader, workSize) == 84 && sizeof(WorkDataHeader) == 128);
