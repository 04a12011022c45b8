#pragma once

#include "tools/common/options.h"

#include <set>
#include <string>

namespace va::mqtt
{

// Sets what the lines of a file say: the name of a row, =, its value. Blank lines and those that
// begin with # say nothing; rows named in `said` are left as they are. Throws WrongUse, which names
// file and line, and std::system_error for a file that cannot be read.
void read_settings_file(const std::string &path, const OptionTable &table,
                        const std::set<std::string> &said);

} // namespace va::mqtt
