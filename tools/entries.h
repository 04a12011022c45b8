#pragma once

#include "tools/stream_kind.h"

#include <span>

// What is known of the entries of results: all on the stand-in, whose layout is ours
// (entries_sim.cpp), nothing but their size on the camera, where they are the chip's
// (entries_chip.cpp). The build takes one of the two.

inline constexpr std::size_t OBJECT_WORDS = 10;
inline constexpr std::size_t FACE_WORDS = 7;

// Empty where the layout is not known.
extern const std::span<const Field> OBJECT_FIELDS;
extern const std::span<const Field> FACE_FIELDS;
