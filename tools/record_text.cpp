#include "tools/record_text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

namespace
{

constexpr std::size_t word_size = sizeof(std::uint32_t);

std::string formatted(const char *format, unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string word_text(const std::uint8_t *bytes, Base base)
{
    std::uint32_t word;
    std::memcpy(&word, bytes, word_size);
    return formatted(base == Base::Hexadecimal ? "%08x" : "%u", word);
}

std::string_view separator(std::size_t word, std::size_t entry_words)
{
    if (word == 0)
        return "";
    return word % entry_words == 0 ? " | " : " ";
}

// "14:02:03.123"
std::string clock_text()
{
    using namespace std::chrono;
    const auto now = system_clock::now();
    const auto ms = duration_cast<milliseconds>(now.time_since_epoch()) % seconds(1);
    const std::time_t time = system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&time, &local);
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text + formatted(".%03u", static_cast<unsigned>(ms.count()));
}

} // namespace

const StreamKind *find_stream(std::string_view name)
{
    const auto *found = std::ranges::find(STREAM_KINDS, name, &StreamKind::name);
    return found == std::end(STREAM_KINDS) ? nullptr : found;
}

std::string payload_text(const StreamKind &kind, std::span<const std::uint8_t> payload, Base base)
{
    std::string text;
    const std::size_t words = payload.size() / word_size;
    for (std::size_t word = 0; word < words; ++word) {
        text += separator(word, kind.entry_words);
        text += word_text(&payload[word * word_size], base);
    }
    for (const std::uint8_t byte : payload.subspan(words * word_size))
        text += formatted(" %02x", byte);
    return text;
}

std::string record_text(const StreamKind &kind, std::span<const std::uint8_t> payload, Base base)
{
    char head[32];
    std::snprintf(head, sizeof head, " %-3s %5zu  ", kind.name.data(), payload.size());
    return clock_text() + head + payload_text(kind, payload, base);
}
