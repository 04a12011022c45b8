#pragma once

#include "tools/common/source.h"
#include "tools/va_dump/text_printer.h"

#include <span>
#include <string>

// The command line of va_dump.

struct Options {
    enum class Output { Text, Json, Figures };

    Source source = default_source();
    Output output = Output::Text;
    WordStyle style;
    std::string copy; // capture to be written, unless empty
};

// Returns false when the program is asked about itself, which is then answered. Throws WrongUse.
bool parse_options(std::span<char *> arguments, Options &options);
