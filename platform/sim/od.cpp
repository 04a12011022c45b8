#include "platform/sim/chip.h"
#include "platform/sim/text.h"
#include "util/text.h"

#include <span>
#include <utility>

using namespace va::sim;
using va::formatted;

namespace
{

static_assert(sizeof(SimObjectEntry) == NE3_VAL_OD_OBJECT_SIZE);

Result<ne3_val_od_result> result_of(std::vector<unsigned char> objects, int count,
                                    std::uint32_t alarms)
{
    Result<ne3_val_od_result> result{{}, std::move(objects)};
    result.record.objects = address_of(result.entries);
    result.record.vmfAlarms = alarms;
    result.record.objectNum = count;
    return result;
}

std::optional<Result<ne3_val_od_result>> observed_objects(Memory &chip)
{
    while (const auto seen = chip.source->take_objects()) {
        if (seen->jump)
            chip.od.centres.clear(); // a jump back to the beginning crosses no line
        Detection detection = detect(chip.od.accepted, chip.frame, seen->objects, chip.od.centres);
        chip.od.centres = centres_of(detection.objects);
        if (detection.objects.empty())
            continue; // and so without an alarm
        for (SimObjectEntry &object : detection.objects)
            object.result = chip.od.results;
        ++chip.od.results;
        return result_of(bytes_of(detection.objects), static_cast<int>(detection.objects.size()),
                         detection.alarms);
    }
    return {};
}

std::string text_of(std::span<const ne3_val_od_point> points)
{
    std::string text = " ";
    for (const auto &[x, y] : points)
        text += formatted("(%d,%d)", x, y);
    return text;
}

std::string text_of(const char *name, std::span<const ne3_val_od_polygon> polygons)
{
    std::string text = formatted(" %s=%zu", name, polygons.size());
    for (const ne3_val_od_polygon &polygon : polygons)
        text += text_of(points_of(polygon));
    return text;
}

std::string text_of(const char *name, const std::optional<ne3_val_od_masks> &masks)
{
    return masks ? text_of(name, first_of(masks->masks, masks->maskNum)) : "";
}

// The blocks of one kind of objects.
std::string text_of(const char *kind, const std::optional<ne3_val_od_obj_init> &init,
                    const char *value, const std::optional<ne3_val_od_obj_set> &set)
{
    std::string text;
    if (init)
        text += formatted(" %s.maxObjNum=%u", kind, init->maxObjNum);
    if (set)
        text += formatted(" %s.%s=%d size=%ux%u..%ux%u", kind, value, set->value, set->minSizeX,
                          set->minSizeY, set->maxSizeX, set->maxSizeY);
    return text;
}

std::string text_of(const ne3_val_od_filter &filter)
{
    return formatted(" filter event=%u", filter.event) + text_of(points_of(filter)) +
           formatted(" size=%ux%u..%ux%u speed=%u..%u movingDirection=%d", filter.objMinSizeX,
                     filter.objMinSizeY, filter.objMaxSizeX, filter.objMaxSizeY, filter.MinDv,
                     filter.MaxDv, filter.movingDirection);
}

std::string text_of(const ne3_val_od_vmf &vmf)
{
    std::string text = formatted(" vmf alarmTime=%u filterNum=%u", vmf.alarmTime, vmf.filterNum);
    for (const ne3_val_od_filter &filter : first_of(vmf.filters, vmf.filterNum))
        text += text_of(filter);
    text += text_of("ndAreas", first_of(vmf.ndAreas, vmf.ndAreaNum));
    const auto &ids = vmf.comboFilterIds;
    if (vmf.comboValid)
        text += formatted(" combo=%d filters=%d,%d,%d intervals=%d,%d", vmf.comboValid, ids[0],
                          ids[1], ids[2], vmf.comboIntervals[0], vmf.comboIntervals[1]);
    return text;
}

void print_control(const SimOdControl &control)
{
    const ne3_val_od_ctrl &ctrl = control.ctrl;
    const std::string blocks = text_of("nonDetMasks", control.nonDetMasks) +
                               text_of("detMasks", control.detMasks) +
                               text_of("dynamic", control.doInit, "threshold", control.doSet) +
                               text_of("static", control.soInit, "time", control.soSet) +
                               (control.vmf ? text_of(*control.vmf) : "");
    say("od control flags=0x%x resolution=%u interval=%u diffImgNum=%d%s", ctrl.flags,
        ctrl.resolution, ctrl.interval, ctrl.diffImgNum, blocks.c_str());
}

} // namespace

bool OdAreas::copy_blocks(SimOdControl &control) const
{
    const ne3_val_od_ctrl &ctrl = control.ctrl;
    return nonDetMasks.copy_attached(ctrl.nonDetMasks, control.nonDetMasks) &&
           doInit.copy_attached(ctrl.doInit, control.doInit) &&
           doSet.copy_attached(ctrl.doSet, control.doSet) &&
           soInit.copy_attached(ctrl.soInit, control.soInit) &&
           soSet.copy_attached(ctrl.soSet, control.soSet) &&
           vmf.copy_attached(ctrl.vmf, control.vmf) &&
           detMasks.copy_attached(ctrl.detMasks, control.detMasks);
}

int ne3_val_od_open_ex(const ne3_val_od_open_prm *prm, int count)
{
    return library_call(__func__, [=](Memory &chip) {
        if (chip.library_is_open() && !chip.od.is_open() && count != expected_prm)
            return refuse(EINVAL);
        return chip.od.open(chip.library_is_open(), prm);
    });
}

int ne3_val_od_start(int handle)
{
    return library_call(__func__, [=](Memory &chip) { return chip.od.start(handle); });
}

int ne3_val_od_stop()
{
    return library_call(__func__, [](Memory &chip) { return chip.od.stop(); });
}

int ne3_val_od_close()
{
    return library_call(__func__, [](Memory &chip) { return chip.od.close(); });
}

int ne3_val_od_get_ctrl(ne3_val_od_ctrl *ctrl)
{
    return library_call(__func__, [=](Memory &chip) { return chip.od.get_ctrl(ctrl); });
}

int ne3_val_od_set_ctrl(const ne3_val_od_ctrl *ctrl)
{
    return library_call(__func__,
                        [=](Memory &chip) { return chip.od.set_ctrl(ctrl, print_control); });
}

int ne3_val_od_get_area_data_mem(std::uint16_t *count, ne3_val_od_area_table **areas)
{
    return library_call(__func__, [=](Memory &chip) { return chip.od.get_areas(count, areas); });
}

int ne3_val_od_get_data(int prm, ne3_val_od_result *result)
{
    return read_call(__func__, prm, &Memory::od, result, observed_objects);
}

int ne3_val_od_cancel_data()
{
    return library_call(__func__, [](Memory &chip) { return chip.od.cancel_data(); });
}

void sim_push_od(const std::vector<unsigned char> &objects, int count, std::uint32_t vmfAlarms)
{
    LockedChip()->od.pushed.push_back(result_of(objects, count, vmfAlarms));
    wake_reads();
}
