#include "platform/sim/detection.h"
#include "platform/sim/scene.h"
#include "tests/support/va_fixture.h"

#include <chrono>

namespace
{

using namespace va::sim;
using std::string;
using SimTest = VaTest;

SimObjectEntry object_at(Point centre, SimObjectKind kind = SimObjectKind::moving)
{
    SimObjectEntry entry{};
    entry.kind = kind;
    entry.width = entry.height = 40;
    entry.centre_x = centre.x;
    entry.centre_y = centre.y;
    return entry;
}

TEST_F(SimTest, LinesAlarmInTheirDirectionBetweenTheirEnds)
{
    // As seen by one who looks down along the line; what is on it is at its right.
    const Point left{501, 500};
    const Point right{500, 500};
    const struct {
        std::int32_t direction;
        Point from, to;
        bool alarms;
    } cases[] = {
        {1, left, right, true},
        {1, right, left, false},
        {2, left, right, false},
        {2, right, left, true},
        {0, left, right, true},
        {3, right, left, true},
        {0, left, {900, 500}, false},
        {0, {510, 195}, {490, 195}, false}, // beyond the start
        {0, {510, 805}, {490, 805}, false},
        {0, {600, 100}, {490, 220}, true}, // from beyond it, but past it
    };
    SimOdControl control{};
    control.vmf.emplace().filterNum = 1;
    for (const auto &test : cases) {
        control.vmf->filters[0] = {1, 2, {{500, 200}, {500, 800}}, 0, 160, 0, 90,
                                   0, 0, test.direction,           {}};
        const Centres before = centres_of({object_at(test.from)});
        EXPECT_EQ(test.alarms,
                  detect(control, {1920, 1080}, {object_at(test.to)}, before).alarms == 1)
            << test.direction << " from " << test.from.x << "," << test.from.y;
    }
}

TEST_F(SimTest, MasksAndLimitsLeaveObjectsOut)
{
    SimOdControl control{};
    control.doInit = {2}; // of dynamic ones
    control.nonDetMasks = {1, {{4, {{100, 100}, {100, 200}, {200, 200}, {200, 100}}}}};
    const auto stationary = SimObjectKind::stationary;
    const Detection detection =
        detect(control, {1920, 1080},
               {object_at({100, 100}), object_at({199, 199}), object_at({200, 150}),
                object_at({150, 200}, stationary), object_at({300, 300}), object_at({400, 400}),
                object_at({150, 150}, stationary), object_at({500, 500}, stationary)},
               {});
    std::vector<std::int32_t> reported;
    for (const SimObjectEntry &object : detection.objects)
        reported.push_back(object.centre_x);
    EXPECT_EQ((std::vector{200, 150, 300, 500}), reported);
}

TEST_F(SimTest, ScenesReportWhatTheyDoNotUnderstand)
{
    const string object = "object 7 static 1x1 from 0,0 to 9,9 between ";
    const string wrong[] = {"frame 0 9",
                            "frame 9",
                            "Frame 9 9",
                            "frame 9 9 9",
                            "period 0",
                            "begin -1",
                            "begin 2147483648",
                            "od_interval x",
                            "ta 1 2 3 4",
                            "at 5 ta 1 2 3 4294967296",
                            object + "5 5",
                            object + "6 5",
                            "object 7 moving 1x1 from 0,0 to 9,9 between 0 1",
                            "face 1 at 65536,1 size 1x1 between 0 1",
                            "fail strcpy 1 1",
                            "fail ne3_val_open 0 1",
                            "feed",
                            "feed a b",
                            string("period 9\0", 9)};
    string text = "\tframe  1280\t720 # right\n\n# right\nat 5 ta -1 0xffffffff 0 0\n" + object +
                  "5 6\nfail ne3_cl_library_init 1 0x5";
    files.write("right", text);
    string wanted;
    int number = 6;
    for (const string &line : wrong) {
        text += "\n" + line;
        wanted +=
            "sim: wrong:" + std::to_string(++number) + ": not understood: " + line.c_str() + "\n";
    }
    files.write("wrong", text);
    EXPECT_EQ("", stderr_of([] { EXPECT_TRUE(sim_play_scene("right")); }));
    EXPECT_EQ(wanted, stderr_of([] { EXPECT_FALSE(sim_play_scene("wrong")); }));
    ne3_val_close(); // or the feed would be looked for, and say so
    files.write("beside", "feed dir/none\n" + object + "5 6");
    EXPECT_EQ("sim: beside:2: ignored: the scene has a feed: " + object + "5 6\n",
              stderr_of([] { EXPECT_FALSE(sim_play_scene("beside")); }));
    EXPECT_EQ("sim: none: cannot be read\n",
              stderr_of([] { EXPECT_FALSE(sim_play_scene("none")); }));
    EXPECT_EQ(-1, ne3_cl_library_init()); // planned by the first two
    EXPECT_EQ(5, errno);
}

TEST_F(SimTest, ScenesAreEnteredWhereTheyBegin)
{
    Scene scene;
    scene.period = 100'000;
    scene.begin = 40'000;
    scene.alarms = {{39'999, 0, {1}}, {40'000, 0, {2}}};
    scene.objects = {{object_at({}), {0, 0}, {10'000, 0}, {0, 100'000}}};
    Playback playback(scene);
    playback.start();
    EXPECT_EQ((AlarmWords{2}), playback.take_alarm());
    EXPECT_FALSE(playback.take_alarm());
    const auto seen = playback.take_objects();
    ASSERT_TRUE(seen && seen->jump);
    EXPECT_LE(4000, seen->objects.at(0).centre_x);
}

TEST_F(SimTest, ReadsWaitForWhatFallsDueSoon)
{
    using namespace std::chrono_literals;
    const ne3_val_od_open_prm prm{4, 1, 0, 1};
    ne3_val_od_start(ne3_val_od_open_ex(&prm, 1));
    const string object = "\nobject 7 static 9x9 from 0,0 to 9,9 between 1 9000000";
    files.write("soon", "od_interval 90" + object);
    files.write("late", "od_interval 3600000" + object);
    ne3_val_od_result result{};
    sim_play_scene("soon");
    EXPECT_EQ(0, ne3_val_od_get_data(1, &result));
    EXPECT_EQ(1, result.objectNum);
    sim_play_scene("late");
    const auto begin = std::chrono::steady_clock::now();
    for (int read = 0; read < 10; ++read)
        EXPECT_EQ(1, ne3_val_od_get_data(1, &result));
    const auto passed = std::chrono::steady_clock::now() - begin;
    EXPECT_TRUE(100ms <= passed && passed < 20s); // 10 ms each, and no timer is that late
}

} // namespace
