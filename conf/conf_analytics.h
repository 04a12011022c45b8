#pragma once

#include <cstdint>

// Which analytics run, and the settings of the tamper alarm and of image stabilisation. Nothing
// here is range-checked: numbers keep the value the store holds. See conf.h.

struct IvsCtrlConf {
    std::int32_t bTaEna; // flags, 0 or 1
    std::int32_t bFdEna;
    std::int32_t bMdEna; // not used by the daemon
    std::int32_t bDisEna;
    std::int32_t bOdEna;
};
static_assert(sizeof(IvsCtrlConf) == 20);

struct TACtrlConf {
    std::int32_t dfAlarmMethod;
    std::int32_t dfAlarmTime; // 15 times the setting
    std::int32_t dfThreshold;
    std::int32_t dfPixelRate;
    std::int32_t dfAreaRate;
    std::int32_t dfRepeatTh;
    std::int32_t dfAlarmShape;
    std::int32_t gcRegionSens;
    std::int32_t gcAreaRate;
    std::int32_t gcWaitTime;
    std::int32_t gcAlarmShape;
};
static_assert(sizeof(TACtrlConf) == 44);

struct DISCtrlConf {
    std::int32_t localmot_det; // flag
    std::int32_t illumch_det;  // flag
    std::int32_t edge_det;     // flag
    std::int32_t motpow_det;   // flag
    std::int32_t mf_cutf;
    std::int32_t disValidCnt;
    std::int32_t frdiff_det; // flag
    std::int32_t me_disable; // flag
};
static_assert(sizeof(DISCtrlConf) == 32);

int conf_getIvsCtrlConf(IvsCtrlConf *conf);
int conf_getTACtrlConf(TACtrlConf *conf);
int conf_getDISCtrlConf(DISCtrlConf *conf);

int conf_compareIvsCtrlConf(const IvsCtrlConf *a, const IvsCtrlConf *b);
int conf_compareTACtrlConf(const TACtrlConf *a, const TACtrlConf *b);
int conf_compareDISCtrlConf(const DISCtrlConf *a, const DISCtrlConf *b);
