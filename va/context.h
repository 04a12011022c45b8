#pragma once

#include "conf/conf_analytics.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_sensor.h"
#include "conf/conf_vmf.h"
#include "ipc/msg/msg.h"
#include "ipc/network/sck_svr.h"
#include "va/fd_control.h"

#include <cstdint>
#include <type_traits>

#include <pthread.h>

struct soft_queue;
struct VaReport;

// The analytics back end of the daemon as one record.
//
// The daemon has two threads. The main thread starts and ends it; in between it runs the event
// loop, and is what event/ and ipc/ call the loop thread. The processing thread (va_proc() in
// va/va.h) is started by it, and another thread to them. docs/architecture.md has the picture.

// Zero-filled before va_init(). Written by the main thread until the processing thread starts, then
// by the processing thread alone, but for `threadEnded` and `reconfig`, which both use by
// va::shared(). A server handle is null when the server was not created; its results then go
// nowhere.
struct VaContext {
    SensorConfig sensorConf;

    std::int32_t odEnable; // flag: object detection runs
    ODCtrlConf odCtrl;
    ODMaskConf odMask[CONF_OD_WINDOWS];
    ODDetMaskConf odDetMask[CONF_OD_WINDOWS];
    ODDoParamInitConf odDoParamInit;
    ODDoParamSetConf odDoParamSet;
    ODSoParamInitConf odSoParamInit;
    ODSoParamSetConf odSoParamSet;
    MotionConfig motion[CONF_MOTION_WINDOWS];          // zero until the first reconfiguration
    PrivacyMaskConfig privacyMask[CONF_PRIVACY_MASKS]; // likewise
    ODVmfParamConf odVmfParam;
    sck_svr_t *odServer;
    sck_svr_t *vmfServer;
    std::int32_t odOpened; // flag: the module was opened, or tried to be

    std::int32_t fdEnable; // flag: face detection runs
    FDCtrlConf fdCtrl;
    VaFdWindow fdWatchWindows[CONF_FD_WATCH_WINDOWS];
    VaFdWindow fdDetectWindows[CONF_FD_DETECT_WINDOWS];
    sck_svr_t *fdServer;

    TACtrlConf taCtrl;
    std::int32_t taEnable; // flag: the tamper alarm runs
    sck_svr_t *taServer;

    std::int32_t disEnable; // flag: image stabilisation runs
    DISCtrlConf disCtrl;

    msg_handle *msg;
    pthread_t thread;         // the processing thread
    std::int32_t threadEnded; // set once, when the processing thread has ended
    std::int32_t reconfig;    // set by the main thread, cleared by the processing thread
    std::int32_t wideAspect;  // flag: the sensor frame is 16:9

    soft_queue *wake; // one slot; an item ends the event loop's wait; null: only its timer does
    VaReport *report; // outlives both threads; null: none
};

static_assert(std::is_standard_layout_v<VaContext> && std::is_trivially_copyable_v<VaContext>);
