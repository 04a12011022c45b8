#include "platform/sim/chip.h"
#include "platform/sim/text.h"

#include <cstring>

namespace
{

// A call other than with the one `prm` there is; looked at after the state.
bool wrong_prm(const Module &module, int prm)
{
    return module.is_open() && prm != expected_prm;
}

std::optional<ne3_val_ta_result> observed_alarm(Source &source)
{
    const auto words = source.take_alarm();
    if (!words)
        return {};
    ne3_val_ta_result result{};
    static_assert(sizeof result.alarm == sizeof *words);
    std::memcpy(result.alarm, words->data(), sizeof result.alarm);
    return result;
}

void print_control(const ne3_val_ta_ctrl &ctrl)
{
    say("ta control dfAlarmMethod=%u dfAlarmTime=%u gcRegionSens=%u gcAreaRate=%u gcWaitTime=%u "
        "gcAlarmShape=%u dfThreshold=%u dfPixelRate=%u dfAreaRate=%u dfRepeatTh=%u "
        "dfAlarmShape=%u",
        ctrl.dfAlarmMethod, ctrl.dfAlarmTime, ctrl.gcRegionSens, ctrl.gcAreaRate, ctrl.gcWaitTime,
        ctrl.gcAlarmShape, ctrl.dfThreshold, ctrl.dfPixelRate, ctrl.dfAreaRate, ctrl.dfRepeatTh,
        ctrl.dfAlarmShape);
}

} // namespace

int ne3_val_ta_open(const ne3_val_open_prm *prm)
{
    return library_call(__func__, [=](Memory &chip) {
        if (chip.ta.open(chip.library_is_open()) == -1)
            return -1;
        chip.ta.prm = *prm;
        return 0;
    });
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
        if (!chip.ta.is_open())
            return refuse(EPERM);
        if (wrong_prm(chip.ta, prm))
            return refuse(EINVAL);
        print_control(*ctrl);
        chip.ta.accepted = *ctrl;
        return 0;
    });
}

int ne3_val_ta_get_data(int prm, ne3_val_ta_result *result)
{
    return read_call(__func__, prm, &Memory::ta, [=](Memory &chip) {
        const auto next = next_result(chip.ta.pushed, [&] { return observed_alarm(*chip.source); });
        if (next)
            *result = *next;
        return next.has_value();
    });
}

int ne3_val_ta_cancel_data()
{
    return library_call(__func__, [](Memory &chip) { return chip.ta.cancel_data(); });
}

void sim_push_ta(const ne3_val_ta_result &result)
{
    LockedChip()->ta.pushed.push_back(result);
    wake_reads();
}

std::optional<ne3_val_ta_ctrl> sim_ta_control()
{
    return LockedChip()->ta.accepted;
}

void sim_set_ta_defaults(const ne3_val_ta_ctrl &ctrl)
{
    LockedChip()->ta.defaults = ctrl;
}
