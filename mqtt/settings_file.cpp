#include "mqtt/settings_file.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>

namespace va::mqtt
{

namespace
{

std::string trimmed(const std::string &text)
{
    constexpr char blanks[] = " \t\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// Sets what a line says unless the command line said it.
void take_line(const std::string &line, const OptionTable &table, const std::set<std::string> &said,
               std::set<std::string> &read)
{
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos)
        throw WrongUse("no =");
    const std::string name = trimmed(line.substr(0, equals));
    const auto row = std::ranges::find(table, name, &Option::name);
    if (row == table.end())
        throw WrongUse("there is no setting " + name);
    if (!read.insert(name).second)
        throw WrongUse(name + " is set twice");
    if (!said.contains(name))
        row->set(trimmed(line.substr(equals + 1)).c_str());
}

} // namespace

void read_settings_file(const std::string &path, const OptionTable &table,
                        const std::set<std::string> &said)
{
    std::ifstream file(path);
    std::set<std::string> read;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            continue;
        try {
            take_line(line, table, said, read);
        } catch (const WrongUse &wrong) {
            throw WrongUse(path + ":" + std::to_string(number) + ": " + wrong.what());
        }
    }
    if (!file.eof())
        throw std::system_error(errno, std::generic_category(), path);
}

} // namespace va::mqtt
