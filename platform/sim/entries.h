#pragma once

#include <cstring>
#include <vector>

// Arrays of result entries as the library hands them out.

template <class Entry>
std::vector<unsigned char> bytes_of(const std::vector<Entry> &entries)
{
    std::vector<unsigned char> bytes(entries.size() * sizeof(Entry));
    if (!bytes.empty())
        std::memcpy(bytes.data(), entries.data(), bytes.size());
    return bytes;
}

// Null for no entries.
inline const void *address_of(const std::vector<unsigned char> &bytes)
{
    return bytes.empty() ? nullptr : bytes.data();
}
