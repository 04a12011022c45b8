#pragma once

#include <cstdint>

// Settings of face detection. See conf.h.

// Not range-checked. -1 in any field but `flip` means that the setting is absent.
struct FDCtrlConf {
    std::int32_t flip; // flag: the picture is flipped
    std::int32_t almMtd;
    std::int32_t sizeChkMtd; // 1: face sizes are checked against the two below
    std::int32_t minDetectionSize;
    std::int32_t maxDetectionSize;
    std::int32_t sensitivity; // percent
    std::int32_t faceTotal;
    std::int32_t angleMtd;
    std::int32_t angle;
};
static_assert(sizeof(FDCtrlConf) == 36);

// In ten-thousandths of the frame; x + width and y + height are at most 9999.
struct FDWindowConf {
    std::int32_t enabled; // flag: the window is defined; every field is 0 if not
    std::int32_t id;      // 0; free for the user of the record
    std::int32_t x;
    std::int32_t y;
    std::int32_t width; // at least 1
    std::int32_t height;
    std::int32_t detected; // flag: a detection window, else a watch window
};
static_assert(sizeof(FDWindowConf) == 28);

inline constexpr int CONF_FD_WINDOWS = 30; // in the store; used are the first of each kind:
inline constexpr int CONF_FD_WATCH_WINDOWS = 20;
inline constexpr int CONF_FD_DETECT_WINDOWS = 10;

int conf_getFDCtrlConf(FDCtrlConf *conf);
int conf_getFDWindowConf(FDWindowConf *conf, int n);

int conf_compareFDCtrlConf(const FDCtrlConf *a, const FDCtrlConf *b);

// For conf/findings.h, by the user of the records: what does not take effect, and why.
void conf_rejectFDWindowConf(int n, const char *why);
void conf_rejectFDSizes(const char *why); // of FDCtrlConf
