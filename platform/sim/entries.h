#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The entries of the stand-in's results, as clients get them: little-endian 32-bit words on the
// camera and on the usual PC. The chip's own entries have the same sizes, but other fields. Nothing
// here needs the stand-in to be linked.

enum class SimObjectKind : std::uint32_t { moving = 3, stationary = 19 };

// An object, as records of the stream "od" hold them one after another. Places are pixels of the
// scene's frame, from its top left corner, x to the right and y down; they may lie outside of it.
struct SimObjectEntry {
    std::uint32_t id; // as in the scene, any value; an object keeps it
    SimObjectKind kind;
    std::int32_t x;         // left edge of the box, pixels, -98302..65535
    std::int32_t y;         // top edge of the box, as x
    std::int32_t width;     // of the box, pixels, 1..65535
    std::int32_t height;    // of the box, as width
    std::int32_t centre_x;  // pixels, -65535..65535
    std::int32_t centre_y;  // as centre_x
    std::uint32_t result;   // counts results, not entries: 0, 1, ... 0xffffffff, 0
    std::uint32_t reserved; // 0
};
static_assert(offsetof(SimObjectEntry, id) == 0 && offsetof(SimObjectEntry, kind) == 4 &&
              offsetof(SimObjectEntry, x) == 8 && offsetof(SimObjectEntry, y) == 12 &&
              offsetof(SimObjectEntry, width) == 16 && offsetof(SimObjectEntry, height) == 20 &&
              offsetof(SimObjectEntry, centre_x) == 24 &&
              offsetof(SimObjectEntry, centre_y) == 28 && offsetof(SimObjectEntry, result) == 32 &&
              offsetof(SimObjectEntry, reserved) == 36 && sizeof(SimObjectEntry) == 40);
static_assert(std::is_trivially_copyable_v<SimObjectEntry>);

// A face, as records of the stream "fd" hold them.
struct SimFaceEntry {
    std::uint32_t id;    // as in the scene, any value; a face keeps it
    std::int32_t x;      // left edge, pixels, -65535..65535
    std::int32_t y;      // top edge, as x
    std::int32_t width;  // pixels, 1..65535
    std::int32_t height; // as width
    std::uint32_t score; // percent, always 100
    std::uint32_t angle; // degrees, always 0
};
static_assert(offsetof(SimFaceEntry, id) == 0 && offsetof(SimFaceEntry, x) == 4 &&
              offsetof(SimFaceEntry, y) == 8 && offsetof(SimFaceEntry, width) == 12 &&
              offsetof(SimFaceEntry, height) == 16 && offsetof(SimFaceEntry, score) == 20 &&
              offsetof(SimFaceEntry, angle) == 24 && sizeof(SimFaceEntry) == 28);
static_assert(std::is_trivially_copyable_v<SimFaceEntry>);
