#include "conf/conf_fd.h"

#include "conf/store.h"

#include <strings.h>

namespace
{

constexpr const char *size_keys[] = {"FaceDetection.MinDetectionSize",
                                     "FaceDetection.MaxDetectionSize"};

constexpr const char *window_item = "FaceDetection.F";

} // namespace

int conf_getFDCtrlConf(FDCtrlConf *conf)
{
    va::RecordReader store;
    *conf = {};
    conf->flip = store.flag("no", "Properties.FaceDetection.Flip");
    conf->almMtd = store.number("-1", "VideoAnalytics.FD.AlmMtd");
    conf->sizeChkMtd = store.number("1", "VideoAnalytics.FD.SizeChkMtd");
    conf->minDetectionSize = store.number("120", size_keys[0]);
    conf->maxDetectionSize = store.number("960", size_keys[1]);
    conf->sensitivity = store.number("-1", "FaceDetection.Sensitivity");
    conf->faceTotal = store.number("-1", "VideoAnalytics.FD.FaceTotal");
    conf->angleMtd = store.number("-1", "VideoAnalytics.FD.AngleMtd");
    conf->angle = store.number("-1", "VideoAnalytics.FD.Angle");
    return 0;
}

int conf_getFDWindowConf(FDWindowConf *conf, int n)
{
    va::RecordReader store(window_item, n);
    *conf = {};
    const va::Edges edges = va::read_edges(store);
    const bool detected = strcasecmp(store.text("-1", "WindowType"), "detected") == 0;
    if (!va::check_window(store, edges, va::max_coordinate))
        return 0;
    conf->enabled = 1;
    conf->detected = detected;
    va::store_rectangle(edges, *conf);
    return 0;
}

void conf_rejectFDWindowConf(int n, const char *why)
{
    va::RecordReader(window_item, n).reject(why);
}

void conf_rejectFDSizes(const char *why)
{
    for (const char *key : size_keys)
        ConfReport().reject(key, why);
}
