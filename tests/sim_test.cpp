#include "platform/nvram.h"
#include "platform/sim/detection.h"
#include "platform/sim/scene.h"
#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "tests/support/wait.h"

#include <atomic>
#include <functional>
#include <future>
#include <tuple>

namespace
{

using namespace va::sim;
using std::string;
using SimTest = VaTest;

SimObjectEntry object_at(Point centre, SimObjectKind kind = SimObjectKind::Moving)
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
    const Point left{501, 500}, right{500, 500};
    // clang-format off
    const std::tuple<std::int32_t, Point, Point, bool> cases[] = { // direction, from, to, alarms
        {1, left, right, true}, {1, right, left, false}, {2, left, right, false},
        {2, right, left, true}, {0, left, right, true}, {3, right, left, true},
        {0, left, {900, 500}, false}, {0, {510, 195}, {490, 195}, false}, // beyond the start
        {0, {510, 805}, {490, 805}, false}, {0, {600, 100}, {490, 220}, true}};
    // clang-format on
    SimOdControl control{};
    control.vmf.emplace().filterNum = 1;
    for (const auto &[direction, from, to, alarms] : cases) {
        control.vmf->filters[0] = {1,         2, {{500, 200}, {500, 800}}, 0, 160, 0, 90, 0, 0,
                                   direction, {}};
        EXPECT_EQ(alarms, detect(control, {1920, 1080}, {object_at(to)}, {{0, from}}).alarms == 1)
            << direction << " from " << from.x << "," << from.y;
        // Another object was there.
        EXPECT_EQ(0U, detect(control, {1920, 1080}, {object_at(to)}, {{1, from}}).alarms);
    }
}

TEST_F(SimTest, MasksLimitsAndFiltersActOnTheirObjects)
{
    constexpr Size frame{1600, 900}; // a cell is 10x10
    SimOdControl control{};
    control.nonDetMasks = {2, {box(100, 100, 200, 200), box(300, 100, 400, 200)}};
    control.detMasks = {2, {box(0, 0, 800, 450), box(800, 450, 1600, 900)}};
    control.doSet = {0, 20, 30, 2, 3};
    control.soSet = {0, 10, 11, 1, 2};
    control.vmf.emplace().filterNum = 2;
    control.vmf->filters[0] = {0, 4, {}, 0, 160, 0, 90, 0, 0, 0, {}};
    control.vmf->filters[1] = {0, 4, {}, 5, 10, 5, 10, 0, 0, 0, {}};
    std::ranges::copy(box(400, 200, 600, 400).points, control.vmf->filters[0].points);
    std::ranges::copy(box(500, 200, 700, 400).points, control.vmf->filters[1].points);
    control.vmf->ndAreaNum = 2;
    control.vmf->ndAreas[1] = box(550, 350, 560, 360);
    constexpr auto moves = SimObjectKind::Moving;
    constexpr auto stays = SimObjectKind::Stationary;
    constexpr int no = -1; // it is not reported
    const std::tuple<Point, Size, SimObjectKind, int> cases[] = {
        {{100, 100}, {40, 40}, moves, no}, {{199, 199}, {40, 40}, moves, no},
        {{200, 150}, {40, 40}, moves, 0},  {{150, 200}, {40, 40}, moves, 0},
        {{399, 199}, {40, 40}, stays, no}, {{-1, 10}, {40, 40}, moves, no},
        {{799, 449}, {40, 40}, moves, 0},  {{800, 449}, {40, 40}, moves, no},
        {{800, 450}, {40, 40}, stays, 0},  {{}, {20, 30}, moves, 0},
        {{}, {19, 30}, moves, no},         {{}, {20, 29}, moves, no},
        {{}, {209, 309}, moves, 0},        {{}, {210, 30}, moves, no},
        {{}, {20, 310}, moves, no},        {{}, {10, 20}, stays, 0},
        {{}, {10, 19}, stays, no},         {{}, {109, 119}, stays, 0},
        {{}, {110, 20}, stays, no},        {{400, 200}, {40, 40}, moves, 1},
        {{399, 250}, {40, 40}, moves, 0},  {{550, 250}, {49, 50}, moves, 1},
        {{550, 250}, {50, 50}, moves, 3},  {{550, 250}, {50, 110}, moves, 1},
        {{600, 250}, {109, 59}, stays, 2}, {{555, 355}, {50, 50}, moves, 0}};
    for (const auto &[centre, size, kind, alarms] : cases) {
        SimObjectEntry object = object_at(centre, kind);
        object.width = size.width;
        object.height = size.height;
        const Detection seen = detect(control, frame, {object}, {});
        EXPECT_EQ(alarms, seen.objects.empty() ? no : static_cast<int>(seen.alarms))
            << centre.x << "," << centre.y << " " << size.width << "x" << size.height;
    }
    control = {};
    control.doInit = {2};
    control.soInit = {1};
    control.doSet = control.soSet = {0, 4, 4, 4, 4}; // of a grid of 120 rows
    const auto moving = object_at({}), still = object_at({}, stays);
    const auto seen = detect(control, {1600, 1200}, {moving, still, moving, moving, still}, {});
    ASSERT_EQ(3U, seen.objects.size());
    EXPECT_TRUE(seen.objects[1].kind == stays && seen.objects[2].kind == moves);
}

TEST_F(SimTest, ScenesReportWhatTheyDoNotUnderstand)
{
    const string object = "object 7 static 1x1 from 0,0 to 9,9 between ";
    // clang-format off
    const string wrong[] = {
        "frame 0 9", "frame 9", "Frame 9 9", "frame 9 9 9", "period 0", "begin -1",
        "begin 2147483648", "od_interval x", "ta 1 2 3 4", "at 5 ta 1 2 3 4294967296",
        object + "5 5", object + "6 5", "object 7 moving 1x1 from 0,0 to 9,9 between 0 1",
        "face 1 at 65536,1 size 1x1 between 0 1", "fail strcpy 1 1", "fail ne3_val_open 0 1",
        "feed", "feed a b", string("period 9\0", 9)};
    // clang-format on
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

TEST_F(SimTest, ScenesArePlayedFromWhereTheyBegin)
{
    Scene scene; // so slow that the first observation is the one at its beginning
    scene.period = 400'000;
    scene.od_interval = 100'000;
    scene.alarms = {{100'000, 0, {1}}, {200'000, 0, {2}}, {300'000, 500'000, {3}}};
    scene.objects = {{object_at({}), {-100, 0}, {100, 400}, {100'000, 300'000}}};
    scene.faces = {{{5, 1, 2, 3, 4, 100, 0}, {100'000, 300'000}}};
    using Numbers = std::vector<std::uint32_t>;
    const std::tuple<std::int64_t, std::optional<Point>, Numbers> cases[] = {
        {0, {}, {}},        {100'000, Point{-100, 0}, {1}}, {200'000, Point{0, 200}, {2}},
        {300'000, {}, {3}}, {600'000, Point{0, 200}, {2}}, // in the second period
        {800'000, {}, {3}}};
    for (const auto &[begin, centre, alarms] : cases) {
        SCOPED_TRACE(begin);
        scene.begin = begin;
        const auto playback = make_playback(scene);
        playback->start();
        const DueTimes due = playback->due();
        const Moment now = std::chrono::steady_clock::now();
        EXPECT_EQ(centre.has_value(), due.objects <= now && due.faces <= now);
        EXPECT_EQ(alarms.empty(), due.alarm > now);
        const auto seen = playback->take_objects();
        ASSERT_TRUE(seen && seen->jump && seen->objects.size() == centre.has_value());
        for (const SimObjectEntry &object : seen->objects)
            EXPECT_TRUE(object.centre_x == centre->x && object.y == centre->y - 20);
        EXPECT_EQ(centre.has_value(), playback->take_faces().value().size() == 1);
        Numbers taken;
        while (const auto alarm = playback->take_alarm())
            taken.push_back(alarm->at(0));
        EXPECT_EQ(alarms, taken);
        EXPECT_FALSE(playback->take_objects()); // not before it is due
    }
}

int open_od(int count = 1)
{
    constexpr ne3_val_od_open_prm prm{4, 1, 0, 1};
    return ne3_val_od_open_ex(&prm, count);
}

TEST_F(SimTest, CallsFailInAWrongStateThenWithWrongArguments)
{
    const int handle = open_od();
    ne3_val_od_close();
    sim_fail("ne3_val_od_stop", 2, 77);
    using Call = std::function<int()>;
    const auto set = [](auto which) {
        std::uint16_t count = 0;
        ne3_val_od_area_table *areas = nullptr;
        ne3_val_od_ctrl ctrl{};
        ctrl.diffImgNum = 5;
        if (ne3_val_od_get_area_data_mem(&count, &areas) == 0)
            ctrl.detMasks = static_cast<ne3_val_od_masks *>((areas->*which).address);
        return ne3_val_od_set_ctrl(&ctrl);
    };
    const Call set_right = [=] { return set(&ne3_val_od_area_table::detMasks); };
    const Call set_wrong = [=] { return set(&ne3_val_od_area_table::vmf); };
    const auto get = [](int wanted) {
        ne3_val_od_ctrl ctrl{};
        return ne3_val_od_get_ctrl(&ctrl) == 0 && ctrl.diffImgNum == wanted ? 0 : -1;
    };
    const Call get_default = [=] { return get(0); };
    const Call open = [=] { return open_od() == handle ? 0 : -1; };
    const Call open_two = [] { return open_od(2); };
    const Call start = [=] { return ne3_val_od_start(handle); };
    const Call start_wrong = [=] { return ne3_val_od_start(handle + 1); };
    const Call read_two = [] { return ne3_val_od_get_data(2, nullptr); };
    const Call get_ta = [] { return ne3_val_ta_get_ctrl_ex(nullptr, 2); };
    const Call open_ta = [prm = ne3_val_open_prm{1, 1, 0}] { return ne3_val_ta_open(&prm); };
    const Call stop = ne3_val_od_stop, close = ne3_val_od_close, cancel = ne3_val_od_cancel_data;
    // clang-format off
    const std::pair<int, Call> calls[] = { // in this order
        {EPERM, start}, {EPERM, set_right}, {EPERM, cancel}, {EINVAL, open_two}, {0, open},
        {EPERM, open_two}, {EINVAL, start_wrong}, {EPERM, read_two}, {0, start},
        {EPERM, start_wrong}, {EINVAL, read_two}, {EAGAIN, cancel}, {EINVAL, set_wrong},
        {0, get_default}, {0, set_right}, {0, [=] { return get(5); }}, {EPERM, close}, {0, stop},
        {77, stop}, {EPERM, stop}, {0, close}, {0, open}, {0, get_default}, {EPERM, get_ta},
        {0, open_ta}, {EINVAL, get_ta}, {0, ne3_val_ta_start}, {EPERM, ne3_val_exit},
        {0, ne3_val_close}, {EPERM, ne3_val_ta_stop}, {EPERM, close}, {EPERM, open_ta},
        {EPERM, ne3_cl_sys_close_device}, {0, ne3_cl_library_init}, {0, ne3_cl_sys_open_device},
        {EPERM, ne3_cl_cpu3_xfer_complete}, {EPERM, ne3_cl_library_exit}};
    // clang-format on
    int number = 0;
    for (const auto &[error, call] : calls) {
        errno = 0;
        EXPECT_EQ(error == 0 ? 0 : -1, call()) << "call " << number;
        EXPECT_EQ(error, errno) << "call " << number++;
    }
}

TEST_F(SimTest, ReadsWaitForWhatFallsDueSoonAndAreEnded)
{
    ne3_val_od_start(open_od());
    files.write("scene", "od_interval 90\n"
                         "object 7 static 9x9 from 0,0 to 9,9 between 1 9000000");
    sim_play_scene("scene");
    ne3_val_od_result result{};
    EXPECT_EQ(0, ne3_val_od_get_data(1, &result));
    const std::pair<int (*)(), int> ends[] = {{ne3_val_od_cancel_data, NE3_VAL_ERR_CANCEL},
                                              {ne3_val_od_stop, EPERM}};
    for (const auto &[end, error] : ends) {
        std::atomic<bool> ended = false;
        auto read = std::async(std::launch::async, [&] {
            int outcome = 1;
            while (outcome >= 0 && !ended)
                outcome = ne3_val_od_get_data(1, &result);
            return outcome == -1 ? errno : 0;
        });
        EXPECT_TRUE(wait_until([end = end] { return end() == 0; }));
        ended = error == NE3_VAL_ERR_CANCEL; // else each read fails from now on
        EXPECT_EQ(error, read.get());
    }
}

TEST_F(SimTest, TheStoreHasTheLastValueOfAKey)
{
    // Without a value the buffer is left alone. What is beyond 1 MiB is not read.
    // clang-format off
    const std::tuple<string, std::size_t, const char *, std::optional<string>> cases[] = {
        {"a=1\nk=2\nkk=3\n", 8, "other", "2"}, {"k=2", 8, "other", "2"},
        {"k=2\r\nb=\r\n", 8, "other", "2"}, {"k= 2=3 #\n", 8, "other", " 2=3 #"},
        {"#k=1\n k=2\nK=3\nk\nkk=4\n=5\n", 8, "other", "other"}, {"#k=1\n", 8, nullptr, {}},
        {"k=1\nk=\n", 8, "other", ""}, {"k=12345678\n", 8, "other", "1234567"},
        {"", 3, "other", "ot"}, {"k=1\n", 0, "other", {}},
        {string(1 << 20, '\n') + "k=1", 8, "other", "other"}};
    // clang-format on
    for (const auto &[text, size, default_text, value] : cases) {
        const StoreFile store(text);
        string buffer(8, '?');
        const int found = nvram_get_with_buffer(buffer.data(), size, default_text, "%c", 'k');
        EXPECT_EQ(value.has_value(), found != 0) << text.substr(0, 20);
        const string wanted = value ? *value + '\0' : "";
        EXPECT_EQ(wanted + string(8 - wanted.size(), '?'), buffer) << text.substr(0, 20);
    }
}

} // namespace
