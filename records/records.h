#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// What the payloads of the result streams are made of. All numbers are in the machine's byte order,
// little-endian on the camera and on the usual PC. A payload lies anywhere in memory: copy from it
// with memcpy().

// "vmf": one for each result of object detection in which a filter alarmed.
inline constexpr std::size_t VMF_EVENT_CODES = 4; // 1: a cross line; 0, 2 and 3: areas
struct VmfRecord {
    // By event code; bit k is set when the (k+1)-th filter of that code alarmed.
    std::uint32_t alarms[VMF_EVENT_CODES];
};
static_assert(sizeof(VmfRecord) == 16 && std::is_trivially_copyable_v<VmfRecord>);

// "ta": one for each tamper result, in the chip's words.
struct TaRecord {
    std::uint32_t words[4];
};
static_assert(sizeof(TaRecord) == 16 && std::is_trivially_copyable_v<TaRecord>);

// "od" and "fd": the objects, or the faces, of a result, one entry after another. What is in an
// entry the chip's documentation has to say; its size is known.
inline constexpr std::size_t OD_ENTRY_SIZE = 40; // bytes
inline constexpr std::size_t FD_ENTRY_SIZE = 28;

enum : std::int32_t { OD_DYNAMIC = 3, OD_STATIC = 19 }; // kinds of objects

// The words for an object's kind, and for what became of a static one.
inline const char *ODString(std::int32_t kind)
{
    return kind == OD_STATIC ? "Static" : "Dynamic";
}

inline const char *StaticObjectString(std::uint32_t kind)
{
    constexpr const char *words[] = {"Desertion", "Theft"};
    return kind < 2 ? words[kind] : "Undefined";
}

// THE STAND-IN'S entries, not the chip's, which have the same sizes but other fields. A client that
// is to run on the camera keeps what it knows of these in one place.

// A line's direction: to which side a crossing alarms, seen from its start to its end; any other
// code: to both.
enum : std::int32_t { SIM_TO_RIGHT = 1, SIM_TO_LEFT = 2 };

enum class SimObjectKind : std::uint32_t { Moving = OD_DYNAMIC, Stationary = OD_STATIC };

// An object. Places are pixels of the scene's frame, from its top left corner, x to the right and y
// down; they may lie outside of it.
struct SimObjectEntry {
    std::uint32_t id; // as in the scene, any value; an object keeps it
    SimObjectKind kind;
    std::int32_t x;        // left edge of the box, pixels, -98302..65535
    std::int32_t y;        // top edge of the box, as x
    std::int32_t width;    // of the box, pixels, 1..65535
    std::int32_t height;   // of the box, as width
    std::int32_t centre_x; // pixels, -65535..65535
    std::int32_t centre_y; // as centre_x
    std::uint32_t result;  // counts results, not entries: 0, 1, ... 0xffffffff, 0
    std::uint32_t picture; // its number, when a feed has given it one; else 0
};
static_assert(offsetof(SimObjectEntry, id) == 0 && offsetof(SimObjectEntry, kind) == 4 &&
              offsetof(SimObjectEntry, x) == 8 && offsetof(SimObjectEntry, y) == 12 &&
              offsetof(SimObjectEntry, width) == 16 && offsetof(SimObjectEntry, height) == 20 &&
              offsetof(SimObjectEntry, centre_x) == 24 &&
              offsetof(SimObjectEntry, centre_y) == 28 && offsetof(SimObjectEntry, result) == 32 &&
              offsetof(SimObjectEntry, picture) == 36 && sizeof(SimObjectEntry) == OD_ENTRY_SIZE);
static_assert(std::is_trivially_copyable_v<SimObjectEntry>);

// A face.
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
              offsetof(SimFaceEntry, angle) == 24 && sizeof(SimFaceEntry) == FD_ENTRY_SIZE);
static_assert(std::is_trivially_copyable_v<SimFaceEntry>);
