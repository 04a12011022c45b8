#pragma once

#include <cstdio>
#include <memory>

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Opens `path` for reading, close-on-exec; null on failure.
inline File open_file(const char *path)
{
    return File(std::fopen(path, "rbe"));
}
