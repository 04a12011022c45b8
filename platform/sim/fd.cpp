#include "platform/sim/chip.h"
#include "platform/sim/text.h"
#include "records/records.h"

#include <string>

namespace
{

constexpr int handle_of_fd = 0x4644;
constexpr std::uint16_t area_count = 2;

static_assert(sizeof(SimFaceEntry) == NE3_VAL_FD_FACE_SIZE);

FdResult result_of(std::vector<unsigned char> faces, int count)
{
    FdResult result{};
    result.faces = std::move(faces);
    result.record.faceNum = count;
    return result;
}

std::optional<FdResult> observed_faces(Source &source)
{
    const auto faces = source.take_faces();
    if (!faces || faces->empty())
        return {};
    return result_of(bytes_of(*faces), static_cast<int>(faces->size()));
}

bool copy_blocks(const FaceDetection::Areas &areas, SimFdControl &control)
{
    return areas.mask.copy_attached(control.ctrl.mask, control.mask) &&
           areas.windows.copy_attached(control.ctrl.windows, control.windows);
}

// Row after row, as many as the frame has; a 1 is a watched cell.
void add_mask(Line &line, const ne3_val_fd_mask &mask, Size frame)
{
    constexpr int bits = 8;
    const int cells = NE3_VAL_FD_COLUMNS * ne3_val_fd_rows(is_wide(frame));
    line.add(" mask=");
    for (int i = 0; i < cells; ++i)
        line.add("%s%d", i && i % NE3_VAL_FD_COLUMNS == 0 ? "/" : "",
                 mask.cells[i / bits] >> i % bits & 1);
}

void add_windows(Line &line, const ne3_val_fd_window_list &list, std::uint32_t window_bits)
{
    for (std::size_t i = 0; i < NE3_VAL_FD_WINDOWS; ++i) {
        const auto &[x0, y0, x1, y1] = list.windows[i];
        if (window_bits >> i & 1)
            line.add(" window%zu=(%u,%u)(%u,%u)", i, x0, y0, x1, y1);
    }
}

void print_control(const SimFdControl &control, Size frame)
{
    const ne3_val_fd_ctrl &ctrl = control.ctrl;
    Line line;
    line.add("fd control flip=%u maskEnable=%u almMtd=%u sizeChkMtd=%u faceTotal=%u thresRatio=%u "
             "angle=%u angleMtd=%u minDetectionSize=%u maxDetectionSize=%u windowBits=0x%x",
             ctrl.flip, ctrl.maskEnable, ctrl.almMtd, ctrl.sizeChkMtd, ctrl.faceTotal,
             ctrl.thresRatio, ctrl.angle, ctrl.angleMtd, ctrl.minDetectionSize,
             ctrl.maxDetectionSize, ctrl.windowBits);
    if (control.mask)
        add_mask(line, *control.mask, frame);
    if (control.windows)
        add_windows(line, *control.windows, ctrl.windowBits);
    line.print();
}

} // namespace

int ne3_val_fd_open(const ne3_val_open_prm *prm)
{
    return library_call(__func__, [=](Memory &chip) {
        auto areas = std::make_unique<FaceDetection::Areas>();
        if (chip.fd.open(chip.library_is_open()) == -1)
            return -1;
        chip.fd.areas = std::move(areas);
        chip.fd.prm = *prm;
        return handle_of_fd;
    });
}

int ne3_val_fd_start(int handle)
{
    return library_call(__func__, [=](Memory &chip) {
        return chip.fd.is_open() && handle != handle_of_fd ? refuse(EINVAL) : chip.fd.start();
    });
}

int ne3_val_fd_stop()
{
    return library_call(__func__, [](Memory &chip) { return chip.fd.stop(); });
}

int ne3_val_fd_close()
{
    return library_call(__func__, [](Memory &chip) { return chip.fd.close(); });
}

int ne3_val_fd_get_ctrl(ne3_val_fd_ctrl *ctrl)
{
    return library_call(__func__, [=](Memory &chip) { return chip.fd.get_ctrl(ctrl); });
}

int ne3_val_fd_set_ctrl(const ne3_val_fd_ctrl *ctrl)
{
    return library_call(__func__, [=](Memory &chip) {
        if (!chip.fd.is_open())
            return refuse(EPERM);
        SimFdControl control{*ctrl, {}, {}};
        if (!copy_blocks(*chip.fd.areas, control))
            return refuse(EINVAL);
        print_control(control, chip.frame);
        chip.fd.accepted = control;
        return 0;
    });
}

int ne3_val_fd_get_area_data_mem(std::uint16_t *count, ne3_val_fd_area_data **areas)
{
    return library_call(__func__, [=](Memory &chip) {
        if (!chip.fd.is_open())
            return refuse(EPERM);
        *count = area_count;
        *areas = &chip.fd.areas->data;
        return 0;
    });
}

int ne3_val_fd_get_data(int prm, ne3_val_fd_result *result)
{
    return read_call(__func__, prm, &Memory::fd, [=](Memory &chip) {
        auto next = next_result(chip.fd.pushed, [&] { return observed_faces(*chip.source); });
        if (!next)
            return false;
        chip.fd.current = *std::move(next);
        *result = chip.fd.current.record;
        result->faces = address_of(chip.fd.current.faces);
        return true;
    });
}

int ne3_val_fd_cancel_data()
{
    return library_call(__func__, [](Memory &chip) { return chip.fd.cancel_data(); });
}

void sim_push_fd(const std::vector<unsigned char> &faces, int count)
{
    LockedChip()->fd.pushed.push_back(result_of(faces, count));
    wake_reads();
}

std::optional<SimFdControl> sim_fd_control()
{
    return LockedChip()->fd.accepted;
}

void sim_set_fd_defaults(const ne3_val_fd_ctrl &ctrl)
{
    LockedChip()->fd.defaults = ctrl;
}
