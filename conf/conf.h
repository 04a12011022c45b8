#pragma once

#include <cstdint>

// Conventions of the configuration reader. A reader, conf_get + record name, fills a plain record
// of 32-bit fields from the store and returns 0; every byte of the record is written. A comparison,
// conf_compare + record name, returns 0 when two records are equal byte for byte. Readers keep
// nothing between calls and may be called from any thread.
//
// A missing key yields its default. Numbers are decimal: leading blanks and a sign are accepted,
// conversion stops at the first other character, text without a number gives 0, and what does not
// fit becomes the nearest 32-bit value. Records with a field `valid` are range-checked: a value out
// of its range leaves the whole record 0.

// 1 for "Enabled", "Enable", "yes", "on" or "1" in any case, else 0.
int isEnabled(const char *text);

// 1 when min <= value <= max, else 0.
int int_chk_range(std::int32_t value, std::int32_t min, std::int32_t max);
