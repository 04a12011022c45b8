#include "platform/sim/chip.h"
#include "platform/sim/text.h"

namespace
{

void print_control(const ne3_val_dis_ctrl &ctrl)
{
    say("dis control status=%d localmot_det=%u illumch_det=%u edge_det=%u motpow_det=%u "
        "mf_cutf=%u disValidCnt=%u frdiff_det=%u me_disable=%u",
        ctrl.status, ctrl.localmot_det, ctrl.illumch_det, ctrl.edge_det, ctrl.motpow_det,
        ctrl.mf_cutf, ctrl.disValidCnt, ctrl.frdiff_det, ctrl.me_disable);
}

} // namespace

int ne3_val_dis_open()
{
    return library_call(__func__,
                        [](Memory &chip) { return chip.dis.open(chip.library_is_open()); });
}

int ne3_val_dis_start()
{
    return library_call(__func__, [](Memory &chip) { return chip.dis.start(); });
}

int ne3_val_dis_stop()
{
    return library_call(__func__, [](Memory &chip) { return chip.dis.stop(); });
}

int ne3_val_dis_close()
{
    return library_call(__func__, [](Memory &chip) { return chip.dis.close(); });
}

int ne3_val_dis_get_ctrl(ne3_val_dis_ctrl *ctrl)
{
    return library_call(__func__, [=](Memory &chip) { return chip.dis.get_ctrl(ctrl); });
}

int ne3_val_dis_set_ctrl(const ne3_val_dis_ctrl *ctrl)
{
    return library_call(__func__, [=](Memory &chip) {
        if (!chip.dis.is_open())
            return refuse(EPERM);
        print_control(*ctrl);
        chip.dis.accepted = *ctrl;
        return 0;
    });
}

std::optional<ne3_val_dis_ctrl> sim_dis_control()
{
    return LockedChip()->dis.accepted;
}

void sim_set_dis_defaults(const ne3_val_dis_ctrl &ctrl)
{
    LockedChip()->dis.defaults = ctrl;
}
