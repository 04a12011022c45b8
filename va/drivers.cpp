#include "va/drivers.h"

#include "va/pid_file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

int gm_bOdEna;
int gm_bFdEna;
int gm_bTaEna;
int gm_bDisEna;

namespace
{

using va::read_and_relay;

void select_by_store()
{
    IvsCtrlConf conf;
    conf_getIvsCtrlConf(&conf);
    gm_bOdEna = conf.bOdEna;
    gm_bFdEna = conf.bFdEna;
    gm_bTaEna = conf.bTaEna;
    gm_bDisEna = conf.bDisEna;
    std::printf("od=%d,fd=%d,ta=%d,dis=%d\n", gm_bOdEna, gm_bFdEna, gm_bTaEna, gm_bDisEna);
}

} // namespace

constexpr std::array<VaDriver, std::size(va_modules)> va_drivers = {{
    {VaModule::Od, 'o', &gm_bOdEna, &VaContext::odEnable, va_od_getConf, va_od_init,
     va_od_updateConfig, ne3_val_od_stop, ne3_val_od_close,
     read_and_relay<ne3_val_od_result, ne3_val_od_get_data, va_od_processData>,
     "ne3_val_od_get_data", va_od_cancel},
    {VaModule::Fd, 'f', &gm_bFdEna, &VaContext::fdEnable, va_fd_getConf, va_fd_init,
     va_fd_updateConfig, ne3_val_fd_stop, ne3_val_fd_close,
     read_and_relay<ne3_val_fd_result, ne3_val_fd_get_data, va_fd_processData>,
     "ne3_val_fd_get_data", va_fd_cancel},
    {VaModule::Ta, 't', &gm_bTaEna, &VaContext::taEnable, va_ta_getConf, va_ta_init,
     va_ta_updateConfig, ne3_val_ta_stop, ne3_val_ta_close,
     read_and_relay<ne3_val_ta_result, ne3_val_ta_get_data, va_ta_processData>,
     "ne3_val_ta_get_data", va_ta_cancel},
    {VaModule::Dis, 'd', &gm_bDisEna, &VaContext::disEnable, va_dis_getConf, va_dis_init, nullptr,
     ne3_val_dis_stop, ne3_val_dis_close},
}};

static_assert(std::ranges::equal(va_drivers, va_modules, {}, &VaDriver::module));

void va_parse_arg(int argc, char *const *argv)
{
    opterr = 0;
    if (argc == 1) {
        select_by_store();
        return;
    }
    gm_bOdEna = gm_bFdEna = gm_bTaEna = gm_bDisEna = 0;
    for (int option; (option = getopt(argc, argv, "h?dotf")) != -1;) {
        const auto driver = std::ranges::find(va_drivers, option, &VaDriver::option);
        if (driver == va_drivers.end())
            va_usage();
        *driver->selected = 1;
    }
}

void va_usage()
{
    std::puts("usage: va [-o|-f|-t|-d]");
    va::remove_own_pid_file();
    std::exit(0);
}

void va_stop_modules()
{
    for (const VaDriver &driver : va_drivers) {
        driver.stop();
        driver.close();
    }
}
