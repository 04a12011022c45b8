#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

// Members that own: what they hold ends with the record they are in, and so on every path on which
// a record was not made whole. Each is laid out like the plain pointer or number and converts to
// it, so a record with such a member is used like one without.

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

    operator T *() const { return held_; }
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

// Owns a descriptor; `none` and what is below it read as none. Closing keeps errno, so a failure
// can be reported afterwards.
template <int none>
class FdOwner
{
public:
    FdOwner() = default;
    explicit FdOwner(int fd) : fd_(fd) {}
    FdOwner(FdOwner &&other) noexcept : fd_(other.release()) {}
    FdOwner &operator=(FdOwner &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~FdOwner() { reset(); }

    operator int() const { return fd_; }
    explicit operator bool() const { return fd_ > none; }
    int get() const { return fd_; }
    [[nodiscard]] int release() { return std::exchange(fd_, none); }
    void reset(int fd = none)
    {
        const int error = errno;
        const int closed = std::exchange(fd_, fd);
        if (closed > none)
            close(closed);
        errno = error;
    }

private:
    int fd_ = none;
};

using Fd = FdOwner<-1>;
using FdAboveZero = FdOwner<0>;

} // namespace va
