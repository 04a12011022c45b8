#include "video/tracker.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>

#include <gtest/gtest.h>

using namespace va::video;

namespace
{

using Boxes = std::vector<Box>;

constexpr float uncut = 640;
constexpr float line = 320;
constexpr VideoTime step = 40;

struct Resting {
    VideoTime from;
    VideoTime until;
    StationaryBox found;
};

struct Scene {
    Scene(float right_edge, std::vector<Resting> found = {})
        : edge(right_edge), resting(std::move(found))
    {
    }
    float edge; // where the picture ends
    std::vector<Resting> resting;
};

struct Case {
    const char *what;
    const char *events; // of each number: + appears, - disappears, > < crosses the line, = rests
    Scene scene;
    std::function<Boxes(VideoTime)> moving;
};

// Walks at 100 pixels a second, is 30 wide and crosses the line after three seconds.
Box walker(VideoTime time, float direction = 1, float y = 100)
{
    return {line - 15 + direction * (static_cast<float>(time - 3000) / 10), y, 30, 80};
}

Boxes joined_if_touching(const Box &a, const Box &b)
{
    return intersection_area(a, b) > 0 ? Boxes{enclosing(a, b)} : Boxes{a, b};
}

// Twenty seconds of frames, and what a line filter, which compares the last centres, sees of them.
// Mirrored, the line's sides are exchanged too: the events are the same.
std::string events_of(const Case &row, bool mirror)
{
    const auto placed = [&](const Box &box) {
        return mirror ? Box{2 * line - box.right(), box.y, box.width, box.height} : box;
    };
    Tracker tracker(TRACK_OBJECTS);
    std::map<std::uint32_t, TrackedObject> before;
    std::string events;
    const auto add = [&](char event, std::uint32_t id) {
        events += (events.empty() ? "" : " ") + (event + std::to_string(id));
    };
    for (VideoTime time = 0; time < 20'000; time += step) {
        Boxes moving;
        for (const Box &box : row.moving(time)) {
            const float x = std::max(box.x, 0.F);
            const float width = std::min(box.right(), row.scene.edge) - x;
            if (width > 2)
                moving.push_back(placed({x, box.y, width, box.height}));
        }
        std::vector<StationaryBox> stationary;
        for (const auto &[from, until, found] : row.scene.resting) {
            if (from <= time && time < until)
                stationary.push_back({found.key, placed(found.box)});
        }
        std::map<std::uint32_t, TrackedObject> now;
        for (const TrackedObject &object :
             tracker.update(moving, stationary, placed({0, 0, row.scene.edge, 360}), time))
            now[object.id] = {object.id, object.stationary, placed(object.box)};
        for (const auto &[id, object] : before) {
            if (!now.contains(id))
                add('-', id);
        }
        for (const auto &[id, object] : now) {
            const bool is_new = !before.contains(id);
            const TrackedObject &old = is_new ? object : before[id];
            if (is_new)
                add('+', id);
            if (object.stationary && (is_new || !old.stationary))
                add('=', id);
            const bool right = object.box.centre().x >= line;
            if (right != (old.box.centre().x >= line))
                add(right ? '>' : '<', id);
        }
        before = std::move(now);
    }
    return events;
}

TEST(VideoTracker, ReportsEachObjectOnceAndEachCrossing)
{
    std::mt19937 random;
    const auto within = [&](float most) { return most * static_cast<float>(random() % 99) / 99; };
    const Box place = walker(2200);
    // Stops at the place and goes on at `on`, soon to be lost for a moment.
    const auto stander = [&](VideoTime t, VideoTime on) {
        const VideoTime walked = t < on ? std::min<VideoTime>(t, 2200) : t - on + 2200;
        return t < 2600 || (t > on && t / 200 != on / 200 + 3) ? Boxes{walker(walked)} : Boxes{};
    };
    // A small one comes to a large one, is before it from 1500 and not seen by itself from 2550.
    const auto together = [](VideoTime t) {
        const Box large = walker(t < 3225 ? t : 6450 - t);
        const float below = std::clamp(190 - static_cast<float>(t) / 10, 40.F, 150.F);
        const Box small = {large.x + 8, large.y + below, 14, 30};
        return t < 2550 ? Boxes{small, large} : Boxes{enclosing(large, small)};
    };
    const Case cases[] = {
        {"not seen for half a second, and stands", "+1 >1 -1", uncut,
         [](VideoTime t) {
             return t > 2700 && t < 3240 ? Boxes{} : Boxes{walker(t < 3000 ? t : t - 540)};
         }},
        {"lost for a second", "+1 -1 +2 -2", uncut,
         [](VideoTime t) { return std::abs(t - 3000) < 480 ? Boxes{} : Boxes{walker(t)}; }},
        {"appears just before the line, and is lost there", "+1 >1 -1", uncut,
         [](VideoTime t) {
             return t < 2920 || t == 3000 || t == 3040 ? Boxes{} : Boxes{walker(t)};
         }},
        {"seen in four frames, then not in five", "+1 -1", uncut,
         [](VideoTime t) {
             return t < 2800 || (t > 2920 && t < 3120) ? Boxes{} : Boxes{walker(t)};
         }},
        {"in pieces, of which one is seen first", "+1 >1 -1", uncut,
         [](VideoTime t) {
             const float x = walker(t).x;
             return Boxes{{x, 100, 30, 18}, {t < 600 ? -100 : x, 124, 30, 56}};
         }},
        {"less of it is seen for a moment", "+1 >1 -1", uncut,
         [](VideoTime t) {
             const float x = walker(2250 + t / 4).x;
             return Boxes{{x, 100, t > 3160 && t < 3280 ? 8.F : 30.F, 80}};
         }},
        {"small and fast", "+1 >1 -1", uncut,
         [](VideoTime t) {
             return Boxes{{315 + 0.42F * static_cast<float>(t - 3000), 150, 10, 10}};
         }},
        {"stops and trembles on the line", "+1 >1", uncut,
         [](VideoTime t) {
             Box box = walker(std::min<VideoTime>(t, 3008));
             box.x += t < 3008 ? 0 : 3.2F * std::sin(static_cast<float>(t) / 150);
             return Boxes{box};
         }},
        {"three are near each other, one in pieces", "+1 +2 +3 >2 >1 >3 -2 -1 -3", uncut,
         [](VideoTime t) {
             const float x = walker(t).x;
             return Boxes{{x, 100, 16, 80},
                          {x + 16, 190, 30, 80},
                          {x - 5, 5, 30, 30},
                          {x + 18, 100, 12, 80}};
         }},
        {"two meet on the line", "+1 +2 <2 >1 -2 -1", uncut,
         [](VideoTime t) {
             return joined_if_touching(walker(t).expanded(60, 0),
                                       walker(t + 200, -1, 105).expanded(60, 0));
         }},
        {"two meet before the line and turn back", "+1 +2 -1 -2", uncut,
         [](VideoTime t) {
             const VideoTime back = t < 2900 ? t : t < 4500 ? 2900 : 7400 - t;
             return joined_if_touching(walker(back - 100).expanded(30, 0),
                                       walker(back, -1, 105).expanded(30, 0));
         }},
        {"two that are always together are one", "+1 +2 >2 >1 -2 <1 -1", uncut,
         [](VideoTime t) {
             const Box box = walker(t < 4250 ? t : 8500 - t);
             const float below = std::max(110 - static_cast<float>(t) / 10, 10.F);
             return joined_if_touching(box, {box.x + 16, box.y + below, 30, 80});
         }},
        {"soon, if one is before the other", "+1 +2 >1 >2 -1 <2 -2", uncut, together},
        {"stops when half outside", "+1 >1", line + 8,
         [](VideoTime t) {
             const VideoTime left = std::max<VideoTime>(4000 - t, 0);
             return Boxes{walker(3040 - left * left / 4000)};
         }},
        {"another enters where one leaves", "+1 >1 -1 +2 <2 -2", line + 60,
         [](VideoTime t) { return joined_if_touching(walker(t), walker(t - 1210, -1, 118)); }},
        {"is found at rest late, and goes on late", "+1 -1 +1 =1 -1 +1 >1 -1",
         Scene(uncut, {{5000, 7000, {5, place}}}), [&](VideoTime t) { return stander(t, 15'000); }},
        {"another goes on much later", "+1 =1 -1 +2 >2 -2",
         Scene(uncut, {{3000, 3200, {5, place}}}), [&](VideoTime t) { return stander(t, 14'000); }},
        {"two go on where one stood", "+1 =1 -1 +1 >1 +2 -1 -2",
         Scene(uncut, {{3000, 5000, {5, place}}}),
         [&](VideoTime t) {
             return t < 7000 ? stander(t, 5000) : Boxes{walker(t - 2800), walker(t - 3200, -1)};
         }},
        {"a lorry begins where one stood", "+1 -1 +2 >2 -2", uncut,
         [&](VideoTime t) {
             return t < 5000 ? stander(t, 5000) : Boxes{walker(t - 2800).expanded(60, 40)};
         }},
        {"waves where it rests, beside something", "+1 +2 =2 -2 -1",
         Scene(uncut,
               {{3000, 5000, {5, place}}, {3000, 5000, {6, {place.x + 20, place.y, 30, 80}}}}),
         [](VideoTime t) {
             return t < 5000 ? Boxes{walker(std::min<VideoTime>(t, 2200))} : Boxes{};
         }},
        {"walks by as something comes to rest", "+1 +2 =2 -2 >1 -1",
         Scene(uncut, {{2200, 2240, {5, place}}}), [](VideoTime t) { return Boxes{walker(t)}; }},
        {"is before a bag left behind, and another", "+1 =1 +2 -1 >2 +3 =3 -2",
         Scene(uncut, {{0, 2800, {5, place}}, {5000, 20'000, {6, place}}}),
         [](VideoTime t) { return t < 2200 ? Boxes{} : Boxes{walker(t)}; }},
        {"sways, or grows, but does not move", "", uncut,
         [](VideoTime t) {
             const auto now = static_cast<float>(t);
             return Boxes{{310 + 10 * std::sin(now / 150), 50, 20, 90},
                          {500, 50, 20, 20 + now / 50}};
         }},
        {"noise", "", uncut,
         [&](VideoTime t) {
             Boxes boxes(t < 6000 ? 2 : 0);
             for (Box &box : boxes)
                 box = {within(600), within(300), within(30), within(30)};
             return boxes;
         }},
    };
    for (const Case &row : cases) {
        EXPECT_EQ(events_of(row, false), row.events) << row.what;
        EXPECT_EQ(events_of(row, true), row.events) << row.what << ", mirrored";
    }
}

TEST(VideoTracker, ForgetsAtResetAllButTheNumbers)
{
    Tracker tracker(TRACK_OBJECTS);
    const StationaryBox found[] = {{5, walker(0)}};
    EXPECT_EQ(tracker.update({}, found, {0, 0, uncut, 360}, 0).at(0).id, 1U);
    tracker.reset();
    EXPECT_EQ(tracker.update({}, found, {0, 0, uncut, 360}, step).at(0).id, 2U);
}

} // namespace
