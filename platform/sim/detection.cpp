#include "platform/sim/detection.h"

#include <algorithm>

namespace va::sim
{
namespace
{

constexpr std::uint32_t line_points = 2;

Size in_cells(const SimObjectEntry &object, Size frame)
{
    return {object.width * NE3_VAL_OD_COLUMNS / frame.width,
            object.height * ne3_val_od_rows(is_wide(frame)) / frame.height};
}

bool within(Size size, Size min, Size max)
{
    return min.width <= size.width && size.width <= max.width && min.height <= size.height &&
           size.height <= max.height;
}

Point centre_of(const SimObjectEntry &object)
{
    return {object.centre_x, object.centre_y};
}

// Which side of the line from `a` to `b` a point is on, as seen in the picture: negative on the
// left. In floating point, so that no coordinate overflows; exact for those of a picture.
double side(Point a, Point b, Point p)
{
    const auto minus = [](double x, double y) { return x - y; };
    return minus(b.x, a.x) * minus(p.y, a.y) - minus(b.y, a.y) * minus(p.x, a.x);
}

// Each area the daemon knows is a box.
bool is_inside(Point point, std::span<const ne3_val_od_point> corners)
{
    if (corners.empty())
        return false;
    const auto [left, right] = std::ranges::minmax(corners, {}, &ne3_val_od_point::x);
    const auto [top, bottom] = std::ranges::minmax(corners, {}, &ne3_val_od_point::y);
    return left.x <= point.x && point.x < right.x && top.y <= point.y && point.y < bottom.y;
}

bool is_in_any(Point point, std::span<const ne3_val_od_polygon> areas)
{
    return std::ranges::any_of(areas,
                               [=](const auto &area) { return is_inside(point, points_of(area)); });
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
    case NE3_VAL_OD_TO_RIGHT:
        return was_left;
    case NE3_VAL_OD_TO_LEFT:
        return is_left;
    default:
        return true;
    }
}

bool is_reported(const SimObjectEntry &object, Size cells, const SimOdControl &control,
                 const std::vector<SimObjectEntry> &reported)
{
    const Point centre = centre_of(object);
    const auto is_in = [=](const ne3_val_od_masks &masks) {
        return is_in_any(centre, first_of(masks.masks, masks.maskNum));
    };
    if ((control.nonDetMasks && is_in(*control.nonDetMasks)) ||
        (control.detMasks && !is_in(*control.detMasks)))
        return false;
    const bool moving = object.kind == SimObjectKind::Moving;
    const auto &set = moving ? control.doSet : control.soSet;
    const auto &init = moving ? control.doInit : control.soInit;
    if (set && !within(cells, {set->minSizeX, set->minSizeY}, {set->maxSizeX, set->maxSizeY}))
        return false;
    return !init || std::cmp_less(std::ranges::count(reported, object.kind, &SimObjectEntry::kind),
                                  init->maxObjNum);
}

bool alarms(const ne3_val_od_filter &filter, const SimObjectEntry &object, Size cells,
            const Centres &before)
{
    if (!within(cells, {filter.objMinSizeX, filter.objMinSizeY},
                {filter.objMaxSizeX, filter.objMaxSizeY}))
        return false;
    if (filter.pointNum != line_points)
        return is_inside(centre_of(object), points_of(filter));
    const auto last = before.find(object.id);
    return last != before.end() && passes(filter, last->second, centre_of(object));
}

std::uint32_t alarms_of(const ne3_val_od_vmf &vmf, const std::vector<SimObjectEntry> &objects,
                        Size frame, const Centres &before)
{
    std::uint32_t bits = 0;
    for (const SimObjectEntry &object : objects) {
        if (is_in_any(centre_of(object), first_of(vmf.ndAreas, vmf.ndAreaNum)))
            continue;
        std::uint32_t bit = 1;
        for (const ne3_val_od_filter &filter : first_of(vmf.filters, vmf.filterNum)) {
            if (alarms(filter, object, in_cells(object, frame), before))
                bits |= bit;
            bit <<= 1;
        }
    }
    return bits;
}

} // namespace

Detection detect(const std::optional<SimOdControl> &control, Size frame,
                 const std::vector<SimObjectEntry> &present, const Centres &before)
{
    if (!control)
        return {present, 0};
    Detection detection{};
    for (const SimObjectEntry &object : present) {
        if (is_reported(object, in_cells(object, frame), *control, detection.objects))
            detection.objects.push_back(object);
    }
    if (control->vmf)
        detection.alarms = alarms_of(*control->vmf, detection.objects, frame, before);
    return detection;
}

Centres centres_of(const std::vector<SimObjectEntry> &objects)
{
    Centres centres;
    for (const SimObjectEntry &object : objects)
        centres[object.id] = centre_of(object);
    return centres;
}

} // namespace va::sim
