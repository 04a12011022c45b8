#pragma once

#include "conf/conf_od.h"
#include "conf/conf_vmf.h"
#include "platform/ne3_val.h"

#include <cstdint>

// Translation of the object-detection settings into the library's blocks: pure functions. Settings
// are in ten-thousandths of the frame (points) or in pixels (sizes); blocks hold sensor pixels
// (points) and cells of the detection grid (sizes). Products of settings that nothing has
// range-checked are exact in 64 bits; the quotient is cut to the field it goes into.

struct OdFrame {
    std::int32_t width; // pixels, above 0
    std::int32_t height;
    std::int32_t fps;
    bool wide; // 16:9

    std::int32_t grid_height() const { return ne3_val_od_rows(wide); } // cells
};

struct OdWorking {
    std::uint8_t resolution;
    std::uint8_t interval; // frames per detection, at least 1
    std::int32_t diffImgNum;
};

// The working parameters; fixed ones when the settings are not valid.
OdWorking od_working(const ODCtrlConf &conf, const OdFrame &frame);

// The valid windows, packed in window order.
template <class Window> // ODMaskConf, ODDetMaskConf
ne3_val_od_masks od_masks(const Window (&windows)[CONF_OD_WINDOWS], const OdFrame &frame);

// A set block and whether its values can be sent as they are.
struct OdObjectSet {
    ne3_val_od_obj_set block;
    bool acceptable;
};

OdObjectSet od_dynamic_set(const ODDoParamSetConf &conf, const OdFrame &frame);

// Sizes that are not acceptable have been replaced: the whole grid, and 2 by 2.
OdObjectSet od_static_set(const ODSoParamSetConf &conf, const OdFrame &frame);

// The filters and what belongs to them; all 0 when the settings are not valid.
ne3_val_od_vmf od_vmf(const ODVmfParamConf &conf, const OdFrame &frame);
