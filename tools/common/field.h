#pragma once

#include <cstdint>
#include <string_view>

// One 32-bit word of an entry of a payload.
struct Field {
    std::string_view name;
    bool is_signed = false;
    const char *(*meaning)(std::int32_t code) = nullptr; // the word for it, if there is one
};
