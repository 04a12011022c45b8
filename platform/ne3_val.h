#pragma once

#include <cstddef>
#include <cstdint>

// The chip's video-analytics library: the records the daemon exchanges with it and the calls it
// makes. Layouts are the library's, little-endian. Records that hold addresses have the camera's
// layout where pointers have 4 bytes. A field called `library` belongs to the library: its value is
// passed back as it came.

// errno of a get_data that cancel_data ended.
inline constexpr int NE3_VAL_ERR_CANCEL = static_cast<int>(0x81e030c8);

// A frame of 16:9, for which the grids below have fewer rows: its width is 177 hundredths of its
// height, cut. One without a height is none.
constexpr bool ne3_val_is_wide(std::int32_t width, std::int32_t height)
{
    return height != 0 && 100 * width / height == 177;
}

// Open parameters of the tamper alarm and of face detection.
struct ne3_val_open_prm {
    std::uint16_t prm0; // 1
    std::uint16_t prm1; // 1
    std::uint32_t library;
};
static_assert(sizeof(ne3_val_open_prm) == 8);

// A memory area that the library owns and lends.
struct ne3_val_area_mem {
    void *address;
    std::uintptr_t library;
};
static_assert(sizeof(void *) != 4 || sizeof(ne3_val_area_mem) == 8);

// Tamper alarm

struct ne3_val_ta_ctrl {
    std::uint32_t library;
    std::uint16_t dfAlarmMethod;
    std::uint16_t dfAlarmTime;
    std::uint8_t gcRegionSens;
    std::uint8_t gcAreaRate;
    std::uint16_t gcWaitTime;
    std::uint16_t gcAlarmShape;
    std::uint16_t reserved; // 0
    std::uint16_t dfThreshold;
    std::uint8_t dfPixelRate;
    std::uint8_t dfAreaRate;
    std::uint16_t dfRepeatTh;
    std::uint16_t dfAlarmShape;
};
static_assert(offsetof(ne3_val_ta_ctrl, dfAlarmMethod) == 4 &&
              offsetof(ne3_val_ta_ctrl, gcRegionSens) == 8 &&
              offsetof(ne3_val_ta_ctrl, gcWaitTime) == 10 &&
              offsetof(ne3_val_ta_ctrl, reserved) == 14 &&
              offsetof(ne3_val_ta_ctrl, dfThreshold) == 16 &&
              offsetof(ne3_val_ta_ctrl, dfPixelRate) == 18 &&
              offsetof(ne3_val_ta_ctrl, dfRepeatTh) == 20 &&
              offsetof(ne3_val_ta_ctrl, dfAlarmShape) == 22 && sizeof(ne3_val_ta_ctrl) == 24);

struct ne3_val_ta_result {
    std::uint8_t alarm[16]; // what clients get
    std::uint32_t library;
};
static_assert(sizeof(ne3_val_ta_result) == 20);

// Image stabilisation

struct ne3_val_dis_ctrl {
    std::int32_t status;
    std::uint8_t localmot_det;
    std::uint8_t illumch_det;
    std::uint8_t edge_det;
    std::uint8_t motpow_det;
    std::uint16_t mf_cutf;
    std::uint8_t disValidCnt;
    std::uint8_t frdiff_det;
    std::uint8_t me_disable;
    std::uint8_t library[3];
};
static_assert(offsetof(ne3_val_dis_ctrl, localmot_det) == 4 &&
              offsetof(ne3_val_dis_ctrl, mf_cutf) == 8 &&
              offsetof(ne3_val_dis_ctrl, disValidCnt) == 10 &&
              offsetof(ne3_val_dis_ctrl, me_disable) == 12 && sizeof(ne3_val_dis_ctrl) == 16);

// Face detection

inline constexpr int NE3_VAL_FD_COLUMNS = 16; // of the watch mask

constexpr int ne3_val_fd_rows(bool wide)
{
    return wide ? 9 : 12;
}

// One bit a cell of the grid, row after row, least significant bit first.
struct ne3_val_fd_mask {
    std::uint8_t cells[NE3_VAL_FD_COLUMNS * ne3_val_fd_rows(false) / 8];
};
static_assert(sizeof(ne3_val_fd_mask) == 24);

struct ne3_val_fd_window {
    std::uint16_t x0; // sensor pixels
    std::uint16_t y0;
    std::uint16_t x1;
    std::uint16_t y1;
};

inline constexpr int NE3_VAL_FD_WINDOWS = 10;

struct ne3_val_fd_window_list {
    ne3_val_fd_window windows[NE3_VAL_FD_WINDOWS];
};
static_assert(sizeof(ne3_val_fd_window_list) == 80);

// Where the library wants the watch mask and the detection windows.
struct ne3_val_fd_area_data {
    ne3_val_area_mem mask;    // ne3_val_fd_mask
    ne3_val_area_mem windows; // ne3_val_fd_window_list
};
static_assert(sizeof(void *) != 4 || offsetof(ne3_val_fd_area_data, windows) == 8);

struct ne3_val_fd_ctrl {
    std::uint32_t library;
    std::uint8_t flip;
    std::uint8_t maskEnable;
    std::uint8_t almMtd;
    std::uint8_t sizeChkMtd;
    std::uint8_t faceTotal;
    std::uint8_t thresRatio;
    std::uint8_t angle;
    std::uint8_t angleMtd;
    std::uint16_t minDetectionSize;
    std::uint16_t maxDetectionSize;
    ne3_val_fd_mask *mask;           // null: no watch mask
    std::uint32_t windowBits;        // bit k: entry k of the list is in use
    ne3_val_fd_window_list *windows; // null: no detection window
};
static_assert(offsetof(ne3_val_fd_ctrl, maskEnable) == 5 &&
              offsetof(ne3_val_fd_ctrl, thresRatio) == 9 &&
              offsetof(ne3_val_fd_ctrl, minDetectionSize) == 12 &&
              offsetof(ne3_val_fd_ctrl, mask) == 16);
static_assert(sizeof(void *) != 4 ||
              (offsetof(ne3_val_fd_ctrl, windowBits) == 20 &&
               offsetof(ne3_val_fd_ctrl, windows) == 24 && sizeof(ne3_val_fd_ctrl) == 28));

inline constexpr std::size_t NE3_VAL_FD_FACE_SIZE = 28; // bytes of a face entry

struct ne3_val_fd_result {
    // Entries of NE3_VAL_FD_FACE_SIZE bytes, the library's until the next get_data.
    const void *faces;
    std::uint32_t library[3];
    std::int32_t faceNum;
    std::uint32_t library2;
};
static_assert(sizeof(void *) != 4 ||
              (offsetof(ne3_val_fd_result, faceNum) == 16 && sizeof(ne3_val_fd_result) == 24));

// Object detection

struct ne3_val_od_open_prm {
    std::uint32_t prm0; // 4
    std::uint32_t prm1; // 1
    std::uint16_t prm2; // 0
    std::uint16_t prm3; // 1
};
static_assert(offsetof(ne3_val_od_open_prm, prm2) == 8 && sizeof(ne3_val_od_open_prm) == 12);

inline constexpr std::int32_t NE3_VAL_OD_COLUMNS = 160; // of the detection grid

constexpr std::int32_t ne3_val_od_rows(bool wide)
{
    return wide ? 90 : 120;
}

enum : std::int32_t {        // ne3_val_od_filter::movingDirection of a line; any other: both ways
    NE3_VAL_OD_TO_RIGHT = 1, // of one who looks from the line's start to its end
    NE3_VAL_OD_TO_LEFT = 2,
};

inline constexpr int NE3_VAL_OD_POLYGON_POINTS = 8;
inline constexpr int NE3_VAL_OD_MASKS = 4;
inline constexpr int NE3_VAL_OD_FILTERS = 3;

struct ne3_val_od_point {
    std::int32_t x; // pixels
    std::int32_t y;
};

struct ne3_val_od_polygon {
    std::uint32_t pointNum;
    ne3_val_od_point points[NE3_VAL_OD_POLYGON_POINTS];
};
static_assert(sizeof(ne3_val_od_polygon) == 68);

struct ne3_val_od_masks {
    std::uint32_t maskNum; // 0..4
    ne3_val_od_polygon masks[NE3_VAL_OD_MASKS];
};
static_assert(offsetof(ne3_val_od_masks, masks) == 4 && sizeof(ne3_val_od_masks) == 276);

// Init block of dynamic and of static objects.
struct ne3_val_od_obj_init {
    std::uint32_t maxObjNum;
};

// Set block of dynamic and of static objects; sizes in cells of the detection grid.
struct ne3_val_od_obj_set {
    std::int32_t value; // dynamic: subtraction threshold; static: detection time, ms
    std::uint16_t maxSizeX;
    std::uint16_t maxSizeY;
    std::uint16_t minSizeX;
    std::uint16_t minSizeY;
};
static_assert(offsetof(ne3_val_od_obj_set, maxSizeX) == 4 &&
              offsetof(ne3_val_od_obj_set, minSizeY) == 10 && sizeof(ne3_val_od_obj_set) == 12);

struct ne3_val_od_filter {
    std::uint16_t event;
    std::uint16_t pointNum;
    ne3_val_od_point points[NE3_VAL_OD_POLYGON_POINTS];
    std::uint16_t objMinSizeX; // grid cells
    std::uint16_t objMaxSizeX;
    std::uint16_t objMinSizeY;
    std::uint16_t objMaxSizeY;
    std::uint16_t MinDv;
    std::uint16_t MaxDv;
    std::int32_t movingDirection;
    std::uint32_t reserved[4]; // 0
};
static_assert(offsetof(ne3_val_od_filter, points) == 4 &&
              offsetof(ne3_val_od_filter, objMinSizeX) == 68 &&
              offsetof(ne3_val_od_filter, MinDv) == 76 &&
              offsetof(ne3_val_od_filter, movingDirection) == 80 &&
              sizeof(ne3_val_od_filter) == 100);

struct ne3_val_od_vmf {
    std::uint16_t filterNum;
    std::uint16_t alarmTime;
    ne3_val_od_filter filters[NE3_VAL_OD_FILTERS];
    std::uint32_t ndAreaNum;
    ne3_val_od_polygon ndAreas[NE3_VAL_OD_MASKS];
    std::int32_t comboValid;
    std::int32_t comboFilterIds[3];
    std::int32_t reserved[2]; // 0
    std::int32_t comboIntervals[2];
};
static_assert(offsetof(ne3_val_od_vmf, filters) == 4 &&
              offsetof(ne3_val_od_vmf, ndAreaNum) == 304 &&
              offsetof(ne3_val_od_vmf, ndAreas) == 308 &&
              offsetof(ne3_val_od_vmf, comboValid) == 580 &&
              offsetof(ne3_val_od_vmf, comboIntervals) == 604 && sizeof(ne3_val_od_vmf) == 612);

struct ne3_val_od_ctrl {
    std::uint32_t library;
    std::uint16_t flags; // bits 0, 1, 2 are the daemon's
    std::uint8_t resolution;
    std::uint8_t interval; // frames per detection
    std::int32_t diffImgNum;
    ne3_val_od_masks *nonDetMasks; // null: the block does not take effect
    ne3_val_od_obj_init *doInit;
    ne3_val_od_obj_set *doSet;
    ne3_val_od_obj_init *soInit;
    ne3_val_od_obj_set *soSet;
    ne3_val_od_vmf *vmf;
    ne3_val_od_masks *detMasks;
};
static_assert(offsetof(ne3_val_od_ctrl, flags) == 4 && offsetof(ne3_val_od_ctrl, resolution) == 6 &&
              offsetof(ne3_val_od_ctrl, interval) == 7 &&
              offsetof(ne3_val_od_ctrl, diffImgNum) == 8);
static_assert(sizeof(void *) != 4 ||
              (offsetof(ne3_val_od_ctrl, nonDetMasks) == 12 &&
               offsetof(ne3_val_od_ctrl, soSet) == 28 && offsetof(ne3_val_od_ctrl, vmf) == 32 &&
               offsetof(ne3_val_od_ctrl, detMasks) == 36 && sizeof(ne3_val_od_ctrl) == 40));

// Where the library wants the blocks of its control record.
struct ne3_val_od_area_table {
    ne3_val_area_mem nonDetMasks;
    ne3_val_area_mem doInit;
    ne3_val_area_mem doSet;
    ne3_val_area_mem soInit;
    ne3_val_area_mem soSet;
    ne3_val_area_mem vmf;
    ne3_val_area_mem detMasks;
};
static_assert(sizeof(ne3_val_od_area_table) == 7 * sizeof(ne3_val_area_mem));

inline constexpr std::size_t NE3_VAL_OD_OBJECT_SIZE = 40; // bytes of an object entry

struct ne3_val_od_result {
    // Entries of NE3_VAL_OD_OBJECT_SIZE bytes, the library's until the next get_data.
    const void *objects;
    std::uint32_t library[2];
    std::uint32_t vmfAlarms; // bit n: filter n raised an alarm
    std::int32_t objectNum;
    std::uint32_t library2[6];
};
static_assert(sizeof(void *) != 4 ||
              (offsetof(ne3_val_od_result, vmfAlarms) == 12 &&
               offsetof(ne3_val_od_result, objectNum) == 16 && sizeof(ne3_val_od_result) == 44));

extern "C" {

// Each call returns -1 on failure with the library's code in errno. get_data returns 0 with a
// result, another value but -1 when there is none at this moment. cancel_data returns 0 when it
// ended a pending get_data of the module, which then fails with NE3_VAL_ERR_CANCEL.

int ne3_val_init();
int ne3_val_open();
int ne3_val_close();
int ne3_val_exit();

int ne3_val_ta_open(const ne3_val_open_prm *prm);
int ne3_val_ta_start();
int ne3_val_ta_stop();
int ne3_val_ta_close();
int ne3_val_ta_get_ctrl_ex(ne3_val_ta_ctrl *ctrl, int prm);       // prm 1
int ne3_val_ta_set_ctrl_ex(const ne3_val_ta_ctrl *ctrl, int prm); // prm 1
int ne3_val_ta_get_data(int prm, ne3_val_ta_result *result);      // prm 1
int ne3_val_ta_cancel_data();

int ne3_val_dis_open();
int ne3_val_dis_start();
int ne3_val_dis_stop();
int ne3_val_dis_close();
int ne3_val_dis_get_ctrl(ne3_val_dis_ctrl *ctrl);
int ne3_val_dis_set_ctrl(const ne3_val_dis_ctrl *ctrl);

int ne3_val_fd_open(const ne3_val_open_prm *prm); // a handle for start
int ne3_val_fd_start(int handle);
int ne3_val_fd_stop();
int ne3_val_fd_close();
int ne3_val_fd_get_ctrl(ne3_val_fd_ctrl *ctrl);
int ne3_val_fd_set_ctrl(const ne3_val_fd_ctrl *ctrl);
int ne3_val_fd_get_area_data_mem(std::uint16_t *count, ne3_val_fd_area_data **areas);
int ne3_val_fd_get_data(int prm, ne3_val_fd_result *result); // prm 1
int ne3_val_fd_cancel_data();

int ne3_val_od_open_ex(const ne3_val_od_open_prm *prm, int count); // a handle for start; count 1
int ne3_val_od_start(int handle);
int ne3_val_od_stop();
int ne3_val_od_close();
int ne3_val_od_get_ctrl(ne3_val_od_ctrl *ctrl);
int ne3_val_od_set_ctrl(const ne3_val_od_ctrl *ctrl);
int ne3_val_od_get_area_data_mem(std::uint16_t *count, ne3_val_od_area_table **areas);
int ne3_val_od_get_data(int prm, ne3_val_od_result *result); // prm 1
int ne3_val_od_cancel_data();
}
