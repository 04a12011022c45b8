#include "util/fd.h"
#include "util/guarded.h"
#include "va/drivers.h"
#include "va/log.h"
#include "va/pid_file.h"
#include "va/process.h"
#include "va/report.h"
#include "va/run_dir.h"
#include "va/va.h"
#include "va/watchdog.h"

#include <csignal>
#include <cstddef>
#include <cstring>
#include <new>

#include <pthread.h>

namespace
{

constexpr int loop_wait_ms = 100; // bound on the loop's wait

// The thread is never joined: va_stop() waits for its flag. Without a thread the daemon serves its
// sockets all the same.
void start_processing_thread(VaContext *context)
{
    const int error = pthread_create(&context->thread, nullptr, va_proc, context);
    if (error == 0) {
        pthread_detach(context->thread);
        return;
    }
    va::log_error("Can't create the processing thread: %s. There are no results.",
                  std::strerror(error));
    va::report(context->report, &VaHealth::ends, "no thread could be made");
    va::shared(context->threadEnded) = 1;
}

void run(VaContext *context, va::Watchdog &watchdog)
{
    context->wake = va_new_wake();
    start_processing_thread(context);
    va::block_sighup(false);
    // Without its events the loop would keep results in the buffers, or lose a stop request that
    // came before it.
    if (add_timer_event(loop_wait_ms, EVENT_ENABLED, null_timer, nullptr) &&
        add_always_event(EVENT_ONESHOT, va::stop_if_requested, nullptr) &&
        va::watch_run_dir(*context) && watchdog.start()) {
        event_loop(0);
    } else {
        va::log_error("Can't add the events of the event loop.");
        va::shared(terminate) = 1; // ends the processing thread, for which va_stop() waits
    }
    watchdog.notify_stopping();
    va_stop(context);
}

} // namespace

int main(int argc, char **argv)
{
    // Never destroyed: the processing thread may still be on its last lines at exit.
    alignas(VaReport) static std::byte storage[sizeof(VaReport)];
    VaReport &report = *new (storage) VaReport;
    static VaContext context;
    context.report = &report;

    va::open_standard_descriptors();
    va::keep_output_from_blocking();
    std::signal(SIGINT, sig1_handler);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTERM, sig1_handler);
    std::signal(SIGXFSZ, SIG_IGN); // a write beyond the limit of file sizes fails, and is reported
    std::signal(SIGHUP, va::sighup_handler);
    va::block_sighup(true);
    va::Watchdog watchdog(report.health); // before any child could notify in the daemon's place
    va::raise_descriptor_limit();
    va::check_run_dir();
    create_pid_file();
    va_parse_arg(argc, argv);
    if (va_init(&context) == 0)
        run(&context, watchdog);
    else
        watchdog.notify_not_started();
    va_remove_status();
    va::remove_own_pid_file();
    va::log_error("Application quit.");
    return 0;
}
