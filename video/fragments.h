#pragma once

#include "video/box.h"

#include <vector>

// Whether two boxes are likely to be parts of one thing: they touch or nearly do, or stand above
// each other as a head, a body and legs do.
bool belong_together(const Box &a, const Box &b);

// Joins those that belong together. The order of the result is open.
std::vector<Box> join_fragments(std::vector<Box> boxes);
