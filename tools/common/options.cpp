#include "tools/common/options.h"

#include "tools/common/printing.h"
#include "util/text.h"

#include <algorithm>
#include <cstring>

#include <getopt.h>

namespace va
{

namespace
{

constexpr int first_name = 256; // above every letter
constexpr char about[] = "About it:";

// The table as getopt_long() wants it, which then gives a letter, or first_name and a row's number.
struct Spelling {
    explicit Spelling(const OptionTable &table)
    {
        for (const Option &row : table) {
            const int number = first_name + static_cast<int>(names.size());
            names.push_back(
                {row.name, row.argument ? required_argument : no_argument, nullptr, number});
            if (row.letter)
                letters += row.argument ? std::string{row.letter, ':'} : std::string{row.letter};
        }
        names.push_back({});
    }

    std::string letters = ":"; // distinguishes a missing argument from an unknown option
    std::vector<option> names;
};

const Option &row_of(const OptionTable &table, int found)
{
    return found < first_name ? *std::ranges::find(table, static_cast<char>(found), &Option::letter)
                              : table[static_cast<std::size_t>(found - first_name)];
}

[[noreturn]] void refuse(int found, const char *written)
{
    const bool is_letter = optopt > 0 && optopt < first_name;
    const std::string option = is_letter ? std::string{'-', static_cast<char>(optopt)} : written;
    throw WrongUse(option + (found == ':' ? " needs a value" : " is no option"));
}

// What stands in front of an option's help, which begins in the next line when it does not fit.
std::string in_column(const std::string &option)
{
    constexpr std::size_t column = 25;
    const bool fits = option.size() < column;
    return option + (fits ? "" : "\n") + std::string(column - (fits ? option.size() : 0), ' ');
}

std::string help_text(const OptionTable &table, const Manual &manual)
{
    std::string text = manual.before;
    const char *group = "";
    for (const Option &row : table) {
        if (std::strcmp(row.group, group) != 0)
            text += std::string(row.group) + '\n';
        group = row.group;
        std::string option = row.letter ? std::string{' ', ' ', '-', row.letter, ','} : "     ";
        option += std::string(" --") + row.name;
        option += row.argument ? std::string(" ") + row.argument : "";
        text += in_column(option) + row.help + '\n';
    }
    return text + manual.after;
}

[[noreturn]] void refuse_number(const char *text, const char *what)
{
    throw WrongUse(std::string(text) + " is no " + what);
}

} // namespace

bool parse_command_line(std::span<char *> arguments, OptionTable table, const Manual &manual,
                        std::span<char *> &operands)
{
    std::string answer;
    table.push_back({about, 'h', "help", nullptr, "this text",
                     [&](const char *) { answer = help_text(table, manual); }});
    table.push_back({about, 'V', "version", nullptr, "its version", [&](const char *) {
                         answer = program_invocation_short_name + std::string(" " VA_VERSION "\n");
                     }});
    const Spelling spelling(table);
    const int count = static_cast<int>(arguments.size());
    for (int found; (found = getopt_long(count, arguments.data(), spelling.letters.c_str(),
                                         spelling.names.data(), nullptr)) != -1;) {
        if (found == '?' || found == ':')
            refuse(found, arguments[static_cast<std::size_t>(optind) - 1]);
        row_of(table, found).set(optarg);
        if (!answer.empty()) {
            write_text(answer);
            return false;
        }
    }
    operands = arguments.subspan(static_cast<std::size_t>(optind));
    return true;
}

std::uint64_t parse_count(const char *text, const char *what)
{
    const auto number = number_in<std::uint64_t>(text);
    if (!number || *number == 0)
        refuse_number(text, what);
    return *number;
}

double parse_decimal(const char *text, double smallest, double largest, const char *what)
{
    const auto number = number_in<double>(text);
    if (!number || !(*number >= smallest && *number <= largest))
        refuse_number(text, what);
    return *number;
}

} // namespace va
