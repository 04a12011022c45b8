#include "tools/va_dump/text_printer.h"

#include "tools/common/standard_output.h"
#include "tools/common/text.h"

namespace
{

std::string_view separator(std::size_t word, std::size_t entry_words)
{
    if (word == 0)
        return "";
    return word % entry_words == 0 ? " | " : " ";
}

std::string word_text(const StreamKind &kind, std::size_t index, std::uint32_t word,
                      const WordStyle &style)
{
    if (style.labels && !kind.fields.empty()) {
        const Field &field = kind.fields[index % kind.entry_words];
        return std::string(field.name) + '=' +
               (field.meaning ? field.meaning(static_cast<std::int32_t>(word))
                              : decimal_text(word, field));
    }
    return style.base == Base::Hexadecimal ? formatted("%08x", word) : std::to_string(word);
}

} // namespace

std::string payload_text(const StreamKind &kind, std::span<const std::uint8_t> payload,
                         const WordStyle &style)
{
    const Words words(payload);
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += separator(i, kind.entry_words);
        text += word_text(kind, i, words[i], style);
    }
    for (const std::uint8_t byte : words.odd_bytes())
        text += formatted(" %02x", byte);
    return text;
}

void TextPrinter::print(const Record &record)
{
    write_line(clock_text(record.time) +
               formatted(" %-3s %5zu  ", record.kind.name.data(), record.payload.size()) +
               payload_text(record.kind, record.payload, style_));
}
