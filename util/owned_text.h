#pragma once

#include <cstring>
#include <memory>
#include <new>

// Private to this tree, like ipc/network/fd.h: apart from what the library's users define.
namespace va
{

// A copy of `text`; null when memory is short.
inline std::unique_ptr<char[]> copy_text(const char *text)
{
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (copy)
        std::memcpy(copy.get(), text, size);
    return copy;
}

} // namespace va

using va::copy_text;
