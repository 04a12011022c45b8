#include "va/od_print.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <span>

namespace
{

std::span<const ne3_val_od_point> corners(const ne3_val_od_polygon &polygon)
{
    return {polygon.points, polygon.pointNum};
}

void print_filter(int number, const ne3_val_od_filter &filter)
{
    for (int j = 0; j < filter.pointNum; ++j)
        std::printf("filter_%d. node[%d] point (%ld,%ld)\n", number, j,
                    static_cast<long>(filter.points[j].x), static_cast<long>(filter.points[j].y));
    std::printf("event=%d,objMinSizeX=%d,objMinSizeY=%d,objMaxSizeX=%d,objMaxSizeY=%d,"
                "MinDv=%d,MaxDv=%d,movingDirection=%ld\n",
                filter.event, filter.objMinSizeX, filter.objMinSizeY, filter.objMaxSizeX,
                filter.objMaxSizeY, filter.MinDv, filter.MaxDv,
                static_cast<long>(filter.movingDirection));
}

} // namespace

void od_print_old(const ne3_val_od_ctrl &ctrl)
{
    std::printf("od old prm: resolution=%d,interval=%d,diffImgNum=%ld\n", ctrl.resolution,
                ctrl.interval, static_cast<long>(ctrl.diffImgNum));
}

void od_print_mask(int number, const ne3_val_od_polygon &mask)
{
    std::printf("od set mask %d.\n", number);
    for (const auto &[x, y] : corners(mask))
        std::printf("mask pos %d,%d.\n", x, y);
}

void od_print_det_mask(int number, const ne3_val_od_polygon &mask)
{
    std::printf("od set det mask %d.\n", number);
    for (const auto &[x, y] : corners(mask))
        std::printf("detect pos %d,%d.\n", x, y);
}

// The first half of the lines of parameters has no end of its own.

void od_print_dynamic_init(const ne3_val_od_obj_init &block)
{
    std::printf("od: set odDoParamInit"
                "doMaxObjNum = %d\n",
                static_cast<int>(block.maxObjNum));
}

void od_print_dynamic_set(const ne3_val_od_obj_set &block)
{
    std::printf("od: set odDoParamSet"
                "od do: subth=%ld,min_dim=%dx%d,max_dim=%dx%d\n",
                static_cast<long>(block.value), block.minSizeX, block.minSizeY, block.maxSizeX,
                block.maxSizeY);
}

void od_print_static_init(const ne3_val_od_obj_init &block)
{
    std::printf("od: set odSoParamInit"
                "soMaxObjNum = %d\n",
                static_cast<int>(block.maxObjNum));
}

void od_print_static_set(const ne3_val_od_obj_set &block)
{
    std::printf("od: set odSoParamSet"
                "soParam:soThTime=%ld,minSizeX=%d,minSizeY=%d,maxSizeX=%d,maxSizeY=%d\n",
                static_cast<long>(block.value), block.minSizeX, block.minSizeY, block.maxSizeX,
                block.maxSizeY);
}

void od_print_vmf(const ne3_val_od_vmf &block)
{
    std::printf("od: setup vmf filter, num=%d, alarmTime=%d.\n", block.filterNum, block.alarmTime);
    for (int n = 0; n < std::min<int>(block.filterNum, NE3_VAL_OD_FILTERS); ++n)
        print_filter(n, block.filters[n]);
    for (std::uint32_t i = 0; i < block.ndAreaNum; ++i) {
        const ne3_val_od_polygon &area = block.ndAreas[i];
        std::printf("setup no detect area %d\n", static_cast<int>(i));
        for (std::uint32_t j = 0; j < area.pointNum; ++j)
            std::printf("(%d,%d)", area.points[j].x, area.points[j].y);
        std::printf("\n");
    }
    std::printf("combo filter = %ld\n", static_cast<long>(block.comboValid));
}
