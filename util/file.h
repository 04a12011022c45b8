#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

// Files whole. Private to this tree, like util/fd.h. Any thread.
namespace va
{

// Writes all of `bytes`, also after interruptions. Returns 0, or -1 with the reason in errno.
int write_whole(int fd, std::string_view bytes);

// Puts a file with this content in the place of `path`: written whole beside it, then renamed, so
// that whoever reads the old one reads it to its end. `mode` is reduced by the umask. Returns 0, or
// -1 with the reason in errno; nothing is left behind then, but by a process that is killed
// meanwhile the file PATH.PID.new. What stands at `path` and is neither a file nor a link to one is
// not replaced (EISDIR, EINVAL). Throws std::bad_alloc.
int replace_file(const std::string &path, std::string_view content, mode_t mode = 0666);

// Throws errno as a std::system_error, whose text names the file.
[[noreturn]] void throw_file_error(const std::string &path);

} // namespace va
