#include "platform/sim/scene.h"

#include "platform/sim/text.h"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string_view>

namespace
{

// What a capital letter of a pattern stands for.
struct NumberKind {
    char letter;
    int base; // 0: decimal or, after 0x, hexadecimal
    std::int64_t min;
    std::int64_t max;
};

constexpr std::int64_t largest_coordinate = 65535; // pixels
constexpr std::int64_t longest_time = std::numeric_limits<std::int32_t>::max();

constexpr NumberKind number_kinds[] = {
    {'T', 10, 0, longest_time}, // time
    {'U', 10, 1, longest_time}, // time after the number before
    {'D', 10, 1, longest_time}, // duration, or another count
    {'P', 10, -largest_coordinate, largest_coordinate},
    {'S', 10, 1, largest_coordinate}, // size
    {'W', 0, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::uint32_t>::max()},
};

struct Values {
    std::vector<std::int32_t> numbers; // of words the 32 bits
    std::string function;

    std::int32_t operator[](std::size_t i) const { return numbers[i]; }
    std::uint32_t word(std::size_t i) const { return static_cast<std::uint32_t>(numbers[i]); }
};

void skip_blanks(const char *&text)
{
    while (std::isspace(static_cast<unsigned char>(*text)))
        ++text;
}

bool read_number(const char *&text, const NumberKind &kind, Values &values)
{
    char *end = nullptr;
    const long long number = std::strtoll(text, &end, kind.base);
    if (end == text || number < kind.min || number > kind.max)
        return false;
    if (kind.letter == 'U' && number <= values.numbers.back())
        return false;
    values.numbers.push_back(static_cast<std::int32_t>(number));
    text = end;
    return true;
}

bool read_function(const char *&text, Values &values)
{
    while (std::isalnum(static_cast<unsigned char>(*text)) || *text == '_')
        values.function += *text++;
    return values.function.starts_with("ne3_");
}

// One character of a pattern: a blank stands for blanks, F for a function of the chip's, the
// letters above for numbers, any other for itself.
bool read_item(const char *&text, char item, Values &values)
{
    if (item == ' ') {
        const char *const start = text;
        skip_blanks(text);
        return text != start;
    }
    if (item == 'F')
        return read_function(text, values);
    for (const NumberKind &kind : number_kinds) {
        if (kind.letter == item)
            return read_number(text, kind, values);
    }
    return *text++ == item;
}

bool matches(const char *text, std::string_view pattern, Values &values)
{
    skip_blanks(text);
    for (const char item : pattern) {
        if (!read_item(text, item, values))
            return false;
    }
    skip_blanks(text);
    return *text == '\0';
}

void add_alarm(Scene &scene, const Values &values, std::int64_t every)
{
    scene.alarms.push_back(
        {values[0], every, {values.word(1), values.word(2), values.word(3), values.word(4)}});
}

template <SimObjectKind kind>
void add_object(Scene &scene, const Values &values)
{
    ScriptedObject script{};
    script.entry.id = values.word(0);
    script.entry.kind = kind;
    script.entry.width = values[1];
    script.entry.height = values[2];
    script.from = {values[3], values[4]};
    script.to = {values[5], values[6]};
    script.shown = {values[7], values[8]};
    scene.objects.push_back(script);
}

struct Statement {
    std::string_view pattern;
    void (*apply)(Scene &scene, const Values &values);
};

constexpr Statement statements[] = {
    {"", [](Scene &, const Values &) {}},
    {"frame S S",
     [](Scene &scene, const Values &v) {
         scene.frame = {v[0], v[1]};
     }},
    {"period D", [](Scene &scene, const Values &v) { scene.period = v[0]; }},
    {"begin T", [](Scene &scene, const Values &v) { scene.begin = v[0]; }},
    {"od_interval D", [](Scene &scene, const Values &v) { scene.od_interval = v[0]; }},
    {"every D ta W W W W", [](Scene &scene, const Values &v) { add_alarm(scene, v, v[0]); }},
    {"at T ta W W W W", [](Scene &scene, const Values &v) { add_alarm(scene, v, 0); }},
    {"object W dynamic SxS from P,P to P,P between T U", add_object<SimObjectKind::moving>},
    {"object W static SxS from P,P to P,P between T U", add_object<SimObjectKind::stationary>},
    {"face W at P,P size SxS between T U",
     [](Scene &scene, const Values &v) {
         scene.faces.push_back({{v.word(0), v[1], v[2], v[3], v[4], 100, 0}, {v[5], v[6]}});
     }},
    {"fail F D W",
     [](Scene &scene, const Values &v) {
         scene.failures.push_back({v.function, v[0], v[1]});
     }},
};

bool read_line(const std::string &line, Scene &scene)
{
    const std::string text = line.substr(0, line.find('#'));
    for (const auto &[pattern, apply] : statements) {
        Values values;
        if (!matches(text.c_str(), pattern, values))
            continue;
        apply(scene, values);
        return true;
    }
    return false;
}

} // namespace

std::optional<Scene> read_scene(const std::string &path, bool &clean)
{
    std::ifstream file(path);
    std::string line;
    Scene scene;
    clean = true;
    for (int number = 1; std::getline(file, line); ++number) {
        if (read_line(line, scene))
            continue;
        clean = false;
        say("%s:%d: not understood: %s", path.c_str(), number, line.c_str());
    }
    if (file.eof())
        return scene;
    say("%s: cannot be read", path.c_str());
    return {};
}
