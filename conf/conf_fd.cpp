#include "conf/conf_fd.h"

#include "conf/store.h"

#include <strings.h>

namespace
{

constexpr Key size_keys[] = {"FaceDetection.MinDetectionSize", "FaceDetection.MaxDetectionSize"};

constexpr EdgeKeys window_keys = {"FaceDetection.F%d.Left", "FaceDetection.F%d.Right",
                                  "FaceDetection.F%d.Top", "FaceDetection.F%d.Bottom"};

} // namespace

int conf_getFDCtrlConf(FDCtrlConf *conf)
{
    RecordReader store;
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
    RecordReader store;
    *conf = {};
    const Edges edges = read_edges(store, window_keys, n);
    const char *type = store.text("-1", "FaceDetection.F%d.WindowType", n);
    if (!is_window(edges, max_coordinate)) {
        conf_leaveOutFDWindowConf(n, no_window);
        return 0;
    }
    conf->enabled = 1;
    conf->detected = strcasecmp(type, "detected") == 0;
    store_rectangle(edges, *conf);
    return 0;
}

void conf_leaveOutFDWindowConf(int n, const char *why)
{
    leave_out_with(window_keys.left, n, why);
}

void conf_leaveOutFDSizes(const char *why)
{
    for (const Key key : size_keys)
        conf_leaveOut(key.text(), why);
}
