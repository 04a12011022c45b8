#pragma once

#include "util/fd.h"

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

// While it lives nothing is printed: a server tells of each of its clients.
class Quiet
{
public:
    Quiet() { print_to(Fd(open("/dev/null", O_WRONLY | O_CLOEXEC))); }
    ~Quiet() { print_to(output_); }
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

private:
    static void print_to(const Fd &fd)
    {
        std::fflush(stdout);
        dup2(fd.get(), STDOUT_FILENO);
    }

    Fd output_{dup(STDOUT_FILENO)};
};
