#pragma once

#include <cerrno>
#include <string>
#include <system_error>

// Throws errno, whose text names the file.
[[noreturn]] inline void throw_file_error(const std::string &path)
{
    throw std::system_error(errno, std::generic_category(), path);
}
