#include "platform/sim/detection.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr int grid_columns = 160;

constexpr std::uint32_t line_points = 2;

enum Direction : std::int32_t { left_to_right = 1, right_to_left = 2 }; // else both ways

Size in_cells(Size size, Size frame)
{
    const int grid_rows = is_wide(frame) ? 90 : 120;
    return {size.width * grid_columns / frame.width, size.height * grid_rows / frame.height};
}

bool within(Size size, Size min, Size max)
{
    const auto fits = [](int value, int low, int high) { return low <= value && value <= high; };
    return fits(size.width, min.width, max.width) && fits(size.height, min.height, max.height);
}

// Which side of the line from `a` to `b` a point is on, as seen in the picture: negative on the
// left. In floating point, so that no coordinate overflows; exact for those of a picture.
template <class A, class B, class P>
double side(A a, B b, P p)
{
    const auto minus = [](double x, double y) { return x - y; };
    return minus(b.x, a.x) * minus(p.y, a.y) - minus(b.y, a.y) * minus(p.x, a.x);
}

// Counts the edges that the ray from `point` to the right meets.
bool is_inside(Point point, std::span<const ne3_val_od_point> polygon)
{
    bool inside = false;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const ne3_val_od_point &a = polygon[i];
        const ne3_val_od_point &b = polygon[(i + 1) % polygon.size()];
        const bool a_below = a.y > point.y;
        const bool b_below = b.y > point.y;
        if (a_below == b_below)
            continue;
        const double where = side(a, b, point);
        if (b_below ? where > 0 : where < 0)
            inside = !inside;
    }
    return inside;
}

bool is_in_any(Point point, std::span<const ne3_val_od_polygon> polygons)
{
    return std::ranges::any_of(
        polygons, [=](const auto &polygon) { return is_inside(point, points_of(polygon)); });
}

bool is_in_any(Point point, const ne3_val_od_masks &masks)
{
    return is_in_any(point, first_of(masks.masks, masks.maskNum));
}

bool passes(const ne3_val_od_filter &line, Point from, Point to)
{
    const ne3_val_od_point &start = line.points[0];
    const ne3_val_od_point &end = line.points[1];
    const bool was_left = side(start, end, from) < 0;
    const bool is_left = side(start, end, to) < 0;
    if (was_left == is_left)
        return false;
    if (side(from, to, start) * side(from, to, end) > 0)
        return false; // beyond one of the line's ends
    switch (line.movingDirection) {
    case left_to_right:
        return was_left;
    case right_to_left:
        return is_left;
    default:
        return true;
    }
}

class Detector
{
public:
    Detector(const SimOdControl &control, Size frame, const Centres &before)
        : control_(control), frame_(frame), before_(before)
    {
    }

    std::vector<SceneObject> reported(const std::vector<SceneObject> &present) const
    {
        std::vector<SceneObject> objects;
        for (const SceneObject &object : present) {
            if (is_seen(object) && has_room(objects, object.kind))
                objects.push_back(object);
        }
        return objects;
    }

    std::uint32_t alarms(const std::vector<SceneObject> &objects) const
    {
        if (!control_.vmf)
            return 0;
        std::uint32_t alarms = 0;
        std::uint32_t bit = 1;
        for (const auto &filter : first_of(control_.vmf->filters, control_.vmf->filterNum)) {
            if (std::ranges::any_of(objects,
                                    [&](const auto &object) { return meets(object, filter); }))
                alarms |= bit;
            bit <<= 1;
        }
        return alarms;
    }

private:
    bool is_seen(const SceneObject &object) const
    {
        if (control_.nonDetMasks && is_in_any(object.centre, *control_.nonDetMasks))
            return false;
        if (control_.detMasks && !is_in_any(object.centre, *control_.detMasks))
            return false;
        const auto &limits =
            object.kind == SimObjectKind::stationary ? control_.soSet : control_.doSet;
        return !limits ||
               within(in_cells(object.size, frame_), {limits->minSizeX, limits->minSizeY},
                      {limits->maxSizeX, limits->maxSizeY});
    }

    bool has_room(const std::vector<SceneObject> &objects, SimObjectKind kind) const
    {
        const auto &init = kind == SimObjectKind::stationary ? control_.soInit : control_.doInit;
        return !init || std::cmp_less(std::ranges::count(objects, kind, &SceneObject::kind),
                                      init->maxObjNum);
    }

    bool meets(const SceneObject &object, const ne3_val_od_filter &filter) const
    {
        if (!within(in_cells(object.size, frame_), {filter.objMinSizeX, filter.objMinSizeY},
                    {filter.objMaxSizeX, filter.objMaxSizeY}))
            return false;
        if (is_in_any(object.centre, first_of(control_.vmf->ndAreas, control_.vmf->ndAreaNum)))
            return false;
        if (filter.pointNum != line_points)
            return is_inside(object.centre, points_of(filter));
        const auto last = before_.find(object.id);
        return last != before_.end() && passes(filter, last->second, object.centre);
    }

    const SimOdControl &control_;
    const Size frame_;
    const Centres &before_;
};

} // namespace

Detection detect(const std::optional<SimOdControl> &control, Size frame,
                 const std::vector<SceneObject> &present, const Centres &before)
{
    if (!control)
        return {present, 0};
    const Detector detector(*control, frame, before);
    Detection detection{detector.reported(present), 0};
    detection.alarms = detector.alarms(detection.objects);
    return detection;
}

Centres centres_of(const std::vector<SceneObject> &objects)
{
    Centres centres;
    for (const SceneObject &object : objects)
        centres[object.id] = object.centre;
    return centres;
}
