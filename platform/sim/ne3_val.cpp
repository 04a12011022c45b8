#include "platform/ne3_val.h"

#include "platform/sim/chip.h"
#include "platform/sim/text.h"

#include <cstring>

// The library itself, and its modules without blocks: tamper alarm and stabilisation.

using namespace va::sim;

namespace
{

// A call other than with the one `prm` there is; checked after the state.
bool wrong_prm(const Module &module, int prm)
{
    return module.is_open() && prm != expected_prm;
}

std::optional<Result<ne3_val_ta_result>> observed_alarm(Memory &chip)
{
    const auto words = chip.source->take_alarm();
    if (!words)
        return {};
    Result<ne3_val_ta_result> result;
    static_assert(sizeof result.record.alarm == sizeof *words);
    std::memcpy(result.record.alarm, words->data(), sizeof result.record.alarm);
    return result;
}

void print_ta_control(const ne3_val_ta_ctrl &ctrl)
{
    say("ta control dfAlarmMethod=%u dfAlarmTime=%u gcRegionSens=%u gcAreaRate=%u gcWaitTime=%u "
        "gcAlarmShape=%u dfThreshold=%u dfPixelRate=%u dfAreaRate=%u dfRepeatTh=%u "
        "dfAlarmShape=%u",
        ctrl.dfAlarmMethod, ctrl.dfAlarmTime, ctrl.gcRegionSens, ctrl.gcAreaRate, ctrl.gcWaitTime,
        ctrl.gcAlarmShape, ctrl.dfThreshold, ctrl.dfPixelRate, ctrl.dfAreaRate, ctrl.dfRepeatTh,
        ctrl.dfAlarmShape);
}

void print_dis_control(const ne3_val_dis_ctrl &ctrl)
{
    say("dis control status=%d localmot_det=%u illumch_det=%u edge_det=%u motpow_det=%u "
        "mf_cutf=%u disValidCnt=%u frdiff_det=%u me_disable=%u",
        ctrl.status, ctrl.localmot_det, ctrl.illumch_det, ctrl.edge_det, ctrl.motpow_det,
        ctrl.mf_cutf, ctrl.disValidCnt, ctrl.frdiff_det, ctrl.me_disable);
}

} // namespace

int ne3_val_init()
{
    return step_call(__func__, &Memory::library, LibraryState::Closed, LibraryState::Initialised);
}

int ne3_val_open()
{
    return library_call(__func__, [](Memory &chip) {
        if (step(chip.library, LibraryState::Initialised, LibraryState::Open) == -1)
            return -1;
        chip.source->start();
        return 0;
    });
}

int ne3_val_close()
{
    return library_call(__func__, [](Memory &chip) {
        if (step(chip.library, LibraryState::Open, LibraryState::Initialised) == -1)
            return -1;
        chip.source->stop();
        chip.od.force_close();
        chip.fd.force_close();
        chip.ta.force_close();
        chip.dis.force_close();
        return 0;
    });
}

int ne3_val_exit()
{
    return step_call(__func__, &Memory::library, LibraryState::Initialised, LibraryState::Closed);
}

int ne3_val_ta_open(const ne3_val_open_prm *prm)
{
    return library_call(__func__,
                        [=](Memory &chip) { return chip.ta.open(chip.library_is_open(), prm); });
}

int ne3_val_ta_start()
{
    return library_call(__func__, [](Memory &chip) { return chip.ta.start(); });
}

int ne3_val_ta_stop()
{
    return library_call(__func__, [](Memory &chip) { return chip.ta.stop(); });
}

int ne3_val_ta_close()
{
    return library_call(__func__, [](Memory &chip) { return chip.ta.close(); });
}

int ne3_val_ta_get_ctrl_ex(ne3_val_ta_ctrl *ctrl, int prm)
{
    return library_call(__func__, [=](Memory &chip) {
        return wrong_prm(chip.ta, prm) ? refuse(EINVAL) : chip.ta.get_ctrl(ctrl);
    });
}

int ne3_val_ta_set_ctrl_ex(const ne3_val_ta_ctrl *ctrl, int prm)
{
    return library_call(__func__, [=](Memory &chip) {
        return wrong_prm(chip.ta, prm) ? refuse(EINVAL) : chip.ta.set_ctrl(ctrl, print_ta_control);
    });
}

int ne3_val_ta_get_data(int prm, ne3_val_ta_result *result)
{
    return read_call(__func__, prm, &Memory::ta, result, observed_alarm);
}

int ne3_val_ta_cancel_data()
{
    return library_call(__func__, [](Memory &chip) { return chip.ta.cancel_data(); });
}

void sim_push_ta(const ne3_val_ta_result &result)
{
    LockedChip()->ta.pushed.push_back({result, {}});
    wake_reads();
}

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
    return library_call(__func__,
                        [=](Memory &chip) { return chip.dis.set_ctrl(ctrl, print_dis_control); });
}
