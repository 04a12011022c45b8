#pragma once

#include "platform/sim/observations.h"
#include "platform/sim/sim.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

// How object detection acts on its control record.

namespace va::sim
{

// Where each object of a result was, by its number.
using Centres = std::map<std::uint32_t, Point>;

struct Detection {
    std::vector<SimObjectEntry> objects;
    std::uint32_t alarms; // bit n: filter n
};

// What is reported of the objects in a frame of the size `frame`. Without `control` nothing limits
// it. A line alarms for an object that passed it since `before`.
Detection detect(const std::optional<SimOdControl> &control, Size frame,
                 const std::vector<SimObjectEntry> &present, const Centres &before);

Centres centres_of(const std::vector<SimObjectEntry> &objects);

// The items in use of an array of a control block; a count beyond the array is cut.
template <class Item, std::size_t size>
std::span<const Item> first_of(const Item (&items)[size], std::uint32_t count)
{
    return std::span<const Item>(items).first(std::min<std::size_t>(count, size));
}

// The corners of a polygon or a filter.
template <class Polygon>
std::span<const ne3_val_od_point> points_of(const Polygon &polygon)
{
    return first_of(polygon.points, polygon.pointNum);
}

} // namespace va::sim
