#include "conf/conf_analytics.h"

#include "conf/store.h"

int conf_getIvsCtrlConf(IvsCtrlConf *conf)
{
    RecordReader store;
    conf->bTaEna = store.flag("no", "EventDetection.CameraTampering");
    conf->bFdEna = store.flag("no", "EventDetection.FaceDetection");
    conf->bMdEna = store.flag("yes", "EventDetection.MotionDetection");
    conf->bOdEna = store.flag("yes", "EventDetection.VumeruOD");
    conf->bDisEna = store.flag("no", "ImageSource.I0.Sensor.DIS");
    return 0;
}

int conf_getTACtrlConf(TACtrlConf *conf)
{
    constexpr std::uint32_t alarm_time_scale = 15; // unsigned: an absurd setting wraps

    RecordReader store;
    conf->dfAlarmMethod = store.number("1", "CameraTampering.T0.dfAlarmMethod");
    conf->dfAlarmTime = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(store.number("100", "CameraTampering.T0.dfAlarmTime")) *
        alarm_time_scale);
    conf->dfAreaRate = store.number("50", "CameraTampering.T0.dfAreaRate");
    conf->dfThreshold = store.number("40", "CameraTampering.T0.dfThreshold");
    conf->dfPixelRate = store.number("5", "CameraTampering.T0.dfPixelRate");
    conf->dfRepeatTh = store.number("5", "CameraTampering.T0.dfRepeatTh");
    conf->dfAlarmShape = store.number("100", "CameraTampering.T0.dfAlarmShape");
    conf->gcRegionSens = store.number("50", "CameraTampering.T0.gcRegionSens");
    conf->gcAreaRate = store.number("30", "CameraTampering.T0.gcAreaRate");
    conf->gcWaitTime = store.number("10", "CameraTampering.T0.gcWaitTime");
    conf->gcAlarmShape = store.number("10", "CameraTampering.T0.gcAlarmShape");
    return 0;
}

int conf_getDISCtrlConf(DISCtrlConf *conf)
{
    RecordReader store;
    *conf = {};
    conf->localmot_det = store.flag("no", "VideoAnalytics.DIS.Localmot_det");
    conf->illumch_det = store.flag("no", "VideoAnalytics.DIS.Illumch_det");
    conf->edge_det = store.flag("no", "VideoAnalytics.DIS.Edge_det");
    conf->motpow_det = store.flag("no", "VideoAnalytics.DIS.Motpow_det");
    conf->mf_cutf = store.number("32", "VideoAnalytics.DIS.Mf_cutf");
    conf->disValidCnt = store.number("no", "VideoAnalytics.DIS.DisValidCnt");
    conf->frdiff_det = store.flag("no", "VideoAnalytics.DIS.Frdiff_det");
    conf->me_disable = store.flag("no", "VideoAnalytics.DIS.Me_disable");
    return 0;
}
