#pragma once

#include "tools/common/field.h"

#include <chrono>
#include <cstdint>
#include <string>

// Pieces of printed lines.

// "14:02:03", local time.
std::string time_of_day(std::chrono::system_clock::time_point time);

// "14:02:03.123", local time.
std::string clock_text(std::chrono::system_clock::time_point time);

// "2026-03-01T14:02:03.123+01:00"
std::string iso_text(std::chrono::system_clock::time_point time);

// "2026-03-01T13:02:03.123Z"
std::string utc_text(std::chrono::system_clock::time_point time);

// A word in decimal, signed where its field is.
std::string decimal_text(std::uint32_t word, const Field &field);

// As printf(); up to 255 characters.
__attribute__((format(printf, 1, 2))) std::string formatted(const char *format, ...);
