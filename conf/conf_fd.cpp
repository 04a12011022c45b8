#include "conf/conf_fd.h"

#include "conf/shapes.h"
#include "conf/store.h"

#include <strings.h>

int conf_getFDCtrlConf(FDCtrlConf *conf)
{
    RecordReader store;
    *conf = {};
    conf->flip = store.flag("no", "Properties.FaceDetection.Flip");
    conf->almMtd = store.number("-1", "VideoAnalytics.FD.AlmMtd");
    conf->sizeChkMtd = store.number("1", "VideoAnalytics.FD.SizeChkMtd");
    conf->minDetectionSize = store.number("120", "FaceDetection.MinDetectionSize");
    conf->maxDetectionSize = store.number("960", "FaceDetection.MaxDetectionSize");
    conf->sensitivity = store.number("-1", "FaceDetection.Sensitivity");
    conf->faceTotal = store.number("-1", "VideoAnalytics.FD.FaceTotal");
    conf->angleMtd = store.number("-1", "VideoAnalytics.FD.AngleMtd");
    conf->angle = store.number("-1", "VideoAnalytics.FD.Angle");
    return 0;
}

int conf_getFDWindowConf(FDWindowConf *conf, int n)
{
    static constexpr EdgeKeys keys = {"FaceDetection.F%d.Left", "FaceDetection.F%d.Right",
                                      "FaceDetection.F%d.Top", "FaceDetection.F%d.Bottom"};
    RecordReader store;
    *conf = {};
    const Edges edges = read_edges(store, keys, n);
    const char *type = store.text("-1", "FaceDetection.F%d.WindowType", n);
    if (!is_window(edges, max_coordinate))
        return 0;
    conf->enabled = 1;
    conf->detected = strcasecmp(type, "detected") == 0;
    store_rectangle(edges, *conf);
    return 0;
}

int conf_compareFDCtrlConf(const FDCtrlConf *a, const FDCtrlConf *b)
{
    return compare_records(a, b);
}
