#include "conf/conf_sensor.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

// Whatever the names, the text and the list of supported sizes are: nothing is read beyond them,
// and a result of 0 goes with two numbers that are not.

namespace
{

// Takes the line that `rest` begins with.
std::string take_line(std::string_view &rest)
{
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    return std::string(line);
}

// A count and as many pairs as it says, as far as the bytes reach; at least one. Nothing behind.
std::unique_ptr<std::int32_t[]> make_list(std::string_view bytes)
{
    constexpr std::size_t shortest = 3;
    const std::size_t numbers = std::max(bytes.size() / sizeof(std::int32_t), shortest);
    auto list = std::make_unique<std::int32_t[]>(numbers);
    std::memcpy(list.get(), bytes.data(), std::min(bytes.size(), numbers * sizeof(std::int32_t)));
    list[0] = std::min(list[0], static_cast<std::int32_t>((numbers - 1) / 2));
    return list;
}

void check(int result, std::int32_t width, std::int32_t height)
{
    assert(result == (width && height ? 0 : -1));
}

} // namespace

// The first byte holds the flags, then come the lines sensor, mode and text, then the list.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string sensor = take_line(rest);
    const std::string mode = take_line(rest);
    const std::string text = take_line(rest);
    std::int32_t width = -1;
    std::int32_t height = -1;
    const int parsed = conf_parseResolution(sensor.c_str(), mode.c_str(), data[0] & 1,
                                            data[0] >> 1 & 1, text.c_str(), &width, &height);
    check(parsed, width, height);
    width = height = -1;
    const int guessed = guess_resolution(make_list(rest).get(), text.c_str(), &width, &height);
    check(guessed, width, height);
    return 0;
}
