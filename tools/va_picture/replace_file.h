#pragma once

#include <string>

// Puts a file with this content in the place of `path`: written whole beside it, under a name that
// nothing had, with the modes that the umask leaves. Whoever reads the old one reads it to its end.
// Throws std::system_error, nothing is left behind then; what stands there and is no file is an
// error too.
void replace_file(const std::string &path, const std::string &content);
