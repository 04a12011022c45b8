#include "platform/nvram.h"
#include "platform/sim/detection.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"

namespace
{

std::string get(const std::string &key)
{
    char buffer[8] = "old";
    nvram_get_with_buffer(buffer, sizeof buffer, nullptr, "%s", key.c_str());
    return buffer;
}

TEST(Store, ReadsLinesOfKeyAndValue)
{
    using namespace std::string_literals;
    const std::string cases[][2] = {{"a\n a=1\n#a=1\nab=1\n=2\n", "old"}, // value of key "a"
                                    {"a=\n", ""},
                                    {"a= x = y # z \n", " x = y "},
                                    {"a=1\nb=2\na=yes\r\n#a=4\r\na\n", "yes"},
                                    {"\x7f=\0\xff\n\0a=9\na=1\0b\n="s, "1"}};
    StoreFile store;
    for (const auto &[content, value] : cases) {
        store.write(content);
        EXPECT_EQ(get("a"), value) << content;
        EXPECT_EQ(get(std::string(999, 'a')), "old");
    }
    std::filesystem::resize_file(store.path(), std::uintmax_t{1} << 40);
    EXPECT_EQ(get("a"), "1");
}

TEST(Store, TellsOnceWhatIsWrongWithIt)
{
    const std::string sensor = "Properties.ImageSource.Sensor";
    StoreFile store;
    const std::string path = "sim: " + store.path() + ": ";
    for (int round = 0; round < 2; ++round) {
        store.write(sensor + "=imx122\n");
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(get(sensor), "imx122"); }), "");
        std::filesystem::remove(store.path());
        std::filesystem::create_directory(store.path());
        EXPECT_EQ(stderr_of([&] { get("a") + get(sensor) + get(sensor); }),
                  path + "cannot be read: Is a directory\n" + path + "no " + sensor + "\n");
        std::filesystem::remove(store.path());
    }
}

TEST(Scene, ReportsTheLinesThatAreWrong)
{
    const StoreFile file(
        "\tframe 640 480 # good\r\n\nat 0 ta 1 2 3\nface 1 at 1,1 size 9x9 between "
        "9 9\nobject 1 static 9x from 1,1 to 2,2 between 0 9\nat 0 ta 0xf -1 3 4");
    std::optional<Scene> scene;
    bool clean = true;
    const std::string report = stderr_of([&] { scene = read_scene(file.path(), clean); });
    EXPECT_TRUE(!clean && scene->frame.width == 640 && scene->alarms[0].words[1] == ~0u);
    EXPECT_EQ(std::ranges::count(report, '\n'), 3) << report;
}

TEST(Detection, LinesAlarmForWhatPassesThemInTheirDirection)
{
    const struct {
        std::int32_t direction;
        Point from, to;
        bool alarms;
    } cases[] = {{1, {900, 500}, {1000, 500}, true},  {2, {900, 500}, {1000, 500}, false},
                 {1, {1000, 500}, {900, 500}, false}, {2, {1000, 500}, {900, 500}, true},
                 {0, {900, 90}, {1000, 90}, false},   {0, {1000, 500}, {1010, 500}, false}};
    for (const auto &[direction, from, to, expected] : cases) {
        SimOdControl control{};
        control.vmf.emplace().filterNum = 1;
        control.vmf->filters[0] = {0,         2, {{960, 1080}, {960, 100}}, 0, 9, 0, 9, 0, 0,
                                   direction, {}};
        const SimObjectEntry object{1, SimObjectKind::moving, 0, 0, 99, 99, to.x, to.y, 0, 0};
        EXPECT_EQ(detect(control, {1920, 1080}, {object}, {{1, from}}).alarms, expected);
    }
}

} // namespace
