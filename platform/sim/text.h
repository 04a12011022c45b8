#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Lines of text: those that the stand-in prints, and the statements of scenes and feeds.

namespace va::sim
{

// Prints a line on standard error that begins with "sim: ", in one write, so that the lines of two
// threads do not mix; what goes beyond 4 KiB is cut off. Allocates nothing.
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);

// What stands in a line where its pattern has capital letters, in their order.
struct Values {
    std::vector<std::int32_t> numbers; // of words the 32 bits
    std::string word;                  // of F or N

    std::int32_t operator[](std::size_t i) const { return numbers[i]; }
    std::uint32_t bits(std::size_t i) const { return static_cast<std::uint32_t>(numbers[i]); }
};

// A pattern is text in which a blank stands for blanks and a capital letter for
//     T, D  a time from 0 on, a duration or another count from 1 on; U a time above the number
//           before
//     P, S  a coordinate, -65535..65535; a size, 1..65535
//     W     any number of 32 bits, also hexadecimal
//     F, N  the name of a function of the chip's; any word
template <class Target>
struct Statement {
    std::string_view pattern;
    void (*apply)(Target &target, const Values &values);
};

// Whether the line, but for a comment at its end, is such a statement.
bool matches(const std::string &line, std::string_view pattern, Values &values);

// Applies the first of `statements` that the line matches; false when there is none.
template <class Target, std::size_t count>
bool apply_line(const std::string &line, const Statement<Target> (&statements)[count],
                Target &target)
{
    for (const auto &[pattern, apply] : statements) {
        Values values;
        if (!matches(line, pattern, values))
            continue;
        apply(target, values);
        return true;
    }
    return false;
}

} // namespace va::sim
