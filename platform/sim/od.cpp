#include "platform/sim/chip.h"
#include "platform/sim/text.h"
#include "records/records.h"

#include <span>
#include <utility>

namespace
{

constexpr int handle_of_od = 0x4f44;
constexpr std::uint16_t area_count = sizeof(ne3_val_od_area_table) / sizeof(ne3_val_area_mem);

static_assert(sizeof(SimObjectEntry) == NE3_VAL_OD_OBJECT_SIZE);

OdResult result_of(std::vector<unsigned char> objects, int count, std::uint32_t alarms)
{
    OdResult result{};
    result.objects = std::move(objects);
    result.record.vmfAlarms = alarms;
    result.record.objectNum = count;
    return result;
}

std::optional<OdResult> observed_objects(Memory &chip)
{
    while (const auto seen = chip.source->take_objects()) {
        if (seen->anew)
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

bool copy_blocks(const ObjectDetection::Areas &areas, SimOdControl &control)
{
    const ne3_val_od_ctrl &ctrl = control.ctrl;
    return areas.nonDetMasks.copy_attached(ctrl.nonDetMasks, control.nonDetMasks) &&
           areas.doInit.copy_attached(ctrl.doInit, control.doInit) &&
           areas.doSet.copy_attached(ctrl.doSet, control.doSet) &&
           areas.soInit.copy_attached(ctrl.soInit, control.soInit) &&
           areas.soSet.copy_attached(ctrl.soSet, control.soSet) &&
           areas.vmf.copy_attached(ctrl.vmf, control.vmf) &&
           areas.detMasks.copy_attached(ctrl.detMasks, control.detMasks);
}

void add(Line &line, std::span<const ne3_val_od_point> points)
{
    line.add(" ");
    for (const auto &[x, y] : points)
        line.add("(%d,%d)", x, y);
}

void add(Line &line, const char *name, std::span<const ne3_val_od_polygon> polygons)
{
    line.add(" %s=%zu", name, polygons.size());
    for (const ne3_val_od_polygon &polygon : polygons)
        add(line, points_of(polygon));
}

void add(Line &line, const char *name, const std::optional<ne3_val_od_masks> &masks)
{
    if (masks)
        add(line, name, first_of(masks->masks, masks->maskNum));
}

// The blocks of one kind of objects.
void add(Line &line, const char *kind, const std::optional<ne3_val_od_obj_init> &init,
         const char *value, const std::optional<ne3_val_od_obj_set> &set)
{
    if (init)
        line.add(" %s.maxObjNum=%u", kind, init->maxObjNum);
    if (set)
        line.add(" %s.%s=%d size=%ux%u..%ux%u", kind, value, set->value, set->minSizeX,
                 set->minSizeY, set->maxSizeX, set->maxSizeY);
}

void add(Line &line, const ne3_val_od_filter &filter)
{
    line.add(" filter event=%u", filter.event);
    add(line, points_of(filter));
    line.add(" size=%ux%u..%ux%u speed=%u..%u movingDirection=%d", filter.objMinSizeX,
             filter.objMinSizeY, filter.objMaxSizeX, filter.objMaxSizeY, filter.MinDv, filter.MaxDv,
             filter.movingDirection);
}

void add(Line &line, const ne3_val_od_vmf &vmf)
{
    line.add(" vmf alarmTime=%u filterNum=%u", vmf.alarmTime, vmf.filterNum);
    for (const ne3_val_od_filter &filter : first_of(vmf.filters, vmf.filterNum))
        add(line, filter);
    add(line, "ndAreas", first_of(vmf.ndAreas, vmf.ndAreaNum));
    const auto &ids = vmf.comboFilterIds;
    if (vmf.comboValid)
        line.add(" combo=%d filters=%d,%d,%d intervals=%d,%d", vmf.comboValid, ids[0], ids[1],
                 ids[2], vmf.comboIntervals[0], vmf.comboIntervals[1]);
}

void print_control(const SimOdControl &control)
{
    const ne3_val_od_ctrl &ctrl = control.ctrl;
    Line line;
    line.add("od control flags=0x%x resolution=%u interval=%u diffImgNum=%d", ctrl.flags,
             ctrl.resolution, ctrl.interval, ctrl.diffImgNum);
    add(line, "nonDetMasks", control.nonDetMasks);
    add(line, "detMasks", control.detMasks);
    add(line, "dynamic", control.doInit, "threshold", control.doSet);
    add(line, "static", control.soInit, "time", control.soSet);
    if (control.vmf)
        add(line, *control.vmf);
    line.print();
}

} // namespace

int ne3_val_od_open_ex(const ne3_val_od_open_prm *prm, int count)
{
    return library_call(__func__, [=](Memory &chip) {
        auto areas = std::make_unique<ObjectDetection::Areas>();
        if (chip.library_is_open() && !chip.od.is_open() && count != expected_prm)
            return refuse(EINVAL);
        if (chip.od.open(chip.library_is_open()) == -1)
            return -1;
        chip.od.areas = std::move(areas);
        chip.od.prm = *prm;
        return handle_of_od;
    });
}

int ne3_val_od_start(int handle)
{
    return library_call(__func__, [=](Memory &chip) {
        return chip.od.is_open() && handle != handle_of_od ? refuse(EINVAL) : chip.od.start();
    });
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
    return library_call(__func__, [=](Memory &chip) {
        if (!chip.od.is_open())
            return refuse(EPERM);
        SimOdControl control{};
        control.ctrl = *ctrl;
        if (!copy_blocks(*chip.od.areas, control))
            return refuse(EINVAL);
        print_control(control);
        chip.od.accepted = control;
        return 0;
    });
}

int ne3_val_od_get_area_data_mem(std::uint16_t *count, ne3_val_od_area_table **areas)
{
    return library_call(__func__, [=](Memory &chip) {
        if (!chip.od.is_open())
            return refuse(EPERM);
        *count = area_count;
        *areas = &chip.od.areas->table;
        return 0;
    });
}

int ne3_val_od_get_data(int prm, ne3_val_od_result *result)
{
    return read_call(__func__, prm, &Memory::od, [=](Memory &chip) {
        auto next = next_result(chip.od.pushed, [&] { return observed_objects(chip); });
        if (!next)
            return false;
        chip.od.current = *std::move(next);
        *result = chip.od.current.record;
        result->objects = address_of(chip.od.current.objects);
        return true;
    });
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

std::optional<SimOdControl> sim_od_control()
{
    return LockedChip()->od.accepted;
}

std::optional<ne3_val_od_open_prm> sim_od_open_prm()
{
    return LockedChip()->od.prm;
}

void sim_set_od_defaults(const ne3_val_od_ctrl &ctrl)
{
    LockedChip()->od.defaults = ctrl;
}
