#include "util/fd.h"
#include "util/guarded.h"
#include "va/descriptor_limit.h"
#include "va/log.h"
#include "va/output.h"
#include "va/report.h"
#include "va/run_dir.h"
#include "va/run_watch.h"
#include "va/status.h"
#include "va/va.h"
#include "va/watchdog.h"

#include <csignal>
#include <cstring>

#include <pthread.h>

namespace
{

constexpr int loop_wait_ms = 100; // bound on the loop's wait

// Not ended at exit: the processing thread may still be on its last lines then.
template <class T>
union Lasting {
    Lasting() : value() {}
    ~Lasting() {}
    Lasting(const Lasting &) = delete;
    Lasting &operator=(const Lasting &) = delete;

    T value;
};

// The thread is never joined: va_stop() waits for its flag. Without a thread the daemon serves its
// sockets all the same.
void start_processing_thread(VaContext *context)
{
    const int error = pthread_create(&context->thread, nullptr, va_proc, context);
    if (error == 0) {
        pthread_detach(context->thread);
        return;
    }
    log_error("Can't create the processing thread: %s. There are no results.",
              std::strerror(error));
    tell(context->report, &VaHealth::ends, "no thread could be made");
    va::shared(context->threadEnded) = 1;
}

// Without either of its events the loop would go on unseen: results stay in the buffers, or a stop
// request that came before it is lost.
bool prepare_loop()
{
    return add_timer_event(loop_wait_ms, EVENT_ENABLED, null_timer, nullptr) &&
           add_always_event(EVENT_ONESHOT, stop_if_requested, nullptr);
}

void run(VaContext *context, Watchdog &watchdog)
{
    context->wake = va_new_wake();
    start_processing_thread(context);
    block_sighup(false);
    if (prepare_loop() && watch_run_dir(*context) && watchdog.start()) {
        event_loop(0);
    } else {
        log_error("Can't add the events of the event loop.");
        va::shared(terminate) = 1; // ends the processing thread, for which va_stop() waits
    }
    watchdog.says_stopping();
    va_stop(context);
}

} // namespace

int main(int argc, char **argv)
{
    static Lasting<VaReport> report;
    static VaContext context;
    context.report = &report.value;

    va::open_standard_descriptors();
    keep_output_from_blocking();
    std::signal(SIGINT, sig1_handler);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTERM, sig1_handler);
    std::signal(SIGXFSZ, SIG_IGN); // beyond a limit of file sizes a write fails, and that is told
    std::signal(SIGHUP, sighup_handler);
    block_sighup(true);
    Watchdog watchdog(report.value.health); // before any child could speak for the daemon
    raise_descriptor_limit();
    check_run_dir();
    create_pid_file();
    va_parse_arg(argc, argv);
    if (va_init(&context) == 0)
        run(&context, watchdog);
    else
        watchdog.says_not_started();
    remove_status_file();
    remove_own_pid_file();
    log_error("Application quit.");
    return 0;
}
