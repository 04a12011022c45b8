#include "tools/common/program.h"

#include "client/verdict.h"
#include "tools/common/printing.h"
#include "tools/common/watch.h"
#include "util/fd.h"

#include <csignal>
#include <exception>
#include <new>
#include <utility>

namespace va
{

const char EXIT_STATUSES[] =
    "\n"
    "Ends with 0 when records came, 1 after an error, 2 when it is used wrongly, 3 when no record\n"
    "came, 5 when none came because the daemon hangs, 6 because it runs without analytics, 7 when\n"
    "none came and it cannot write its status.\n";

namespace
{

// A quiet scene, unless the daemon itself knows better.
int without_records(const std::string &directory)
{
    const Verdict verdict = judge(ask_daemon_status(directory));
    if (verdict.status < NO_ANSWER) // also when nobody can be asked
        return NO_RECORDS;
    say(verdict.text);
    return verdict.status;
}

} // namespace

int run_program(const std::function<int()> &body)
{
    open_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    prepare_report();
    try {
        return body();
    } catch (const OutputEnded &) {
        return RECORDS_CAME; // of what it says of itself
    } catch (const WrongUse &wrong) {
        say(std::string(wrong.what()) + " (--help tells more)");
        return USED_WRONGLY;
    } catch (const std::bad_alloc &) {
        say("out of memory");
    } catch (const std::exception &error) {
        say(error.what());
    }
    return FAILED;
}

int print_records(const Source &source, std::vector<std::unique_ptr<RecordSink>> sinks,
                  Selection selection)
{
    Sinks all(std::move(sinks), source.count, std::move(selection));
    try {
        if (source.capture.empty())
            all.call(&RecordSink::finish, watch(source, all));
        else
            replay(source, all);
    } catch (const OutputEnded &) {
    }
    if (all.any())
        return RECORDS_CAME;
    return source.capture.empty() ? without_records(source.directory) : NO_RECORDS;
}

} // namespace va
