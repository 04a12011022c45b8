#include "tools/va_picture/overlay.h"

#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_vmf.h"

#include <algorithm>
#include <span>

namespace
{

using Shapes = std::vector<Shape>;

// In the order of Shape::Kind.
constexpr const char *key_prefixes[] = {
    "VMDWindow.NonDetect.V", "VMDWindow.Detect.V", "VideoAnalytics.OD.VmfParam.NdArea",
    "CrossLine.C",           "ObjectDetection.O",  "FaceDetection.F",
    "FaceDetection.F",
};

// `Source` is any record with `pointNum`, which is 0 when it is not defined, and `points`.
template <class Source>
void add(Shapes &shapes, Shape::Kind kind, int number, const Source &source)
{
    const std::span used(source.points, static_cast<std::size_t>(source.pointNum));
    if (!used.empty())
        shapes.push_back({kind, number, {used.begin(), used.end()}});
}

void add_face_windows(Shapes &shapes)
{
    int watch = 0;
    int detection = 0;
    for (int n = 0; n < CONF_FD_WINDOWS; ++n) {
        FDWindowConf window;
        conf_getFDWindowConf(&window, n);
        if (!window.enabled)
            continue;
        const std::int32_t right = window.x + window.width;
        const std::int32_t bottom = window.y + window.height;
        Shape shape{window.detected ? Shape::Kind::FaceDetection : Shape::Kind::FaceWatch,
                    n,
                    {{window.x, window.y}, {window.x, bottom}, {right, bottom}, {right, window.y}}};
        shape.used = window.detected ? detection++ < CONF_FD_DETECT_WINDOWS
                                     : watch++ < CONF_FD_WATCH_WINDOWS;
        shapes.push_back(shape);
    }
}

void add_od_windows(Shapes &shapes)
{
    for (int n = 0; n < CONF_OD_WINDOWS; ++n) {
        ODMaskConf mask;
        conf_getODMaskConf(&mask, n);
        add(shapes, Shape::Kind::NonDetection, n, mask);
        ODDetMaskConf window;
        conf_getODDetMaskConf(&window, n);
        add(shapes, Shape::Kind::Detection, n, window);
    }
    for (int n = 0; n < CONF_VMF_ND_AREAS; ++n) {
        ODVmfNdAreaConf area;
        conf_readODVmfNdAreaConf(&area, n);
        add(shapes, Shape::Kind::NoAlarm, n, area);
    }
}

// `Source` is a line or an area; one that is not valid has no points.
template <class Source>
void add_filter_source(Shapes &shapes, Shape::Kind kind, int number, const Source &source,
                       const VmfSlots &slots)
{
    if (!source.valid)
        return;
    add(shapes, kind, number, source);
    const VmfSource made_of = kind == Shape::Kind::Line ? VmfSource::Line : VmfSource::Area;
    const std::span used(slots.slots.begin(), static_cast<std::size_t>(slots.count));
    const auto slot = std::ranges::find_if(used, [=](const VmfSlot &candidate) {
        return candidate.source == made_of && candidate.number == number;
    });
    Shape &shape = shapes.back();
    shape.used = slot != used.end();
    if (!shape.used)
        return;
    shape.event = slot->event;
    shape.bit = slot->bit;
}

void add_filters(Shapes &shapes)
{
    VmfSlots slots;
    conf_getVmfSlots(&slots);
    for (int n = 0; n < CONF_CROSS_LINES; ++n) {
        CrossLineConf line;
        conf_readCrossLineConf(&line, n);
        add_filter_source(shapes, Shape::Kind::Line, n, line, slots);
        if (line.valid)
            shapes.back().direction = line.direction;
    }
    for (int n = 0; n < CONF_OD_AREAS; ++n) {
        ObjectDetectionConf area;
        conf_getObjectDetectionConf(&area, n);
        add_filter_source(shapes, Shape::Kind::Area, n, area, slots);
    }
}

} // namespace

std::string key_of(const Shape &shape)
{
    return key_prefixes[static_cast<std::size_t>(shape.kind)] + std::to_string(shape.number);
}

std::vector<Shape> read_overlay()
{
    Shapes shapes;
    add_od_windows(shapes);
    add_face_windows(shapes);
    add_filters(shapes);
    return shapes;
}
