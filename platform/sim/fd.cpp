#include "platform/sim/chip.h"
#include "platform/sim/text.h"
#include "util/text.h"

using namespace va::sim;

namespace
{

static_assert(sizeof(SimFaceEntry) == NE3_VAL_FD_FACE_SIZE);

Result<ne3_val_fd_result> result_of(std::vector<unsigned char> faces, int count)
{
    Result<ne3_val_fd_result> result{{}, std::move(faces)};
    result.record.faces = address_of(result.entries);
    result.record.faceNum = count;
    return result;
}

std::optional<Result<ne3_val_fd_result>> observed_faces(Memory &chip)
{
    const auto faces = chip.source->take_faces();
    if (!faces || faces->empty())
        return {};
    return result_of(bytes_of(*faces), static_cast<int>(faces->size()));
}

// Row after row, as many as the frame has; a 1 is a watched cell.
std::string text_of(const ne3_val_fd_mask &mask, Size frame)
{
    constexpr int bits = 8;
    const int cells = NE3_VAL_FD_COLUMNS * ne3_val_fd_rows(is_wide(frame));
    std::string text = " mask=";
    for (int i = 0; i < cells; ++i) {
        if (i && i % NE3_VAL_FD_COLUMNS == 0)
            text += '/';
        text += mask.cells[i / bits] >> i % bits & 1 ? '1' : '0';
    }
    return text;
}

std::string text_of(const ne3_val_fd_window_list &list, std::uint32_t window_bits)
{
    std::string text;
    for (std::size_t i = 0; i < NE3_VAL_FD_WINDOWS; ++i) {
        const auto &[x0, y0, x1, y1] = list.windows[i];
        if (window_bits >> i & 1)
            text += va::formatted(" window%zu=(%u,%u)(%u,%u)", i, x0, y0, x1, y1);
    }
    return text;
}

void print_control(const SimFdControl &control, Size frame)
{
    const ne3_val_fd_ctrl &ctrl = control.ctrl;
    const std::string mask = control.mask ? text_of(*control.mask, frame) : "";
    const std::string windows = control.windows ? text_of(*control.windows, ctrl.windowBits) : "";
    say("fd control flip=%u maskEnable=%u almMtd=%u sizeChkMtd=%u faceTotal=%u thresRatio=%u "
        "angle=%u angleMtd=%u minDetectionSize=%u maxDetectionSize=%u windowBits=0x%x%s%s",
        ctrl.flip, ctrl.maskEnable, ctrl.almMtd, ctrl.sizeChkMtd, ctrl.faceTotal, ctrl.thresRatio,
        ctrl.angle, ctrl.angleMtd, ctrl.minDetectionSize, ctrl.maxDetectionSize, ctrl.windowBits,
        mask.c_str(), windows.c_str());
}

} // namespace

bool FdAreas::copy_blocks(SimFdControl &control) const
{
    return mask.copy_attached(control.ctrl.mask, control.mask) &&
           windows.copy_attached(control.ctrl.windows, control.windows);
}

int ne3_val_fd_open(const ne3_val_open_prm *prm)
{
    return library_call(__func__,
                        [=](Memory &chip) { return chip.fd.open(chip.library_is_open(), prm); });
}

int ne3_val_fd_start(int handle)
{
    return library_call(__func__, [=](Memory &chip) { return chip.fd.start(handle); });
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
        return chip.fd.set_ctrl(
            ctrl, [&](const SimFdControl &control) { print_control(control, chip.frame); });
    });
}

int ne3_val_fd_get_area_data_mem(std::uint16_t *count, ne3_val_fd_area_data **areas)
{
    return library_call(__func__, [=](Memory &chip) { return chip.fd.get_areas(count, areas); });
}

int ne3_val_fd_get_data(int prm, ne3_val_fd_result *result)
{
    return read_call(__func__, prm, &Memory::fd, result, observed_faces);
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
