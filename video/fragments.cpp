#include "video/fragments.h"

#include <cstddef>

namespace
{

constexpr float near_px = 3;
constexpr float stacked_gap = 0.3F;     // of the taller one's height
constexpr float stacked_overlap = 0.6F; // of the narrower one's width

// Joins one pair; false when there is none.
bool join_one(std::vector<Box> &boxes)
{
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        for (std::size_t j = i + 1; j < boxes.size(); ++j) {
            if (!belong_together(boxes[i], boxes[j]))
                continue;
            boxes[i] = united(boxes[i], boxes[j]);
            boxes[j] = boxes.back();
            boxes.pop_back();
            return true;
        }
    }
    return false;
}

} // namespace

bool belong_together(const Box &a, const Box &b)
{
    const float across = std::min(a.right(), b.right()) - std::max(a.x, b.x);
    const float gap = std::max(a.y, b.y) - std::min(a.bottom(), b.bottom());
    if (across >= -near_px && gap <= near_px)
        return true;
    return across >= stacked_overlap * std::min(a.width, b.width) &&
           gap <= stacked_gap * std::max(a.height, b.height);
}

std::vector<Box> join_fragments(std::vector<Box> boxes)
{
    while (join_one(boxes)) {
    }
    return boxes;
}
