#include "va/options.h"

#include "conf/conf_analytics.h"
#include "va/pid_file.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

int gm_bOdEna;
int gm_bFdEna;
int gm_bTaEna;
int gm_bDisEna;

namespace
{

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

void va_parse_arg(int argc, char *const *argv)
{
    opterr = 0;
    if (argc == 1) {
        select_by_store();
        return;
    }
    gm_bOdEna = gm_bFdEna = gm_bTaEna = gm_bDisEna = 0;
    for (int option; (option = getopt(argc, argv, "h?dotf")) != -1;) {
        switch (option) {
        case 'o':
            gm_bOdEna = 1;
            break;
        case 'f':
            gm_bFdEna = 1;
            break;
        case 't':
            gm_bTaEna = 1;
            break;
        case 'd':
            gm_bDisEna = 1;
            break;
        default:
            va_usage();
        }
    }
}

void va_usage()
{
    std::puts("usage: va [-o|-f|-t|-d]");
    remove_own_pid_file();
    std::exit(0);
}
