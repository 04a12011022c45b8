#pragma once

#include <atomic>
#include <new>

#include <gtest/gtest.h>

// Replaces the program's nothrow operator new: one source of a program may include this.

inline std::atomic<int> allocations_left{-1}; // before the one that fails; negative: none fails

// Calls `succeeds` with its first allocation failing, then its second, and so on until none is left
// to fail; it must report just those failures. Returns how many allocations it makes.
template <class Attempt>
int fail_each_allocation(Attempt succeeds)
{
    for (int n = 0;; ++n) {
        allocations_left = n;
        const bool success = succeeds();
        const bool failed = allocations_left.exchange(-1) < 0;
        EXPECT_NE(success, failed) << "allocation " << n;
        if (!failed)
            return n;
    }
}

inline bool next_fails()
{
    return allocations_left >= 0 && allocations_left-- == 0;
}

void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    return next_fails() ? nullptr : ::operator new(size);
}

void *operator new[](std::size_t size, const std::nothrow_t &) noexcept
{
    return next_fails() ? nullptr : ::operator new[](size);
}
