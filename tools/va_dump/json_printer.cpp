#include "tools/va_dump/json_printer.h"

#include "tools/common/json.h"
#include "tools/common/standard_output.h"
#include "tools/common/text.h"

#include <utility>

namespace
{

// What `item(i)` gives for each i of [begin, end), between `open` and `close`.
template <class Item>
std::string list(char open, std::size_t begin, std::size_t end, char close, Item item)
{
    std::string text(1, open);
    for (std::size_t i = begin; i < end; ++i) {
        text += i > begin ? "," : "";
        text += item(i);
    }
    return text + close;
}

std::string words_text(const Words &words, std::size_t begin)
{
    return list('[', begin, words.size(), ']',
                [&](std::size_t i) { return std::to_string(words[i]); });
}

std::string field_text(const Field &field, std::uint32_t word)
{
    std::string text = member(field.name, decimal_text(word, field));
    if (field.meaning)
        text += ',' + member(std::string(field.name) + "_word",
                             quoted(field.meaning(static_cast<std::int32_t>(word))));
    return text;
}

std::string entries_text(const Words &words, std::span<const Field> fields, std::size_t count)
{
    return list('[', 0, count, ']', [&](std::size_t entry) {
        return list('{', 0, fields.size(), '}', [&](std::size_t i) {
            return field_text(fields[i], words[entry * fields.size() + i]);
        });
    });
}

std::string hexadecimal(std::span<const std::uint8_t> bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += formatted("%02x", byte);
    return text;
}

std::string payload_members(const Words &words, std::span<const Field> fields)
{
    if (fields.empty())
        return ',' + member("words", words_text(words, 0));
    const std::size_t count = words.size() / fields.size();
    const std::size_t labelled = count * fields.size();
    std::string text = ',' + member("entries", entries_text(words, fields, count));
    if (labelled < words.size())
        text += ',' + member("words", words_text(words, labelled));
    return text;
}

} // namespace

std::string json_text(const Record &record, bool labels)
{
    const Words words(record.payload);
    const auto fields = labels ? record.kind.fields : std::span<const Field>();
    std::string text = '{' + member("time", quoted(iso_text(record.time))) + ',' +
                       member("stream", quoted(record.kind.name)) + ',' +
                       member("length", std::to_string(record.payload.size())) +
                       payload_members(words, fields);
    if (!words.odd_bytes().empty())
        text += ',' + member("rest", quoted(hexadecimal(words.odd_bytes())));
    return text + '}';
}

void JsonPrinter::connection(const Connection &connection)
{
    write_line('{' + member("time", quoted(iso_text(connection.moment.time))) + ',' +
               member("stream", quoted(connection.kind.name)) + ',' +
               member("connected", connection.connected ? "true" : "false") + ',' +
               member("status", quoted(connection.status)) + '}');
}

void JsonPrinter::verdict(const Moment &now, const Verdict &verdict)
{
    write_line('{' + member("time", quoted(iso_text(now.time))) + ',' +
               member("verdict", quoted(verdict.text)) + ',' +
               member("exit_status", std::to_string(verdict.status)) + '}');
}

void JsonPrinter::print(const Record &record)
{
    write_line(json_text(record, labels_));
}
