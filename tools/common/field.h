#pragma once

#include <string_view>

// One 32-bit word of an entry of a payload.
struct Field {
    std::string_view name;
    bool is_signed = false;
};
