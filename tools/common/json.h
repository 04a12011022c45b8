#pragma once

#include <string>
#include <string_view>

// Pieces of JSON.

// A text in quotes, with all escaped that has to be; bytes that are no UTF-8 stay as they are.
std::string quoted(std::string_view text);

// A member of an object, whose value is JSON.
std::string member(std::string_view name, const std::string &value);
