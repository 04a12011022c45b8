#include "platform/sim/chip.h"
#include "platform/sim/entries.h"
#include "platform/sim/text.h"

#include <span>
#include <string>
#include <utility>

namespace
{

constexpr int handle_of_od = 0x4f44;
constexpr std::uint16_t area_count = sizeof(ne3_val_od_area_table) / sizeof(ne3_val_area_mem);

static_assert(sizeof(SimObjectEntry) == NE3_VAL_OD_OBJECT_SIZE);

SimObjectEntry entry_of(const SceneObject &object, std::uint32_t result)
{
    return {
        .id = object.id,
        .kind = object.kind,
        .x = object.centre.x - object.size.width / 2,
        .y = object.centre.y - object.size.height / 2,
        .width = object.size.width,
        .height = object.size.height,
        .centre_x = object.centre.x,
        .centre_y = object.centre.y,
        .result = result,
        .reserved = 0,
    };
}

OdResult result_of(std::vector<unsigned char> objects, int count, std::uint32_t alarms)
{
    OdResult result{};
    result.objects = std::move(objects);
    result.record.vmfAlarms = alarms;
    result.record.objectNum = count;
    return result;
}

OdResult result_of(const Detection &detection, std::uint32_t number)
{
    std::vector<SimObjectEntry> entries;
    for (const SceneObject &object : detection.objects)
        entries.push_back(entry_of(object, number));
    return result_of(bytes_of(entries), static_cast<int>(entries.size()), detection.alarms);
}

std::optional<OdResult> scripted_objects(Memory &chip)
{
    const auto tick = chip.playback.take_od_tick();
    if (!tick)
        return {};
    if (tick->new_round)
        chip.od.centres.clear(); // a jump back to the beginning crosses no line
    const Detection detection = detect(chip.od.accepted, chip.playback.scene().frame,
                                       chip.playback.objects_at(tick->time), chip.od.centres);
    chip.od.centres = centres_of(detection.objects);
    if (detection.objects.empty())
        return {}; // and so without an alarm
    return result_of(detection, chip.od.results++);
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

Text &add_points(Text &text, std::span<const ne3_val_od_point> points)
{
    for (const ne3_val_od_point &point : points)
        text.point(point.x, point.y);
    return text;
}

void print_polygons(Text &text, const std::string &name,
                    std::span<const ne3_val_od_polygon> polygons)
{
    for (std::size_t i = 0; i < polygons.size(); ++i)
        add_points(text.line(name + ' ' + std::to_string(i)), points_of(polygons[i]));
}

void print_masks(Text &text, const std::string &name, const std::optional<ne3_val_od_masks> &masks)
{
    if (!masks)
        return;
    text.line(name).field("maskNum", masks->maskNum);
    print_polygons(text, name, first_of(masks->masks, masks->maskNum));
}

void print_init(Text &text, const char *name, const std::optional<ne3_val_od_obj_init> &init)
{
    if (init)
        text.line(name).field("maxObjNum", init->maxObjNum);
}

void print_set(Text &text, const char *name, const char *value_name,
               const std::optional<ne3_val_od_obj_set> &set)
{
    if (set)
        text.line(name)
            .field(value_name, set->value)
            .field("minSizeX", set->minSizeX)
            .field("minSizeY", set->minSizeY)
            .field("maxSizeX", set->maxSizeX)
            .field("maxSizeY", set->maxSizeY);
}

void print_filter(Text &text, std::size_t number, const ne3_val_od_filter &filter)
{
    text.line("od vmf filter " + std::to_string(number)).field("event", filter.event);
    add_points(text, points_of(filter))
        .field("objMinSizeX", filter.objMinSizeX)
        .field("objMinSizeY", filter.objMinSizeY)
        .field("objMaxSizeX", filter.objMaxSizeX)
        .field("objMaxSizeY", filter.objMaxSizeY)
        .field("MinDv", filter.MinDv)
        .field("MaxDv", filter.MaxDv)
        .field("movingDirection", filter.movingDirection);
}

void print_combo(Text &text, const ne3_val_od_vmf &vmf)
{
    text.line("od vmf combo filters");
    for (const std::int32_t id : vmf.comboFilterIds)
        text.add(std::to_string(id));
    text.add("intervals");
    for (const std::int32_t interval : vmf.comboIntervals)
        text.add(std::to_string(interval));
}

void print_vmf(Text &text, const ne3_val_od_vmf &vmf)
{
    text.line("od vmf")
        .field("filterNum", vmf.filterNum)
        .field("alarmTime", vmf.alarmTime)
        .field("ndAreaNum", vmf.ndAreaNum)
        .field("comboValid", vmf.comboValid);
    const auto filters = first_of(vmf.filters, vmf.filterNum);
    for (std::size_t i = 0; i < filters.size(); ++i)
        print_filter(text, i, filters[i]);
    print_polygons(text, "od vmf ndArea", first_of(vmf.ndAreas, vmf.ndAreaNum));
    if (vmf.comboValid)
        print_combo(text, vmf);
}

void print_control(const SimOdControl &control)
{
    Text text;
    text.line("od control")
        .bits("flags", control.ctrl.flags)
        .field("resolution", control.ctrl.resolution)
        .field("interval", control.ctrl.interval)
        .field("diffImgNum", control.ctrl.diffImgNum);
    print_masks(text, "od nonDetMasks", control.nonDetMasks);
    print_init(text, "od doInit", control.doInit);
    print_set(text, "od doSet", "threshold", control.doSet);
    print_init(text, "od soInit", control.soInit);
    print_set(text, "od soSet", "time", control.soSet);
    if (control.vmf)
        print_vmf(text, *control.vmf);
    print_masks(text, "od detMasks", control.detMasks);
    text.print();
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
        auto next = next_result(chip.od.pushed, [&] { return scripted_objects(chip); });
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
