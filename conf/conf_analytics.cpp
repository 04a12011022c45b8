#include "conf/conf_analytics.h"

#include "conf/store.h"

int conf_getIvsCtrlConf(IvsCtrlConf *conf)
{
    va::RecordReader store;
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

    va::RecordReader store("CameraTampering.T0.");
    conf->dfAlarmMethod = store.number("1", "dfAlarmMethod");
    conf->dfAlarmTime = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(store.number("100", "dfAlarmTime")) * alarm_time_scale);
    conf->dfAreaRate = store.number("50", "dfAreaRate");
    conf->dfThreshold = store.number("40", "dfThreshold");
    conf->dfPixelRate = store.number("5", "dfPixelRate");
    conf->dfRepeatTh = store.number("5", "dfRepeatTh");
    conf->dfAlarmShape = store.number("100", "dfAlarmShape");
    conf->gcRegionSens = store.number("50", "gcRegionSens");
    conf->gcAreaRate = store.number("30", "gcAreaRate");
    conf->gcWaitTime = store.number("10", "gcWaitTime");
    conf->gcAlarmShape = store.number("10", "gcAlarmShape");
    return 0;
}

int conf_getDISCtrlConf(DISCtrlConf *conf)
{
    va::RecordReader store("VideoAnalytics.DIS.");
    *conf = {};
    conf->localmot_det = store.flag("no", "Localmot_det");
    conf->illumch_det = store.flag("no", "Illumch_det");
    conf->edge_det = store.flag("no", "Edge_det");
    conf->motpow_det = store.flag("no", "Motpow_det");
    conf->mf_cutf = store.number("32", "Mf_cutf");
    conf->disValidCnt = store.number("no", "DisValidCnt");
    conf->frdiff_det = store.flag("no", "Frdiff_det");
    conf->me_disable = store.flag("no", "Me_disable");
    return 0;
}
