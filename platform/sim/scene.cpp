#include "platform/sim/scene.h"

#include "platform/sim/statement.h"
#include "platform/sim/text.h"

#include <fstream>
#include <istream>

namespace
{

void add_alarm(Scene &scene, const Values &values, std::int64_t every)
{
    scene.alarms.push_back(
        {values[0], every, {values.bits(1), values.bits(2), values.bits(3), values.bits(4)}});
}

template <SimObjectKind kind>
void add_object(Scene &scene, const Values &values)
{
    ScriptedObject script{};
    script.entry.id = values.bits(0);
    script.entry.kind = kind;
    script.entry.width = values[1];
    script.entry.height = values[2];
    script.from = {values[3], values[4]};
    script.to = {values[5], values[6]};
    script.shown = {values[7], values[8]};
    scene.objects.push_back(script);
}

constexpr Statement<Scene> settings[] = {
    {"", [](Scene &, const Values &) {}},
    {"frame S S",
     [](Scene &scene, const Values &v) {
         scene.frame = {v[0], v[1]};
     }},
    {"period D", [](Scene &scene, const Values &v) { scene.period = v[0]; }},
    {"begin T", [](Scene &scene, const Values &v) { scene.begin = v[0]; }},
    {"od_interval D", [](Scene &scene, const Values &v) { scene.od_interval = v[0]; }},
    {"feed N", [](Scene &scene, const Values &v) { scene.feed = v.word; }},
    {"fail F D W",
     [](Scene &scene, const Values &v) {
         scene.calls.push_back({v.word, v[0], {v[1], {}}});
     }},
    {"hang F D D",
     [](Scene &scene, const Values &v) {
         scene.calls.push_back({v.word, v[0], {0, std::chrono::milliseconds(v[1])}});
     }},
};

constexpr Statement<Scene> observations[] = {
    {"every D ta W W W W", [](Scene &scene, const Values &v) { add_alarm(scene, v, v[0]); }},
    {"at T ta W W W W", [](Scene &scene, const Values &v) { add_alarm(scene, v, 0); }},
    {"object W dynamic SxS from P,P to P,P between T U", add_object<SimObjectKind::moving>},
    {"object W static SxS from P,P to P,P between T U", add_object<SimObjectKind::stationary>},
    {"face W at P,P size SxS between T U",
     [](Scene &scene, const Values &v) {
         scene.faces.push_back({{v.bits(0), v[1], v[2], v[3], v[4], 100, 0}, {v[5], v[6]}});
     }},
};

struct NumberedLine {
    int number;
    std::string text;
};

void report(const std::string &path, const NumberedLine &line, const char *what)
{
    say("%s:%d: %s: %s", path.c_str(), line.number, what, line.text.c_str());
}

// Returns whether every line counts.
bool read_lines(std::istream &file, const std::string &path, Scene &scene)
{
    bool clean = true;
    std::vector<NumberedLine> observed;
    NumberedLine line{1, ""};
    for (; std::getline(file, line.text); ++line.number) {
        if (apply_line(line.text, settings, scene))
            continue;
        if (apply_line(line.text, observations, scene)) {
            observed.push_back(line);
            continue;
        }
        report(path, line, "not understood");
        clean = false;
    }
    if (scene.feed.empty())
        return clean;
    for (const NumberedLine &left_out : observed)
        report(path, left_out, "left out beside a feed");
    return clean && observed.empty();
}

} // namespace

std::optional<Scene> read_scene(const std::string &path, bool &clean)
{
    std::ifstream file(path);
    Scene scene;
    clean = read_lines(file, path, scene);
    if (file.eof())
        return scene;
    say("%s: cannot be read", path.c_str());
    return {};
}
