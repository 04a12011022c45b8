#pragma once

#include <utility>

// Members that own: what they hold ends with the object they are in, and so on every path on which
// it was not made whole. Private to this tree: the records that users see are plain.

namespace va
{

// Owns what `end` ends; null owns nothing.
template <class T, auto end>
class Owner
{
public:
    Owner() = default;
    explicit Owner(T *held) : held_(held) {}
    Owner(Owner &&other) noexcept : held_(other.release()) {}
    Owner &operator=(Owner &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~Owner() { reset(); }

    // Where a function takes the pointer.
    operator T *() const { return held_; } // NOLINT(google-explicit-constructor)
    T *operator->() const { return held_; }
    T *get() const { return held_; }
    [[nodiscard]] T *release() { return std::exchange(held_, nullptr); }
    void reset(T *held = nullptr)
    {
        T *const ended = std::exchange(held_, held);
        if (ended)
            end(ended);
    }

private:
    T *held_ = nullptr;
};

template <class T>
void delete_one(T *object)
{
    delete object;
}

template <class T>
void delete_array(T *array)
{
    delete[] array;
}

template <class T>
using One = Owner<T, delete_one<T>>;

template <class T>
using Array = Owner<T, delete_array<T>>;

} // namespace va
