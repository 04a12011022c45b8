#pragma once

#include "util/owner.h"

#include <cstring>
#include <new>

// Private to this tree, like util/fd.h: apart from what the library's users define.
namespace va
{

// A copy of `text`; null when memory is short.
inline Array<char> copy_text(const char *text)
{
    const std::size_t size = std::strlen(text) + 1;
    Array<char> copy(new (std::nothrow) char[size]);
    if (copy)
        std::memcpy(copy, text, size);
    return copy;
}

} // namespace va

using va::copy_text;
