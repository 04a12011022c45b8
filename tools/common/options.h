#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// A program's options as a table: how each is written, what the help says of it, what it sets.
namespace va
{

// The command line is wrong; what() says how, for people.
struct WrongUse : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Option {
    // Texts that outlive the table.
    const char *group;    // heading in the help, of all neighbours that have the same
    char letter;          // 0: there is only the name
    const char *name;     // behind two dashes
    const char *argument; // what the help calls it; null: takes none
    std::string help;
    std::function<void(const char *argument)> set; // throws WrongUse; the argument outlives it
};
using OptionTable = std::vector<Option>;

// What the help says around the options.
struct Manual {
    const char *before;
    const char *after;
};

// Has every option set what it stands for, in their order, and leaves in `operands` what else there
// is. Returns false when --help or --version, which every program has, was asked for and printed.
// Throws WrongUse, and std::system_error when it could not be printed.
bool parse_command_line(std::span<char *> arguments, OptionTable table, const Manual &manual,
                        std::span<char *> &operands);

// The whole text must be a number, of at least 1 or within the bounds; else throws WrongUse, which
// says that it is no `what`.
std::uint64_t parse_count(const char *text, const char *what);
double parse_decimal(const char *text, double smallest, double largest, const char *what);

} // namespace va
