#include "platform/sim/detection.h"
#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

TEST(Sim, ReportsTheLinesOfASceneThatAreWrong)
{
    const TempDir files;
    const std::string path = files.file("scene");
    std::string scene = "frame 640 480 # good\n\n";
    std::string report;
    for (const std::string line :
         {"object 1 dynamic 10x from 1,1 to 2,2 between 0 9", "at 0 ta 1 2 3",
          "face 1 at 1,1 size 9x9 between 9 9", "every 0 ta 1 2 3 4"}) {
        const auto number = std::ranges::count(scene, '\n') + 1;
        report +=
            "sim: " + path + ":" + std::to_string(number) + ": not understood: " + line + "\n";
        scene += line + "\n";
    }
    std::ofstream(path) << scene + "at 0 ta 1 0xffffffff -1 4";
    bool clean = true;
    std::optional<Scene> read;
    EXPECT_EQ(stderr_of([&] { read = read_scene(path, clean); }), report);
    EXPECT_TRUE(!clean && read->frame.width == 640 && read->alarms.size() == 1);
}

using Polygon = std::vector<ne3_val_od_point>;

// Whether a filter alarms for an object of 10 x 10 cells of the grid that moves so.
bool alarms(const Polygon &points, std::int32_t direction, Point from, Point to)
{
    SimOdControl control{};
    ne3_val_od_vmf &vmf = control.vmf.emplace();
    vmf.filterNum = 1;
    vmf.ndAreaNum = 1;
    vmf.ndAreas[0] = {4, {{1800, 0}, {1800, 1080}, {1920, 1080}, {1920, 0}}};
    ne3_val_od_filter &filter = vmf.filters[0];
    filter.pointNum = static_cast<std::uint16_t>(points.size());
    std::ranges::copy(points, filter.points);
    filter.objMaxSizeX = 10;
    filter.objMaxSizeY = 10;
    filter.movingDirection = direction;
    const SimObjectEntry object{1, SimObjectKind::moving, 0, 0, 120, 120, to.x, to.y, 0, 0};
    return detect(control, {1920, 1080}, {object}, {{1, from}}).alarms == 1;
}

TEST(Detection, FiltersAlarm)
{
    const Polygon up{{960, 1080}, {960, 100}};
    const Polygon hook{{0, 0}, {0, 200}, {200, 200}, {200, 100}, {100, 100}, {100, 0}};
    const struct {
        Polygon points;
        std::int32_t direction;
        Point from, to;
        bool alarms;
    } cases[] = {{up, 1, {900, 500}, {1000, 500}, true},
                 {up, 2, {900, 500}, {1000, 500}, false},
                 {up, 1, {1000, 500}, {900, 500}, false},
                 {up, 2, {1000, 500}, {900, 500}, true},
                 {up, 0, {900, 500}, {1000, 500}, true},
                 {up, 0, {900, 90}, {1000, 90}, false},
                 {up, 0, {1000, 500}, {1010, 500}, false},
                 {up, 0, {900, 500}, {1900, 500}, false},
                 {hook, 0, {}, {50, 50}, true},
                 {hook, 0, {}, {150, 150}, true},
                 {hook, 0, {}, {150, 50}, true},
                 {hook, 0, {}, {50, 100}, true},
                 {hook, 0, {}, {250, 100}, false}};
    for (const auto &[points, direction, from, to, expected] : cases)
        EXPECT_EQ(alarms(points, direction, from, to), expected) << direction << ' ' << to.x;
}

} // namespace
