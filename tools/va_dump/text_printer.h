#pragma once

#include "tools/common/printer.h"

#include <string>

enum class Base { Decimal, Hexadecimal };

// How the words of a payload are written.
struct WordStyle {
    Base base = Base::Decimal;
    bool labels = false; // each word's name, in decimal, where it is known
};

// The words of a payload, entries parted by " | ". Bytes at the end that fill no word follow as two
// hexadecimal digits each.
std::string payload_text(const StreamKind &kind, std::span<const std::uint8_t> payload,
                         const WordStyle &style);

// One line for each record: local time, stream, payload length, payload.
class TextPrinter : public Printer
{
public:
    explicit TextPrinter(const WordStyle &style) : style_(style) {}
    void print(const Record &record) override;

private:
    WordStyle style_;
};
