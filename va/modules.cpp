#include "va/modules.h"

#include "platform/ne3_val.h"
#include "va/options.h"
#include "va/va_dis.h"
#include "va/va_fd.h"
#include "va/va_od.h"
#include "va/va_ta.h"

#include <algorithm>

constexpr std::array<VaDriver, std::size(va_modules)> va_drivers = {{
    {VaModule::od, &gm_bOdEna, &VaContext::odEnable, va_od_getConf, va_od_init, va_od_poll,
     va_od_updateConfig, va_od_cancel, ne3_val_od_stop, ne3_val_od_close},
    {VaModule::fd, &gm_bFdEna, &VaContext::fdEnable, va_fd_getConf, va_fd_init, va_fd_poll,
     va_fd_updateConfig, va_fd_cancel, ne3_val_fd_stop, ne3_val_fd_close},
    {VaModule::ta, &gm_bTaEna, &VaContext::taEnable, va_ta_getConf, va_ta_init, va_ta_poll,
     va_ta_updateConfig, va_ta_cancel, ne3_val_ta_stop, ne3_val_ta_close},
    {VaModule::dis, &gm_bDisEna, &VaContext::disEnable, va_dis_getConf, va_dis_init, nullptr,
     nullptr, nullptr, ne3_val_dis_stop, ne3_val_dis_close},
}};

static_assert(std::ranges::equal(va_drivers, va_modules, {}, &VaDriver::module));
